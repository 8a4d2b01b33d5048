// The collector on a real serial device: a pseudo-terminal on Linux, a COM
// port mapped onto one under Wine, fed from its far end while capturing.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>

#include "PortFeeder.h"
#include "TestSupport.h"
#include "UARTDataCollector.h"
#include "uFile.h"
#include "uThread.h"

using namespace Kv::Orv::Trace::Vestrel;
using vestrel_test::fileLength;
using vestrel_test::randomBytes;

namespace {

constexpr int kPort = 7;

class CaptureIntegrationTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(feeder.ready()) << feeder.why(); }
  std::string capturePath() const { return dir.file("swotrace_core.bin"); }
  void stopCollector(UARTDataCollector& collector) {
    collector.stop();
    while (!collector.isFinished()) KV_ORV::yield();
  }

  vestrel_test::PortFeeder feeder{kPort};
  vestrel_test::ScratchDirectory dir;
  std::uint32_t prescaler = 0;
};

}  // namespace

TEST_F(CaptureIntegrationTest, FiftyMegabytesArriveByteForByte) {
  const std::string data = randomBytes(50u << 20, 1);
  auto collector = std::make_unique<UARTDataCollector>(kPort, 2000000.0, false, prescaler, capturePath(), false);
  KV_ORV::uThread thread(collector.get(), 0, 0);
  ASSERT_TRUE(thread.start());
  std::thread feed([&] { EXPECT_TRUE(feeder.write(data.data(), data.size())); });
  feed.join();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  while (fileLength(capturePath()) < static_cast<std::int64_t>(data.size()) &&
         std::chrono::steady_clock::now() < deadline) {
    KV_ORV::sleepMs(5);
  }
  stopCollector(*collector);
  collector.reset();
  const std::string captured = vestrel_test::readFile(capturePath());
  ASSERT_EQ(captured.size(), data.size());
  EXPECT_TRUE(captured == data) << "the capture differs from what was sent";
}

TEST_F(CaptureIntegrationTest, StoppingWhileDataKeepsArrivingLeavesAnExactPrefix) {
  const std::string data = randomBytes(8u << 20, 2);
  auto collector = std::make_unique<UARTDataCollector>(kPort, 2000000.0, false, prescaler, capturePath(), false);
  KV_ORV::uThread thread(collector.get(), 0, 0);
  ASSERT_TRUE(thread.start());
  std::atomic<bool> feeding{true};
  std::thread feed([&] {
    for (std::size_t at = 0; feeding && at < data.size(); at += 4096) feeder.write(&data[at], 4096, &feeding);
  });
  while (fileLength(capturePath()) < (1 << 20)) KV_ORV::sleepMs(1);
  stopCollector(*collector);
  collector.reset();
  feeding = false;  // the reader is gone: a writer waiting on a full buffer gives up
  feed.join();
  const std::string captured = vestrel_test::readFile(capturePath());
  ASSERT_GE(captured.size(), 1u << 20);
  ASSERT_LE(captured.size(), data.size());
  EXPECT_TRUE(captured == data.substr(0, captured.size())) << "the capture is not a prefix of what was sent";
}

TEST_F(CaptureIntegrationTest, TheCaptureFileCanBeReadWhileItGrows) {
  const std::string data = randomBytes(4u << 20, 3);
  auto collector = std::make_unique<UARTDataCollector>(kPort, 2000000.0, false, prescaler, capturePath(), false);
  KV_ORV::uThread thread(collector.get(), 0, 0);
  ASSERT_TRUE(thread.start());
  std::thread feed([&] { feeder.write(data.data(), data.size()); });

  // A second reader, as the channel driver is when the host asks for samples.
  std::int64_t seen = 0;
  int growths = 0;
  bool prefixes = true;
  bool opened = true;
  while (seen < static_cast<std::int64_t>(data.size()) && prefixes && opened) {
    KV_ORV::uFile reader;
    opened = reader.open(capturePath().c_str(), "rb");
    if (!opened) break;
    const std::int64_t length = reader.length();
    std::string head(static_cast<std::size_t>(length), '\0');
    head.resize(reader.read(head.data(), head.size()));
    reader.close();
    prefixes = head == data.substr(0, head.size());
    if (length > seen) ++growths;
    seen = length;
  }
  EXPECT_TRUE(opened) << "the growing capture file could not be opened for reading";
  EXPECT_TRUE(prefixes) << "a reader saw bytes that were not sent";
  feed.join();
  stopCollector(*collector);
  collector.reset();
  EXPECT_GE(growths, 2);
  EXPECT_EQ(vestrel_test::readFile(capturePath()), data);
}

TEST_F(CaptureIntegrationTest, AutomaticCalibrationFindsTheFirstRateThePortAccepts) {
  prescaler = 9;  // replaced by the search
  auto collector = std::make_unique<UARTDataCollector>(kPort, 12000000.0, true, prescaler, capturePath(), false);
  if (vestrel_test::onWindows()) {
    // Wine's serial ports take the standard rates only and read anything
    // else back as 38400: 12 MHz and 6 MHz are refused, 4 MHz is taken.
    EXPECT_EQ(prescaler, 2u);
    EXPECT_EQ(collector->baudRate(), 4000000u);
  } else {
    // A Linux pseudo-terminal takes any rate through termios2.
    EXPECT_EQ(prescaler, 0u);
    EXPECT_EQ(collector->baudRate(), 12000000u);
  }
}

TEST_F(CaptureIntegrationTest, ThePortIsLeftAsItWasFound) {
  const PortState before = [] {
    SerialApi& api = systemSerialApi();
    PortHandle port = api.openPort(L"\\\\.\\COM7");
    PortState state;
    if (port != nullptr) {
      api.getState(port, state);
      api.closePort(port);
    }
    return state;
  }();
  ASSERT_NE(before.DCBlength, 0u);
  { auto collector = std::make_unique<UARTDataCollector>(kPort, 3000000.0, false, prescaler, capturePath(), false); }
  SerialApi& api = systemSerialApi();
  PortHandle port = api.openPort(L"\\\\.\\COM7");
  ASSERT_NE(port, nullptr);
  PortState after;
  ASSERT_TRUE(api.getState(port, after));
  api.closePort(port);
  EXPECT_EQ(after.BaudRate, before.BaudRate);
  EXPECT_EQ(after.ByteSize, before.ByteSize);
  EXPECT_EQ(after.Parity, before.Parity);
  EXPECT_EQ(after.StopBits, before.StopBits);
  EXPECT_EQ(after.fOutxCtsFlow, before.fOutxCtsFlow);
  EXPECT_EQ(after.fOutX, before.fOutX);
  EXPECT_EQ(after.fInX, before.fInX);
}
