#include "XmlOptions.h"

#include <cstdio>
#include <memory>
#include <stdexcept>

#include <xercesc/parsers/SAXParser.hpp>
#include <xercesc/sax/AttributeList.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>

#include "LogControl.h"
#include "cHexkitError.h"
#include "uFile.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;
using Hexkit::cHexkitErrorIF;

namespace {

// Element and attribute names: the low eight bits of each code unit.
std::string narrow(const XMLCh* text) {
  std::string out;
  if (text != nullptr) {
    for (; *text != 0; ++text) out += static_cast<char>(*text & 0xFF);
  }
  return out;
}

// Text content as UTF-8, so that a value saved byte for byte as UTF-8
// loads back unchanged.
std::string utf8(const XMLCh* text, XMLSize_t length) {
  std::string out;
  for (XMLSize_t i = 0; i < length; ++i) {
    std::uint32_t code = text[i];
    if (code >= 0xD800 && code <= 0xDBFF && i + 1 < length && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      code = 0x10000 + ((code - 0xD800) << 10) + (text[++i] - 0xDC00);
    }
    if (code < 0x80) {
      out += static_cast<char>(code);
    } else if (code < 0x800) {
      out += static_cast<char>(0xC0 | (code >> 6));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      out += static_cast<char>(0xE0 | (code >> 12));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (code >> 18));
      out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  return out;
}

// Xerces messages are UTF-16; read as single-byte text they stop after
// their first character. That is how these messages have always read.
std::string firstByteText(const XMLCh* message) {
  return message != nullptr ? std::string(reinterpret_cast<const char*>(message)) : std::string();
}

const char* const kReceiverNameMissing =
    "RCVRNAME xml tag not found in this xml file.\n"
    "If this file was created with Trace V1.0, then please recreate\n"
    "the file using Trace V1.1 software by setting the same options\n"
    "and saving to the same file name.\n"
    "It is also possible this file is corrupted. Saving the file again\n"
    "as desribed above will resolve this problem.";

}  // namespace

xercesc::InputSource* XMLOptionsHandler::resolveEntity(const XMLCh* const, const XMLCh* const systemId) {
  throw std::runtime_error("external entity refused: " + narrow(systemId));
}

void XMLOptionsHandler::startElement(const XMLCh* const name, xercesc::AttributeList& attributes) {
  if (++depth_ > kMaximumDepth) throw std::runtime_error("elements nested too deeply");
  const std::string element = narrow(name);
  if (element == "VERSION") {
    inVersion_ = true;
    versionSeen_ = true;
    if (attributes.getLength() == 0)
      Hexkit::throwHexkitError("VERSION tag in xml file is missing version and copyright attributes.");
    for (XMLSize_t i = 0; i < attributes.getLength(); ++i) {
      if (narrow(attributes.getName(i)) != "version") continue;
      const std::string value = narrow(attributes.getValue(i));
      unsigned parts[4] = {0, 0, 0, 0};
      if (std::sscanf(value.c_str(), "%u.%u.%u.%u", &parts[0], &parts[1], &parts[2], &parts[3]) != 4) {
        Hexkit::throwHexkitError("Invalid version attribute in VERSION tag of xml file: '" + value +
                                 "'.\nVersion attribute format should be <Major>.<Minor>.<BugFix>.<Patch>" +
                                 "'\nWhere Major, Minor, BugFix and Patch are unsigned decimal values.");
      }
      for (int part = 0; part < 4; ++part) formatVersion_[part] = parts[part];
    }
    return;
  }
  if (element == "RCVRNAME") {
    inReceiverName_ = true;
    receiverNameSeen_ = true;
    return;
  }
  currentId_ = static_cast<std::int32_t>(keyToId(element));
  currentOption_ = ChannelOptions();
}

void XMLOptionsHandler::characters(const XMLCh* const chars, const XMLSize_t length) {
  if (inVersion_) return;
  const std::string text = utf8(chars, length);
  if (inReceiverName_) {
    if (text != "SWO Trace") Hexkit::throwHexkitError("Invalid RCVRNAME tag value in xml file: '" + text + "'.");
    return;
  }
  if (currentId_ < 0 || currentId_ >= static_cast<std::int32_t>(kOptionUnknown)) return;
  const int row = rowIndexOf(static_cast<std::uint32_t>(currentId_));
  if (row < 0) return;
  // Rebuilt for every piece of text, so the last piece the parser delivers
  // is the value.
  currentOption_ = ChannelOptions(OptionTable()[row]);
  currentOption_.value = text;
}

void XMLOptionsHandler::endElement(const XMLCh* const name) {
  --depth_;
  const std::string element = narrow(name);
  if (element == "VERSION") {
    inVersion_ = false;
    return;
  }
  if (element == "RCVRNAME") {
    inReceiverName_ = false;
    return;
  }
  if (currentId_ < 0 || currentId_ >= static_cast<std::int32_t>(kOptionUnknown)) return;
  KV_LOG(1, KV_ORV::kLogMessage, "%s: adding option to list %s.", ChannelOptionsHandler::kTag,
         currentOption_.displayName.c_str());
  options_.push_back(currentOption_);
  currentId_ = kOptionUnknown;
}

OptionSet& XMLOptionsHandler::getOptions(OptionSet& set) const {
  set = options_;
  return set;
}

void XMLOptionsHandler::orderOptions() {
  OptionSet ordered;
  for (std::uint32_t id = 0; id < kOptionUnknown; ++id) {
    for (const ChannelOptions& option : options_) {
      if (option.id == id) ordered.push_back(option);
    }
  }
  options_ = std::move(ordered);
}

OptionSet& ChannelOptionsHandler::load(OptionSet& set, const std::string& filePath, std::uint32_t probeKind) {
  probeKind_ = probeKind;
  setProbeFamily(probeKind);
  if (filePath.empty()) {
    buildDefaultSet(options_, probeKind);
    set = options_;
    return set;
  }

  try {
    initializeXml();
  } catch (const xercesc::XMLException& e) {
    Hexkit::throwHexkitError("error during XML initialization" + firstByteText(e.getMessage()));
  }

  // Xerces exceptions live in Xerces memory: each is turned into text while
  // it is caught, and Xerces is terminated only after it is gone.
  XMLOptionsHandler handler;
  xercesc::SecurityManager securityManager;
  securityManager.setEntityExpansionLimit(kEntityExpansionLimit);
  std::string failure;
  cHexkitErrorIF::Severity_Type severity = cHexkitErrorIF::eSeverityError;
  {
    auto parser = std::make_unique<xercesc::SAXParser>();
    parser->setDocumentHandler(&handler);
    parser->setErrorHandler(&handler);
    // Security: the handler refuses every external entity and DTD, the
    // parser may not fetch one on its own either, and entity expansion is
    // bounded. Files without a DOCTYPE parse exactly as with the defaults.
    parser->setEntityResolver(&handler);
    parser->setDisableDefaultEntityResolution(true);
    parser->setSecurityManager(&securityManager);
    configureParser(*parser);
    try {
      parser->parse(filePath.c_str());
      if (parser->getErrorCount() != 0) {
        failure = "Recoverable errors were detected while parsing " + filePath;
        severity = cHexkitErrorIF::eSeverityRecoverable;
      }
    } catch (const xercesc::XMLException& e) {
      failure = "eerror during XML parsing" + firstByteText(e.getMessage());
    } catch (...) {
      failure = "Undefined exception occurred while parsing emulation setup file";
    }
  }
  xercesc::XMLPlatformUtils::Terminate();
  if (!failure.empty()) Hexkit::throwHexkitError(failure, severity);

  if (!handler.receiverNameSeen() || !handler.versionSeen()) Hexkit::throwHexkitError(kReceiverNameMissing);
  KV_LOG(1, KV_ORV::kLogMessage, "%s: returning parsed otions.", kTag);
  handler.orderOptions();
  return handler.getOptions(set);
}

void ChannelOptionsHandler::configureParser(xercesc::SAXParser&) {}

void ChannelOptionsHandler::initializeXml() { xercesc::XMLPlatformUtils::Initialize(); }

void ChannelOptionsHandler::save(const OptionSet& set, const std::string& filePath) {
  if (set.empty()) Hexkit::throwHexkitError("Invalid options to save.");
  if (filePath.empty()) Hexkit::throwHexkitError("No XML file specified to save options.");
  KV_ORV::uFile file;
  if (!file.open(filePath.c_str(), "w")) Hexkit::throwHexkitError("Cannot open file for writing.");

  // Values are written as they stand, markup characters included.
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  text += "<!-- This file defines how SWO Trace Control is available for a given configuration. -->\n";
  text += "<CHANNEL-SETUP>\n";
  text += std::string("\t<VERSION version=\"1.1.0.0\" Copyright=\"") + kCopyrightNotice + "\"></VERSION>\n";
  text += "\t<RCVRNAME>SWO Trace</RCVRNAME>\n";
  for (const ChannelOptions& option : set) {
    text += "\t<" + option.key + ">" + option.value + "</" + option.key + ">\n";
  }
  text += "</CHANNEL-SETUP>\n";
  file.writeText(text.c_str());
  file.close();
}

}  // namespace Kv::Orv::Trace::Vestrel
