#include "TdfWriter.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "TestSupport.h"
#include "ThrownText.h"

using namespace Kv::Orv::Trace::Vestrel;
using vestrel_test::hexkitText;
using vestrel_test::readFile;

namespace {

std::string word(std::uint32_t value) {
  return std::string{static_cast<char>(value), static_cast<char>(value >> 8), static_cast<char>(value >> 16),
                     static_cast<char>(value >> 24)};
}

class TdfWriterTest : public ::testing::Test {
 protected:
  void SetUp() override { std::ofstream(path(), std::ios::binary) << std::string(100, 'H'); }
  std::string path() const { return dir.file("trace.tdf"); }
  vestrel_test::ScratchDirectory dir;
};

}  // namespace

TEST_F(TdfWriterTest, AHeaderIsAppendedAtTheEndOfTheFile) {
  std::uint32_t offset = 99;
  writeSectionHeader(path().c_str(), "BinTraceData", 1, offset);
  EXPECT_EQ(offset, 100u);
  EXPECT_EQ(readFile(path()), std::string(100, 'H') + word(24) + word(1) + word(12) + "BinTraceData");
}

TEST_F(TdfWriterTest, DataIsAppendedAndTheLengthRewrittenAfterEachChunk) {
  std::uint32_t offset = 0;
  writeSectionHeader(path().c_str(), "BinTraceData", 1, offset);
  const std::string first(16, 'a');
  const std::string second(16, 'b');
  std::uint32_t length = 0;
  writeSectionData(path().c_str(), "ignored", offset, first.data(), 8, 2, length);
  EXPECT_EQ(length, 40u);
  EXPECT_EQ(readFile(path()).substr(100, 4), word(40));
  writeSectionData(path().c_str(), nullptr, offset, second.data(), 8, 2, length);
  EXPECT_EQ(length, 56u);
  EXPECT_EQ(readFile(path()), std::string(100, 'H') + word(56) + word(1) + word(12) + "BinTraceData" + first + second);
}

TEST_F(TdfWriterTest, AZeroElementAppendKeepsTheLength) {
  std::uint32_t offset = 0, length = 7;
  writeSectionHeader(path().c_str(), "BinTraceData", 1, offset);
  const char none = 0;
  writeSectionData(path().c_str(), "BinTraceData", offset, &none, 8, 0, length);
  EXPECT_EQ(length, 24u);
}

TEST_F(TdfWriterTest, AHeaderWithoutANameIsTwelveBytes) {
  std::uint32_t offset = 0;
  writeSectionHeader(path().c_str(), nullptr, 7, offset);
  EXPECT_EQ(readFile(path()).substr(100), word(12) + word(7) + word(0));
}

TEST_F(TdfWriterTest, TwoSectionsFollowOneAnother) {
  std::uint32_t first = 0, second = 0, length = 0;
  writeSectionHeader(path().c_str(), "A", 1, first);
  const std::string payload = "12345678";
  writeSectionData(path().c_str(), "A", first, payload.data(), 8, 1, length);
  writeSectionHeader(path().c_str(), "BB", 2, second);
  EXPECT_EQ(second, 100u + 13 + 8);
  EXPECT_EQ(readFile(path()).substr(100),
            word(21) + word(1) + word(1) + "A" + payload + word(14) + word(2) + word(2) + "BB");
}

TEST_F(TdfWriterTest, OffsetsBelowFourAreRefusedWithoutWriting) {
  const std::string before = readFile(path());
  for (std::uint32_t offset : {0u, 1u, 2u, 3u}) {
    std::uint32_t length = 5;
    int severity = 0;
    EXPECT_EQ(hexkitText([&] { writeSectionData(path().c_str(), "x", offset, "12345678", 8, 1, length); }, &severity),
              "Section header offset to save data is not valid.");
    EXPECT_EQ(severity, 2);
    EXPECT_EQ(length, 0u);
  }
  EXPECT_EQ(readFile(path()), before);
}

TEST_F(TdfWriterTest, AMissingFileIsRefusedAndNotCreated) {
  const std::string missing = dir.file("missing.tdf");
  std::uint32_t offset = 1;
  EXPECT_EQ(hexkitText([&] { writeSectionHeader(missing.c_str(), "x", 1, offset); }),
            "File name passed to save file is not valid.");
  EXPECT_EQ(offset, 0u);
  std::uint32_t length = 1;
  EXPECT_EQ(hexkitText([&] { writeSectionData(missing.c_str(), "x", 100, "1", 1, 1, length); }),
            "File name passed to save file is not valid.");
  EXPECT_FALSE(vestrel_test::fileExists(missing));
  EXPECT_EQ(hexkitText([&] { writeSectionHeader("", "x", 1, offset); }), "File name passed to save file is not valid.");
  EXPECT_EQ(hexkitText([&] { writeSectionHeader(nullptr, "x", 1, offset); }),
            "File name passed to save file is not valid.");
}

TEST_F(TdfWriterTest, NoDataIsRefused) {
  std::uint32_t length = 0;
  EXPECT_EQ(hexkitText([&] { writeSectionData(path().c_str(), "x", 100, nullptr, 8, 1, length); }),
            "No data to write TDF.");
}

TEST_F(TdfWriterTest, ASectionOffsetPastTheEndCannotBeRead) {
  std::uint32_t length = 0;
  EXPECT_EQ(hexkitText([&] { writeSectionData(path().c_str(), "x", 98, "12345678", 8, 1, length); }),
            "Write I/O error - unable to determine section length.");
}

TEST(TdfSectionFit, ASectionThatEndsJustBelowTwoGigabytesFitsAndOneSampleMoreDoesNot) {
  vestrel_test::ScratchDirectory dir;
  // 8-byte file head + 24-byte header + data = 2^31 - 8 bytes: below the limit.
  const std::uint64_t data = (std::uint64_t{1} << 31) - 8 - 8 - 24;
  const std::string tdf = dir.file("edge.tdf");
  std::ofstream(tdf, std::ios::binary) << "TDF1host";
  EXPECT_NO_THROW(ensureSectionFits(tdf.c_str(), "BinTraceData", data));
  EXPECT_EQ(hexkitText([&] { ensureSectionFits(tdf.c_str(), "BinTraceData", data + 8); }),
            "TDF file is too large: sections must end below 2 GiB.");
  // A file that is not there yet counts as empty.
  EXPECT_NO_THROW(ensureSectionFits(dir.file("none.tdf").c_str(), "BinTraceData", data + 8));
  EXPECT_EQ(readFile(tdf), "TDF1host");
}
