#include "BoardFile.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <new>
#include <string>
#include <vector>

#include "FakeOsServices.h"
#include "MemoryBound.h"
#include "ProcessResources.h"
#include "TestSupport.h"

using namespace Kv::Orv::Trace::Vestrel;

namespace {

class BoardFileTest : public ::testing::Test {
 protected:
  ProbeKind kindOf(const std::string& content) {
    write(content);
    std::FILE* file = std::fopen(path().c_str(), "r");
    const ProbeKind kind = ReadProbeKind(file);
    std::fclose(file);
    return kind;
  }
  bool entry(const std::string& content, const char* section, const char* key, const char* value) {
    write(content);
    std::FILE* file = std::fopen(path().c_str(), "r");
    const bool found = ReadBoardEntry(file, section, key, value);
    std::fclose(file);
    return found;
  }
  std::string path() const { return dir.file("board.txt"); }
  void write(const std::string& content) { std::ofstream(path(), std::ios::binary) << content; }
  vestrel_test::ScratchDirectory dir;
};

}  // namespace

TEST_F(BoardFileTest, CalderBeforeAHarrowProductIsCalder) {
  EXPECT_EQ(kindOf("$ calder\n  x=1\n$ product\n  name=Harrow\n"), kCalderProbe);
}

TEST_F(BoardFileTest, AHarrowProductBeforeCalderIsHarrow) {
  EXPECT_EQ(kindOf("$ product\n  name=Harrow\n$ calder\n"), kHarrowProbe);
}

TEST_F(BoardFileTest, AQuotedHarrowNameCounts) {
  EXPECT_EQ(kindOf("$ product\n  vendor=x\n  name = \"Harrow\"\n"), kHarrowProbe);
}

TEST_F(BoardFileTest, OnlyTheExactNameHarrowCounts) {
  EXPECT_EQ(kindOf("$ product\n  name=Harrow2\n"), kUnsupportedProbe);
  EXPECT_EQ(kindOf("$ product\n  name=harrow\n"), kUnsupportedProbe);
  EXPECT_EQ(kindOf("$ product\n  name=Harrow probe\n"), kHarrowProbe);
}

TEST_F(BoardFileTest, AProductWithoutANameLineEndsTheSearch) {
  EXPECT_EQ(kindOf("$ product\n  vendor=x\n"), kUnsupportedProbe);
  // The name search reads past later headers, so a calder section after a
  // nameless product is never seen.
  EXPECT_EQ(kindOf("$ product\n  vendor=x\n$ calder\n"), kUnsupportedProbe);
}

TEST_F(BoardFileTest, ANameLineWithoutEqualsGoesBackToLookingForHeaders) {
  EXPECT_EQ(kindOf("$ product\n  name Harrow\n$ calder\n"), kCalderProbe);
}

TEST_F(BoardFileTest, OtherProductNamesLeaveTheSearchGoing) {
  EXPECT_EQ(kindOf("$ product\n  name=Other\n$ product\n  name=Harrow\n"), kHarrowProbe);
}

TEST_F(BoardFileTest, OnlyDollarBlankStartsAHeader) {
  EXPECT_EQ(kindOf("$calder\n# calder\n calder\n"), kUnsupportedProbe);
  EXPECT_EQ(kindOf(""), kUnsupportedProbe);
  EXPECT_EQ(kindOf("$ calder_more\n"), kUnsupportedProbe);
  EXPECT_EQ(kindOf("$ calder extra words\n"), kCalderProbe);
  EXPECT_EQ(kindOf("$ calder"), kCalderProbe);
}

TEST_F(BoardFileTest, SectionNamesAreCutAt31Characters) {
  EXPECT_EQ(kindOf("$ " + std::string(31, 'x') + "calder\n"), kUnsupportedProbe);
  EXPECT_EQ(kindOf("$ calder\r\n"), kCalderProbe);
}

TEST_F(BoardFileTest, AnEntryInItsSectionIsFound) {
  EXPECT_TRUE(entry("$ swd\n  swd_debug=enabled\n  swo_data=tdo_pin\n", "swd", "swo_data", "tdo_pin"));
  EXPECT_TRUE(entry("$ swd\n\tswo_data=tdo_pin\n", "swd", "swo_data", "tdo_pin"));
}

TEST_F(BoardFileTest, TheEntrySearchRunsOnPastItsSection) {
  EXPECT_TRUE(entry("$ swd\n  swd_debug=enabled\n$ jtag\n  swo_data=tdo_pin\n", "swd", "swo_data", "tdo_pin"));
}

TEST_F(BoardFileTest, AnEntryBeforeTheSectionIsNotFound) {
  EXPECT_FALSE(entry("$ jtag\n  swo_data=tdo_pin\n$ swd\n  other=1\n", "swd", "swo_data", "tdo_pin"));
  EXPECT_FALSE(entry("  swo_data=tdo_pin\n", "swd", "swo_data", "tdo_pin"));
}

TEST_F(BoardFileTest, BlanksAroundEqualsMakeTheLineNotMatch) {
  EXPECT_FALSE(entry("$ swd\n  swo_data = tdo_pin\n", "swd", "swo_data", "tdo_pin"));
  EXPECT_FALSE(entry("$ swd\n  swo_data =tdo_pin\n", "swd", "swo_data", "tdo_pin"));
  EXPECT_FALSE(entry("$ swd\n  swo_data= tdo_pin\n", "swd", "swo_data", "tdo_pin"));
}

TEST_F(BoardFileTest, ValuesAndSectionsCompareAsPrefixes) {
  EXPECT_TRUE(entry("$ swd\n  swo_data=tdo_pin_and_more\n", "swd", "swo_data", "tdo_pin"));
  EXPECT_TRUE(entry("$ swd_extra\n  swo_data=tdo_pin\n", "swd", "swo_data", "tdo_pin"));
  EXPECT_FALSE(entry("$ swd\n  swo_data=tdo\n", "swd", "swo_data", "tdo_pin"));
  EXPECT_FALSE(entry("$ swd\n  swo_data_x=tdo_pin\n", "swd", "swo_data", "tdo_pin"));
}

TEST_F(BoardFileTest, UnindentedLinesAreIgnoredInTheEntrySearch) {
  EXPECT_FALSE(entry("$ swd\nswo_data=tdo_pin\n", "swd", "swo_data", "tdo_pin"));
}

TEST_F(BoardFileTest, AVeryLongLineIsReadInPiecesWithoutHarm) {
  EXPECT_TRUE(
      entry("$ swd\n  other=" + std::string(40000, 'v') + "\n  swo_data=tdo_pin\n", "swd", "swo_data", "tdo_pin"));
}

TEST_F(BoardFileTest, AnOverlongLineCostsNoMoreMemoryThanTheLineBuffer) {
  vestrel_test::writeOverlongLine(path(), "$ swd\n  other=", 64, 'v', "\n  swo_data=tdo_pin\n");
  vestrel_test::expectReadWithin(16u << 20, [&] {
    std::FILE* file = std::fopen(path().c_str(), "r");
    return file != nullptr && ReadBoardEntry(file, "swd", "swo_data", "tdo_pin");
  });
}

// The board file is opened and closed around its parser, whichever way the
// parser leaves.
class BoardFileSessionTest : public BoardFileTest {
 protected:
  vestrel_test::FakeOsServices fake;
  KV_ORV::ScopedOsOverride override{fake};
};

TEST_F(BoardFileSessionTest, AParserThatReturnsHasTheFileClosedAfterIt) {
  write("$ calder\n");
  ProbeKind kind = kUnsupportedProbe;
  EXPECT_TRUE(ParseBoardFile(path(), [&](std::FILE* file) { kind = ReadProbeKind(file); }));
  EXPECT_EQ(kind, kCalderProbe);
  EXPECT_EQ(fake.openedStreams, std::vector<std::string>{path() + " (r)"});
  EXPECT_EQ(fake.closedStreams, 1);
  EXPECT_EQ(fake.streamsOpen(), 0);
}

TEST_F(BoardFileSessionTest, AParserThatThrowsHasTheFileClosedAndItsExceptionPassedOn) {
  write("$ calder\n");
  const std::size_t handlesBefore = vestrel_test::handleCount();
  for (int i = 0; i < 20; ++i) {
    EXPECT_THROW(ParseBoardFile(path(), [](std::FILE*) { throw std::bad_alloc(); }), std::bad_alloc);
  }
  EXPECT_EQ(fake.openedStreams.size(), 20u);
  EXPECT_EQ(fake.closedStreams, 20);
  EXPECT_EQ(fake.streamsOpen(), 0);
  // The system agrees: twenty leaked streams would hold twenty handles.
  EXPECT_EQ(vestrel_test::handleCount(), handlesBefore);
}

TEST_F(BoardFileSessionTest, AFileThatDoesNotOpenIsSkippedWithNothingToClose) {
  bool parsed = false;
  EXPECT_FALSE(ParseBoardFile(dir.file("missing.txt"), [&](std::FILE*) { parsed = true; }));
  EXPECT_FALSE(parsed);
  EXPECT_EQ(fake.openedStreams, std::vector<std::string>{dir.file("missing.txt") + " (r) failed"});
  EXPECT_EQ(fake.closedStreams, 0);
}
