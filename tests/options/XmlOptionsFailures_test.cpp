// The options file's parser failing: Xerces-C failing to start, an
// exception out of the parse, recoverable errors.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "XmlOptionsFixture.h"

#include <xercesc/sax/HandlerBase.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/RuntimeException.hpp>
#include <xercesc/util/XMLExceptMsgs.hpp>

using namespace vestrel_test;

namespace {
// A handler whose parser validates, so that a document breaking its DTD
// yields errors the parser counts instead of stopping.
class ValidatingHandler : public ChannelOptionsHandler {
 protected:
  void configureParser(xercesc::SAXParser& parser) override {
    parser.setValidationScheme(xercesc::SAXParser::Val_Always);
  }
};
}  // namespace

// Xerces reports its own failures as XMLException, whose UTF-16 message the
// receiver reads as single-byte text: only its first character shows.
class FailingInitialization : public ChannelOptionsHandler {
 protected:
  // Xerces must be up to make its exception at all; the test ends it again.
  void initializeXml() override {
    xercesc::XMLPlatformUtils::Initialize();
    throw xercesc::RuntimeException(__FILE__, __LINE__, xercesc::XMLExcepts::Gen_CouldNotOpenDTD);
  }
};

// An error handler that throws an XMLException out of the parse, the one way
// such an exception still leaves Xerces-C 3.2's scanner.
class ThrowingErrorHandler : public xercesc::HandlerBase {
 public:
  void fatalError(const xercesc::SAXParseException&) override {
    throw xercesc::RuntimeException(__FILE__, __LINE__, xercesc::XMLExcepts::Gen_CouldNotOpenDTD);
  }
};

class FailingParse : public ChannelOptionsHandler {
 protected:
  void configureParser(xercesc::SAXParser& parser) override { parser.setErrorHandler(&errors_); }

 private:
  ThrowingErrorHandler errors_;
};

std::string firstCharacterOfXercesMessage() {
  xercesc::XMLPlatformUtils::Initialize();
  std::string first;
  {
    const xercesc::RuntimeException sample(__FILE__, __LINE__, xercesc::XMLExcepts::Gen_CouldNotOpenDTD);
    first.assign(1, static_cast<char>(sample.getMessage()[0]));
  }
  xercesc::XMLPlatformUtils::Terminate();
  return first;
}

TEST_F(XmlOptionsTest, AnInitializationFailureIsReportedWithTheFirstCharacterOfItsMessage) {
  OptionSet set;
  FailingInitialization handler;
  try {
    handler.load(set, file(std::string(kHeader) + "</CHANNEL-SETUP>"), 2);
    FAIL() << "loaded";
  } catch (const cHexkitError& e) {
    EXPECT_EQ(std::string(e.GetMessage()), "error during XML initialization" + firstCharacterOfXercesMessage());
    EXPECT_EQ(e.GetSeverity(), 2);
  }
  xercesc::XMLPlatformUtils::Terminate();           // the start the failing handler made
  EXPECT_EQ(firstCharacterOfXercesMessage(), "u");  // the message starts "unable to open"
}

TEST_F(XmlOptionsTest, AnXmlExceptionOutOfTheParseIsReportedAsAParsingError) {
  OptionSet set;
  FailingParse handler;
  try {
    handler.load(set, file("<CHANNEL-SETUP><unclosed></CHANNEL-SETUP>"), 2);
    FAIL() << "loaded";
  } catch (const cHexkitError& e) {
    EXPECT_EQ(std::string(e.GetMessage()), "eerror during XML parsingu");
    EXPECT_EQ(e.GetSeverity(), 2);
  }
  EXPECT_TRUE(set.empty());
}

TEST_F(XmlOptionsTest, RecoverableErrorsAreReportedWithSeverityOne) {
  const std::string path = file(
      "<?xml version=\"1.0\"?>\n<!DOCTYPE CHANNEL-SETUP [<!ELEMENT CHANNEL-SETUP EMPTY>]>\n"
      "<CHANNEL-SETUP><VERSION version=\"1.1.0.0\"/><RCVRNAME>SWO Trace</RCVRNAME>"
      "</CHANNEL-SETUP>");
  OptionSet set;
  ValidatingHandler handler;
  try {
    handler.load(set, path, 2);
    FAIL() << "loaded";
  } catch (const cHexkitError& e) {
    EXPECT_EQ(std::string(e.GetMessage()), "Recoverable errors were detected while parsing " + path);
    EXPECT_EQ(e.GetSeverity(), 1);
  }
  EXPECT_TRUE(set.empty());
}
