// The options file trusts nothing it did not write: no external entity or
// DTD is read or fetched, entity expansion and nesting are bounded.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "XmlOptionsFixture.h"

#include "LoopbackListener.h"

using namespace vestrel_test;

TEST_F(XmlOptionsTest, AnExternalEntityIsRefusedAndItsFileNeverRead) {
  file("SECRET", "secret.txt");
  int severity = 0;
  EXPECT_EQ(
      loadFailure(file("<?xml version=\"1.0\"?>\n<!DOCTYPE CHANNEL-SETUP [<!ENTITY secret SYSTEM \"secret.txt\">]>\n"
                       "<CHANNEL-SETUP><VERSION version=\"1.1.0.0\"/><RCVRNAME>SWO Trace</RCVRNAME>"
                       "<CLKFREQVAL>&secret;</CLKFREQVAL></CHANNEL-SETUP>"),
                  &severity),
      kUndefined);
  EXPECT_EQ(severity, 2);
}

TEST_F(XmlOptionsTest, AnExternalParameterEntityIsRefused) {
  file("<!ENTITY secret \"SECRET\">", "secret.ent");
  EXPECT_EQ(
      loadFailure(file("<?xml version=\"1.0\"?>\n<!DOCTYPE CHANNEL-SETUP [<!ENTITY % p SYSTEM \"secret.ent\"> %p;]>\n"
                       "<CHANNEL-SETUP><VERSION version=\"1.1.0.0\"/><RCVRNAME>SWO Trace</RCVRNAME>"
                       "<CLKFREQVAL>&secret;</CLKFREQVAL></CHANNEL-SETUP>")),
      kUndefined);
}

TEST_F(XmlOptionsTest, AnExternalDtdIsNeverFetched) {
  vestrel_test::LoopbackListener server;
  const std::string url = "http://127.0.0.1:" + std::to_string(server.port()) + "/options.dtd";
  EXPECT_EQ(loadFailure(file("<?xml version=\"1.0\"?>\n<!DOCTYPE CHANNEL-SETUP SYSTEM \"" + url + "\">\n" +
                             "<CHANNEL-SETUP><VERSION version=\"1.1.0.0\"/><RCVRNAME>SWO Trace</RCVRNAME>"
                             "<ENCTYPE>UART</ENCTYPE></CHANNEL-SETUP>")),
            kUndefined);
  EXPECT_EQ(server.connections(), 0);
}

TEST_F(XmlOptionsTest, AnEntityExpansionBombEndsAtTheBound) {
  std::string doctype = "<!DOCTYPE CHANNEL-SETUP [<!ENTITY a0 \"lol\">";
  for (int level = 1; level <= 9; ++level) {
    doctype += "<!ENTITY a" + std::to_string(level) + " \"";
    for (int i = 0; i < 10; ++i) doctype += "&a" + std::to_string(level - 1) + ";";
    doctype += "\">";
  }
  doctype += "]>\n";
  int severity = 0;
  EXPECT_EQ(loadFailure(file("<?xml version=\"1.0\"?>\n" + doctype +
                             "<CHANNEL-SETUP><VERSION version=\"1.1.0.0\"/><RCVRNAME>SWO Trace</RCVRNAME>"
                             "<CLKFREQVAL>&a9;</CLKFREQVAL></CHANNEL-SETUP>"),
                        &severity),
            kUndefined);
  EXPECT_EQ(severity, 2);
}

TEST_F(XmlOptionsTest, AnInternalEntityWithinTheBoundStillExpands) {
  const auto set =
      load(file("<?xml version=\"1.0\"?>\n<!DOCTYPE CHANNEL-SETUP [<!ENTITY uart \"UART\">]>\n"
                "<CHANNEL-SETUP><VERSION version=\"1.1.0.0\"/><RCVRNAME>SWO Trace</RCVRNAME>"
                "<ENCTYPE>&uart;</ENCTYPE></CHANNEL-SETUP>"));
  EXPECT_EQ(keysOf(set), Strings{"ENCTYPE=UART"});
}

TEST_F(XmlOptionsTest, NestingBeyondTheBoundEndsTheParse) {
  auto nested = [](int depth) {
    std::string open;
    std::string close;
    for (int i = 2; i < depth; ++i) {
      open += "<X>";
      close += "</X>";
    }
    return "<CHANNEL-SETUP><VERSION version=\"1.1.0.0\"/><RCVRNAME>SWO Trace</RCVRNAME>" + open +
           "<ENCTYPE>UART</ENCTYPE>" + close + "</CHANNEL-SETUP>";
  };
  EXPECT_EQ(keysOf(load(file(nested(XMLOptionsHandler::kMaximumDepth), "deep.xml"))), Strings{"ENCTYPE=UART"});
  EXPECT_EQ(loadFailure(file(nested(XMLOptionsHandler::kMaximumDepth + 1), "deeper.xml")), kUndefined);
  EXPECT_EQ(loadFailure(file(nested(100000), "deepest.xml")), kUndefined);
}
