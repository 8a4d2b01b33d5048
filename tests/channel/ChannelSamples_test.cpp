#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "ChannelDriver.h"
#include "FakeOsServices.h"
#include "FakeTraceInterface.h"
#include "TestLog.h"
#include "ThrownText.h"

using Kv::Orv::Trace::CReceiver;
using Kv::Orv::Trace::Vestrel::ChannelDriver;
using vestrel_test::hexkitText;
using vestrel_test::readFile;

namespace {

CReceiver* const kOwner = reinterpret_cast<CReceiver*>(0x1000);

std::string word(std::uint32_t value) {
  return std::string{static_cast<char>(value), static_cast<char>(value >> 8), static_cast<char>(value >> 16),
                     static_cast<char>(value >> 24)};
}

std::string bytesOf(std::size_t size) {
  std::string data(size, '\0');
  for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * 31 + 7);
  return data;
}

class ChannelSamplesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(dir.file("data"));
    driver = std::make_unique<ChannelDriver>(kOwner, "Probe1/CortexM4", &trace, 7, 0);
  }
  void capture(const std::string& bytes) { std::ofstream(driver->captureFilePath(), std::ios::binary) << bytes; }
  std::string padded(const std::string& bytes) { return bytes + std::string((8 - bytes.size() % 8) % 8, '\0'); }

  vestrel_test::TestLog log{"3"};
  vestrel_test::ScratchDirectory dir;
  vestrel_test::ScopedEnv loggingDir{"KV_TRACE_LOGGING_DIR", dir.path()};
  vestrel_test::FakeTraceInterface trace;
  std::unique_ptr<ChannelDriver> driver;
};

}  // namespace

TEST_F(ChannelSamplesTest, AMissingCaptureHasNoSamplesAndReadsAreOutOfRange) {
  EXPECT_EQ(driver->GetNumSamples(), 0u);
  std::uint64_t buffer[4] = {1, 2, 3, 4};
  std::uint32_t numRead = 9;
  EXPECT_EQ(driver->SeekReadTraceData(0, 4, buffer, &numRead), 0u);
  EXPECT_EQ(numRead, 0u);
  EXPECT_EQ(log.linesStartingWith("Vestrel_ChannelDriver"),
            (std::vector<std::string>{"Vestrel_ChannelDriver: GetNumSamples retrieved 0 samples",
                                      "Vestrel_ChannelDriver: SeekReadTraceData start sample = 0, num samples "
                                      "requested = 4",
                                      "Vestrel_ChannelDriver: seek read start sample out of range"}));
}

TEST_F(ChannelSamplesTest, ThirteenBytesAreTwoSamplesTheSecondZeroPadded) {
  const std::string data = bytesOf(13);
  capture(data);
  EXPECT_EQ(driver->GetNumSamples(), 2u);
  std::uint64_t buffer[2] = {~0ull, ~0ull};
  std::uint32_t numRead = 0;
  EXPECT_EQ(driver->SeekReadTraceData(0, 2, buffer, &numRead), 2u);
  EXPECT_EQ(numRead, 2u);
  std::string back(16, '\0');
  std::memcpy(back.data(), buffer, 16);
  EXPECT_EQ(back, padded(data));
}

TEST_F(ChannelSamplesTest, AReadNearTheEndIsCutToWhatIsThere) {
  capture(bytesOf(80));
  std::uint64_t buffer[10] = {};
  std::uint32_t numRead = 0;
  EXPECT_EQ(driver->SeekReadTraceData(9, 10, buffer, &numRead), 1u);
  std::string back(8, '\0');
  std::memcpy(back.data(), buffer, 8);
  EXPECT_EQ(back, bytesOf(80).substr(72));
}

TEST_F(ChannelSamplesTest, ASampleIsReadFromItsPosition) {
  capture(bytesOf(64));
  std::uint64_t sample = 0;
  std::uint32_t numRead = 0;
  EXPECT_EQ(driver->SeekReadTraceData(3, 1, &sample, &numRead), 1u);
  std::uint64_t expected = 0;
  std::memcpy(&expected, bytesOf(64).data() + 24, 8);
  EXPECT_EQ(sample, expected);
}

TEST_F(ChannelSamplesTest, ZeroSamplesRequestedTouchesNothing) {
  capture(bytesOf(64));
  std::uint64_t sentinel = 0x1122334455667788ull;
  std::uint32_t numRead = 5;
  EXPECT_EQ(driver->SeekReadTraceData(2, 0, &sentinel, &numRead), 0u);
  EXPECT_EQ(numRead, 0u);
  EXPECT_EQ(sentinel, 0x1122334455667788ull);
}

TEST_F(ChannelSamplesTest, BinaryExportIsTheCaptureRoundedUpWithZeros) {
  const std::string data = bytesOf(13);
  capture(data);
  driver->SaveToFile(dir.file("dump.bin"), 2);
  EXPECT_EQ(readFile(dir.file("dump.bin")), padded(data));
}

TEST_F(ChannelSamplesTest, ALargeBinaryExportGoesInChunksAndStaysExact) {
  const std::string data = bytesOf(20000 * 8 + 5);
  capture(data);
  std::ofstream(dir.file("dump.bin"), std::ios::binary) << "old content";
  driver->SaveToFile(dir.file("dump.bin"), 2);
  EXPECT_EQ(readFile(dir.file("dump.bin")), padded(data));
}

TEST_F(ChannelSamplesTest, TdfExportAppendsOneBinTraceDataSection) {
  const std::string data = bytesOf(20000 * 8 + 5);
  capture(data);
  const std::string tdf = dir.file("trace.tdf");
  std::ofstream(tdf, std::ios::binary) << "TDF1host";
  driver->SaveToFile(tdf, 0);
  const std::string body = padded(data);
  EXPECT_EQ(readFile(tdf), "TDF1host" + word(static_cast<std::uint32_t>(24 + body.size())) + word(1) + word(12) +
                               "BinTraceData" + body);
}

TEST_F(ChannelSamplesTest, AnEmptyCaptureExportsAnEmptyFileOrAnEmptySection) {
  capture("");
  driver->SaveToFile(dir.file("empty.bin"), 2);
  EXPECT_TRUE(vestrel_test::fileExists(dir.file("empty.bin")));  // made, though empty
  EXPECT_EQ(readFile(dir.file("empty.bin")), "");
  const std::string tdf = dir.file("empty.tdf");
  std::ofstream(tdf, std::ios::binary) << "TDF1";
  driver->SaveToFile(tdf, 1);
  EXPECT_EQ(readFile(tdf), "TDF1" + word(24) + word(1) + word(12) + "BinTraceData");
}

TEST_F(ChannelSamplesTest, ATdfExportWhoseLastLengthRewriteDoesNotReachTheFileFails) {
  capture(bytesOf(20000 * 8));
  const std::string tdf = dir.file("trace.tdf");
  std::ofstream(tdf, std::ios::binary) << "TDF1";
  vestrel_test::FakeOsServices fake;
  KV_ORV::ScopedOsOverride override{fake};
  fake.closeFailsForMode = "r+b";
  int severity = 0;
  EXPECT_EQ(hexkitText([&] { driver->SaveToFile(tdf, 0); }, &severity), "Write error - size of TDF header.");
  EXPECT_EQ(severity, 2);
  EXPECT_EQ(fake.streamsOpen(), 0);
}

TEST_F(ChannelSamplesTest, ATdfFileTheHostNeverCreatedCannotTakeData) {
  capture(bytesOf(16));
  // The append test creates the file empty, so the section would start at 0.
  EXPECT_EQ(hexkitText([&] { driver->SaveToFile(dir.file("new.tdf"), 0); }),
            "Section header offset to save data is not valid.");
}

TEST_F(ChannelSamplesTest, ExportRefusesAnEmptyNameAndAnUnwritableFile) {
  capture(bytesOf(16));
  int severity = 0;
  EXPECT_EQ(hexkitText([&] { driver->SaveToFile("", 2); }, &severity), "Data cannot be saved to empty file");
  EXPECT_EQ(severity, 2);
  const std::string unwritable = dir.file("missing") + vestrel_test::sep() + "dump.bin";
  EXPECT_EQ(hexkitText([&] { driver->SaveToFile(unwritable, 2); }), "Could not open file");
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver : No such file or directory : " + unwritable));
}

TEST_F(ChannelSamplesTest, SamplesCanBeReadWhileAnotherWriterAppends) {
  capture(bytesOf(16));
  std::ofstream more(driver->captureFilePath(), std::ios::binary | std::ios::app);
  more << bytesOf(8);
  more.flush();
  EXPECT_EQ(driver->GetNumSamples(), 3u);
}

// Captures grow past 2 GiB at SWO rates within minutes; a sample there is read
// from its own place on every platform (a sparse file keeps the test small).
TEST_F(ChannelSamplesTest, ASampleBeyondFourGigabytesIsReadFromItsOwnPlace) {
  const std::uint64_t offset = (std::uint64_t{5} << 30) + 8;
  capture("");
  std::filesystem::resize_file(driver->captureFilePath(), offset);
  std::ofstream(driver->captureFilePath(), std::ios::binary | std::ios::app) << "far away";
  ASSERT_EQ(std::filesystem::file_size(driver->captureFilePath()), offset + 8);
  EXPECT_EQ(driver->GetNumSamples(), offset / 8 + 1);
  std::uint64_t buffer[2] = {1, 1};
  std::uint32_t numRead = 0;
  EXPECT_EQ(driver->SeekReadTraceData(static_cast<std::uint32_t>(offset / 8 - 1), 2, buffer, &numRead), 2u);
  EXPECT_EQ(numRead, 2u);
  EXPECT_EQ(buffer[0], 0u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&buffer[1]), 8), "far away");
}

// A section that would pass 2 GiB is refused before the file is touched, so
// no section ever claims to be whole when it is not.
TEST_F(ChannelSamplesTest, ATdfExportThatWouldPassTwoGigabytesFailsBeforeWritingAnything) {
  capture("");
  std::filesystem::resize_file(driver->captureFilePath(), std::uint64_t{3} << 30);
  const std::string tdf = dir.file("big.tdf");
  std::ofstream(tdf, std::ios::binary) << "TDF1host";
  EXPECT_EQ(hexkitText([&] { driver->SaveToFile(tdf, 0); }), "TDF file is too large: sections must end below 2 GiB.");
  EXPECT_EQ(readFile(tdf), "TDF1host");
}

TEST_F(ChannelSamplesTest, PastThirtyTwoGigabytesTheCountStaysAtTheLargestTheHostCanHold) {
  capture("");
  std::error_code error;
  std::filesystem::resize_file(driver->captureFilePath(), (std::uint64_t{33} << 30) + 5, error);
  if (error == std::errc::file_too_large) {
    GTEST_SKIP() << "the file system under " << driver->captureFilePath() << " cannot hold a sparse file of 33 GiB";
  }
  ASSERT_FALSE(error) << error.message();
  EXPECT_EQ(driver->GetNumSamples(), 0xFFFFFFFFu);
  std::uint64_t buffer[1] = {1};
  std::uint32_t numRead = 0;
  EXPECT_EQ(driver->SeekReadTraceData(0xFFFFFFFEu, 1, buffer, &numRead), 1u);
  EXPECT_EQ(buffer[0], 0u);
}
