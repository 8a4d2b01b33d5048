// The TDF writer when the file system lets it down: the length rewrite that
// ends each call stays buffered until the stream closes, so only the close
// tells whether it reached the file.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "FakeOsServices.h"
#include "TdfWriter.h"
#include "TestSupport.h"
#include "ThrownText.h"

using namespace Kv::Orv::Trace::Vestrel;
using vestrel_test::hexkitText;

namespace {

class TdfWriterFaultTest : public ::testing::Test {
 protected:
  void SetUp() override { std::ofstream(path(), std::ios::binary) << "TDF1"; }
  std::string path() const { return dir.file("trace.tdf"); }

  vestrel_test::ScratchDirectory dir;
  vestrel_test::FakeOsServices fake;
  KV_ORV::ScopedOsOverride override{fake};
};

}  // namespace

TEST_F(TdfWriterFaultTest, AnAppendWhoseLengthRewriteDoesNotReachTheFileFails) {
  std::uint32_t offset = 0;
  writeSectionHeader(path().c_str(), "BinTraceData", 1, offset);
  fake.closeStreamFails = true;
  std::uint32_t length = 0;
  int severity = 0;
  EXPECT_EQ(hexkitText([&] { writeSectionData(path().c_str(), "BinTraceData", offset, "12345678", 8, 1, length); },
                       &severity),
            "Write error - size of TDF header.");
  EXPECT_EQ(severity, 2);
  EXPECT_EQ(fake.streamsOpen(), 0);
}

TEST_F(TdfWriterFaultTest, AHeaderWhoseLengthRewriteDoesNotReachTheFileFails) {
  fake.closeStreamFails = true;
  std::uint32_t offset = 0;
  int severity = 0;
  EXPECT_EQ(hexkitText([&] { writeSectionHeader(path().c_str(), "BinTraceData", 1, offset); }, &severity),
            "Write error - size of TDF header.");
  EXPECT_EQ(severity, 2);
  EXPECT_EQ(fake.streamsOpen(), 0);
}

TEST_F(TdfWriterFaultTest, OnlyTheUpdateStreamsCloseIsChecked) {
  // The file-name check reads through probes that buffer nothing: a failing
  // close there loses nothing and fails nothing.
  std::uint32_t offset = 0, length = 0;
  fake.closeFailsForMode = "rb";
  writeSectionHeader(path().c_str(), "A", 1, offset);
  writeSectionData(path().c_str(), "A", offset, "12345678", 8, 1, length);
  EXPECT_EQ(length, 21u);
  EXPECT_EQ(fake.failedStreamCloses, 3);  // the header's probe, the append's two
  fake.closeFailsForMode = "r+b";
  EXPECT_EQ(hexkitText([&] { writeSectionData(path().c_str(), "A", offset, "12345678", 8, 1, length); }),
            "Write error - size of TDF header.");
  EXPECT_EQ(fake.failedStreamCloses, 4);
  EXPECT_EQ(fake.streamsOpen(), 0);
}

TEST_F(TdfWriterFaultTest, EveryStreamIsClosedOnEveryWayOut) {
  std::uint32_t offset = 0, length = 0;
  writeSectionHeader(path().c_str(), "A", 1, offset);
  EXPECT_EQ(fake.streamsOpen(), 0);
  writeSectionData(path().c_str(), "A", offset, "12345678", 8, 1, length);
  EXPECT_EQ(fake.streamsOpen(), 0);
  // Each failure after the file opened.
  EXPECT_EQ(hexkitText([&] { writeSectionData(path().c_str(), "A", 2, "12345678", 8, 1, length); }),
            "Section header offset to save data is not valid.");
  EXPECT_EQ(fake.streamsOpen(), 0);
  EXPECT_EQ(hexkitText([&] { writeSectionData(path().c_str(), "A", 10000, "12345678", 8, 1, length); }),
            "Write I/O error - unable to determine section length.");
  EXPECT_EQ(fake.streamsOpen(), 0);
  EXPECT_EQ(hexkitText([&] { writeSectionData(path().c_str(), "A", offset, "1", 1, 0x7FFFFFFF, length); }),
            "TDF file is too large: sections must end below 2 GiB.");
  EXPECT_EQ(fake.streamsOpen(), 0);
  EXPECT_EQ(hexkitText([&] { ensureSectionFits(path().c_str(), "A", 0x7FFFFFFF); }),
            "TDF file is too large: sections must end below 2 GiB.");
  EXPECT_EQ(fake.streamsOpen(), 0);
  EXPECT_GE(fake.closedStreams, 10);
}

TEST_F(TdfWriterFaultTest, AFileThatWillNotOpenForUpdateIsSaid) {
  fake.sharedOpenFailsForMode = "r+b";
  std::uint32_t offset = 0, length = 0;
  EXPECT_EQ(hexkitText([&] { writeSectionHeader(path().c_str(), "A", 1, offset); }),
            "Could not open TDF file as specified.");
  EXPECT_EQ(hexkitText([&] { writeSectionData(path().c_str(), "A", 4, "12345678", 8, 1, length); }),
            "Could not open TDF file as specified.");
  EXPECT_EQ(fake.streamsOpen(), 0);
  EXPECT_EQ(vestrel_test::readFile(path()), "TDF1");
}

// Every write refused: the header's first word, then the section's data;
// the file keeps what it held.
TEST_F(TdfWriterFaultTest, AWriteTheFileRefusesIsSaidAndNothingChanges) {
  std::uint32_t offset = 0, length = 0;
  writeSectionHeader(path().c_str(), "A", 1, offset);
  const std::string before = vestrel_test::readFile(path());
  fake.sharedWritesFailForMode = "r+b";
  EXPECT_EQ(hexkitText([&] { writeSectionHeader(path().c_str(), "B", 1, offset); }),
            "Write error -  TDF section header size.");
  EXPECT_EQ(hexkitText([&] { writeSectionData(path().c_str(), "A", 4, "12345678", 8, 1, length); }),
            "Write I/O error - unable to write section data.");
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(fake.streamsOpen(), 0);
  EXPECT_EQ(vestrel_test::readFile(path()), before);
}
