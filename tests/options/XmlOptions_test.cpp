#include "XmlOptions.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "XmlOptionsFixture.h"

#include "LoopbackListener.h"
#include "TestLog.h"

using namespace vestrel_test;

TEST_F(XmlOptionsTest, SaveWritesTheFileExactly) {
  OptionSet set;
  buildDefaultSet(set, 2);
  set[5].value = "48000000";
  ChannelOptionsHandler handler;
  handler.save(set, dir.file("saved.xml"));
  const std::string n = textNewline();
  const std::string expected =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + n +
      "<!-- This file defines how SWO Trace Control is available for a given configuration. -->" + n +
      "<CHANNEL-SETUP>" + n +
      "\t<VERSION version=\"1.1.0.0\" Copyright=\"Vestrel SWO trace receiver options\"></VERSION>" + n +
      "\t<RCVRNAME>SWO Trace</RCVRNAME>" + n + "\t<RCVRFWVER></RCVRFWVER>" + n + "\t<ENCTYPE>UART</ENCTYPE>" + n +
      "\t<PRESCALAR>Auto</PRESCALAR>" + n + "\t<PRESCALARVAL>Prescalar value</PRESCALARVAL>" + n +
      "\t<CLKFREQ>Auto</CLKFREQ>" + n + "\t<CLKFREQVAL>48000000</CLKFREQVAL>" + n + "\t<COMPORT></COMPORT>" + n +
      "\t<TSPRESCALAR>4</TSPRESCALAR>" + n + "</CHANNEL-SETUP>" + n;
  EXPECT_EQ(readFile(dir.file("saved.xml")), expected);
}

TEST_F(XmlOptionsTest, ASavedFullSetLoadsBackIntoTheSameRecords) {
  devices.names = {L"Calder Serial Port (COM7)"};
  OptionSet set;
  buildDefaultSet(set, 2);
  set[0].value = "V 1.0.0.9";
  set[2].value = "Manual";
  set[3].value = "11";
  set[4].value = "Manual";
  set[5].value = "72000000";
  set[6].value = "7";
  set[7].value = "16";
  ChannelOptionsHandler handler;
  handler.save(set, dir.file("round.xml"));
  const OptionSet back = load(dir.file("round.xml"));
  ASSERT_EQ(back.size(), 8u);
  for (const ChannelOptions& option : back) {
    const ChannelOptions& original = set[option.id];
    EXPECT_EQ(option.key, original.key);
    EXPECT_EQ(option.value, original.value);
    EXPECT_EQ(option.displayName, original.displayName);
    EXPECT_EQ(option.choices, original.choices);
    EXPECT_EQ(option.group, original.group);
  }
}

TEST_F(XmlOptionsTest, AFirmwareVersionWithTextRoundTrips) {
  OptionSet set;
  buildDefaultSet(set, 2);
  set[0].value = "V 2.0.0.5";
  ChannelOptionsHandler handler;
  handler.save(set, dir.file("fw.xml"));
  EXPECT_EQ(load(dir.file("fw.xml"))[0].value, "V 2.0.0.5");
}

TEST_F(XmlOptionsTest, AnEmptyPathGivesTheEightDefaults) {
  devices.names = {L"Harrow Class Auxiliary Data Port (COM3)", L"Calder Serial Port (COM2)"};
  const OptionSet set = load("", 1);
  ASSERT_EQ(set.size(), 8u);
  EXPECT_EQ(set[6].choices, Strings{"3"});
  EXPECT_EQ(set[7].value, "4");
  EXPECT_EQ(set[3].value, "Prescalar value");
}

TEST_F(XmlOptionsTest, OptionsComeBackOrderedByIdWithDuplicatesKept) {
  const auto set =
      load(file(std::string(kHeader) + "\t<TSPRESCALAR>16</TSPRESCALAR>\n\t<CLKFREQ>Manual</CLKFREQ>\n\t<FOO>1</FOO>\n"
                                       "\t<ENCTYPE>UART</ENCTYPE>\n\t<CLKFREQ>Auto</CLKFREQ>\n</CHANNEL-SETUP>\n"));
  EXPECT_EQ(keysOf(set), (Strings{"ENCTYPE=UART", "CLKFREQ=Manual", "CLKFREQ=Auto", "TSPRESCALAR=16"}));
}

TEST_F(XmlOptionsTest, TheLoaderDoesNotMergeWithTheDefaults) {
  const auto set = load(file(std::string(kHeader) + "\t<COMPORT>5</COMPORT>\n</CHANNEL-SETUP>\n"));
  EXPECT_EQ(keysOf(set), Strings{"COMPORT=5"});
}

TEST_F(XmlOptionsTest, ARecordIsBuiltFromItsTableRow) {
  devices.names = {L"Calder Serial Port (COM4)", L"Calder Serial Port (COM2)"};
  const auto set = load(file(std::string(kHeader) + "\t<COMPORT>9</COMPORT>\n</CHANNEL-SETUP>\n"), 0);
  ASSERT_EQ(set.size(), 1u);
  EXPECT_EQ(set[0].id, 6u);
  EXPECT_EQ(set[0].displayName, "COM Port Number");
  EXPECT_EQ(set[0].choices, (Strings{"2", "4"}));
  EXPECT_EQ(set[0].value, "9");
  EXPECT_EQ(set[0].probeKind, 0u);
}

TEST_F(XmlOptionsTest, AnElementWithoutTextAddsNoRecord) {
  const auto set = load(file(std::string(kHeader) + "\t<ENCTYPE></ENCTYPE>\n\t<CLKFREQ/>\n</CHANNEL-SETUP>\n"));
  EXPECT_TRUE(set.empty());
}

TEST_F(XmlOptionsTest, TextSplitByTheParserKeepsItsLastPiece) {
  const auto set = load(file(std::string(kHeader) + "\t<CLKFREQVAL>12&amp;34</CLKFREQVAL>\n</CHANNEL-SETUP>\n"));
  ASSERT_EQ(set.size(), 1u);
  EXPECT_EQ(set[0].value, "&34");
}

TEST_F(XmlOptionsTest, EntitiesInElementTextAreResolved) {
  const auto set =
      load(file(std::string(kHeader) + "\t<ENCTYPE>&lt;</ENCTYPE>\n\t<COMPORT>&#55;</COMPORT>\n</CHANNEL-SETUP>\n"));
  EXPECT_EQ(keysOf(set), (Strings{"ENCTYPE=<", "COMPORT=7"}));
}

TEST_F(XmlOptionsTest, AVeryLongValueIsKeptWhole) {
  const std::string value(100000, '9');
  const auto set = load(file(std::string(kHeader) + "\t<CLKFREQVAL>" + value + "</CLKFREQVAL>\n</CHANNEL-SETUP>\n"));
  ASSERT_EQ(set.size(), 1u);
  EXPECT_EQ(set[0].value, value);
}

TEST_F(XmlOptionsTest, NonAsciiValuesRoundTrip) {
  OptionSet set;
  buildDefaultSet(set, 2);
  set[0].value = "V\xc3\xa9 1.0.0.9";
  ChannelOptionsHandler handler;
  handler.save(set, dir.file("utf8.xml"));
  EXPECT_EQ(load(dir.file("utf8.xml"))[0].value, "V\xc3\xa9 1.0.0.9");
}

TEST_F(XmlOptionsTest, AnyFourPartVersionIsAccepted) {
  const auto set =
      load(file("<CHANNEL-SETUP><VERSION version=\"9.9.9.9\" Copyright=\"x\"></VERSION>"
                "<RCVRNAME>SWO Trace</RCVRNAME><ENCTYPE>UART</ENCTYPE></CHANNEL-SETUP>"));
  EXPECT_EQ(keysOf(set), Strings{"ENCTYPE=UART"});
}

TEST_F(XmlOptionsTest, AFileWithReceiverNameButNoVersionFails) {
  int severity = 0;
  EXPECT_EQ(loadFailure(file("<CHANNEL-SETUP><RCVRNAME>SWO Trace</RCVRNAME></CHANNEL-SETUP>"), &severity),
            kReceiverNameMissing);
  EXPECT_EQ(severity, 2);
}

TEST_F(XmlOptionsTest, AFileWithVersionButNoReceiverNameFails) {
  EXPECT_EQ(loadFailure(file("<CHANNEL-SETUP><VERSION version=\"1.1.0.0\"/></CHANNEL-SETUP>")), kReceiverNameMissing);
}

TEST_F(XmlOptionsTest, AShortVersionReachesTheCallerAsUndefined) {
  int severity = 0;
  EXPECT_EQ(loadFailure(file("<CHANNEL-SETUP><VERSION version=\"1.1\"/><RCVRNAME>SWO Trace</RCVRNAME></CHANNEL-SETUP>"),
                        &severity),
            kUndefined);
  EXPECT_EQ(severity, 2);
}

TEST_F(XmlOptionsTest, AVersionWithoutAttributesReachesTheCallerAsUndefined) {
  EXPECT_EQ(loadFailure(file("<CHANNEL-SETUP><VERSION/><RCVRNAME>SWO Trace</RCVRNAME></CHANNEL-SETUP>")), kUndefined);
}

TEST_F(XmlOptionsTest, TheReceiverNameIsCaseSensitive) {
  EXPECT_EQ(
      loadFailure(file("<CHANNEL-SETUP><VERSION version=\"1.1.0.0\"/><RCVRNAME>swo trace</RCVRNAME></CHANNEL-SETUP>")),
      kUndefined);
}

TEST_F(XmlOptionsTest, MalformedEmptyAndMissingFilesAreUndefined) {
  EXPECT_EQ(loadFailure(file("", "empty.xml")), kUndefined);
  EXPECT_EQ(loadFailure(file("not xml at all", "text.xml")), kUndefined);
  EXPECT_EQ(loadFailure(dir.file("missing.xml")), kUndefined);
  EXPECT_EQ(loadFailure(file(std::string(kHeader) + "<ENCTYPE>UART</ENCTYPE>", "unclosed.xml")), kUndefined);
}

TEST_F(XmlOptionsTest, AnUnescapedValueIsWrittenAsItStandsAndDoesNotLoad) {
  OptionSet set;
  buildDefaultSet(set, 2);
  set[5].value = "a<b&c";
  ChannelOptionsHandler handler;
  handler.save(set, dir.file("raw.xml"));
  EXPECT_NE(readFile(dir.file("raw.xml")).find("\t<CLKFREQVAL>a<b&c</CLKFREQVAL>"), std::string::npos);
  EXPECT_EQ(loadFailure(dir.file("raw.xml")), kUndefined);
}

TEST_F(XmlOptionsTest, AnInternalDtdIsReadWithoutValidation) {
  const auto set =
      load(file("<?xml version=\"1.0\"?>\n<!DOCTYPE CHANNEL-SETUP [<!ELEMENT CHANNEL-SETUP EMPTY>"
                "<!ENTITY port \"12\">]>\n<CHANNEL-SETUP><VERSION version=\"1.1.0.0\"/>"
                "<RCVRNAME>SWO Trace</RCVRNAME><COMPORT>&port;</COMPORT></CHANNEL-SETUP>"));
  EXPECT_EQ(keysOf(set), Strings{"COMPORT=12"});
}

TEST_F(XmlOptionsTest, AnExternalDtdThatCannotBeOpenedIsUndefined) {
  EXPECT_EQ(loadFailure(file("<?xml version=\"1.0\"?>\n<!DOCTYPE CHANNEL-SETUP SYSTEM \"nowhere.dtd\">\n"
                             "<CHANNEL-SETUP/>")),
            kUndefined);
}

TEST_F(XmlOptionsTest, SaveRefusesAnEmptySetBeforeLookingAtThePath) {
  ChannelOptionsHandler handler;
  auto failure = [&](const OptionSet& set, const std::string& path) -> std::string {
    try {
      handler.save(set, path);
    } catch (const cHexkitError& e) {
      EXPECT_EQ(e.GetSeverity(), 2);
      return e.GetMessage();
    }
    return "<saved>";
  };
  EXPECT_EQ(failure({}, ""), "Invalid options to save.");
  OptionSet set;
  buildDefaultSet(set, 2);
  EXPECT_EQ(failure(set, ""), "No XML file specified to save options.");
  EXPECT_EQ(failure(set, dir.file("missing") + vestrel_test::sep() + "x.xml"), "Cannot open file for writing.");
}

TEST_F(XmlOptionsTest, LoadingLogsEachOptionAndTheReturn) {
  vestrel_test::TestLog log("1");
  load(file(std::string(kHeader) + "\t<ENCTYPE>UART</ENCTYPE>\n\t<COMPORT>3</COMPORT>\n</CHANNEL-SETUP>\n"));
  EXPECT_EQ(log.linesStartingWith("Vestrel_XmlOptions"),
            (Strings{"Vestrel_XmlOptions: adding option to list Encoding Type.",
                     "Vestrel_XmlOptions: adding option to list COM Port Number.",
                     "Vestrel_XmlOptions: returning parsed otions."}));
}

TEST_F(XmlOptionsTest, LoadingWritesTheProbeFamilyIntoTheTable) {
  load(file(std::string(kHeader) + "</CHANNEL-SETUP>\n"), 1);
  for (int row = 0; row < kOptionTableRows; ++row) EXPECT_EQ(OptionTable()[row].probeKind, 1u);
}

TEST_F(XmlOptionsTest, RepeatedLoadsInitialiseAndTerminateTheParserEachTime) {
  const std::string path = file(std::string(kHeader) + "\t<ENCTYPE>UART</ENCTYPE>\n</CHANNEL-SETUP>\n");
  for (int i = 0; i < 5; ++i) EXPECT_EQ(load(path).size(), 1u);
  EXPECT_EQ(loadFailure(file("bad", "bad.xml")), kUndefined);
  EXPECT_EQ(load(path).size(), 1u);
}

// --- files that try to read, fetch or expand more than they hold ----------------------
