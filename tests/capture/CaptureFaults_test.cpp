// The collector against real operating-system faults: a capture file on a
// small file system that fills up while a serial port keeps delivering.
// Run through scripts/with-small-filesystem, which names that file system.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>

#include "PortFeeder.h"
#include "TestLog.h"
#include "TestSupport.h"
#include "UARTDataCollector.h"
#include "uThread.h"

using namespace Kv::Orv::Trace::Vestrel;
using namespace vestrel_test;

namespace {

constexpr int kPort = 7;
constexpr std::size_t kFileSystemSize = 256 * 1024;

std::string randomBytes(std::size_t size, unsigned seed) {
  std::mt19937_64 generator(seed);
  std::string data(size, '\0');
  for (std::size_t i = 0; i < size; i += 8) {
    const std::uint64_t word = generator();
    std::memcpy(&data[i], &word, std::min<std::size_t>(8, size - i));
  }
  return data;
}

// Wine sees the Linux file system as drive Z:.
std::string nativePath(std::string path) {
  if (!onWindows()) return path;
  for (char& c : path) {
    if (c == '/') c = '\\';
  }
  return "Z:" + path;
}

}  // namespace

TEST(CaptureFaults, AFullFileSystemEndsTheCaptureWithEveryByteThatFitKept) {
  const char* small = std::getenv("VESTREL_SMALL_FS");
  ASSERT_NE(small, nullptr) << "VESTREL_SMALL_FS is not set: run through scripts/with-small-filesystem";
  TestLog log{"1", TestLog::StartupNamed{}};
  PortFeeder feeder(kPort);
  ASSERT_TRUE(feeder.ready()) << feeder.why();
  const std::string path = nativePath(std::string(small) + "/swotrace_core.bin");
  const std::string data = randomBytes(4 * kFileSystemSize, 4);

  std::uint32_t prescaler = 0;
  auto collector = std::make_unique<UARTDataCollector>(kPort, 2000000.0, false, prescaler, path, false);
  KV_ORV::uThread thread(collector.get(), 0, 0);
  ASSERT_TRUE(thread.start());
  std::atomic<bool> feeding{true};
  std::thread feed([&] {
    for (std::size_t at = 0; feeding && at < data.size(); at += 4096) feeder.write(&data[at], 4096, &feeding);
  });
  // The collector gives up by itself when the file cannot grow.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!collector->isFinished() && std::chrono::steady_clock::now() < deadline) KV_ORV::sleepMs(5);
  const bool gaveUp = collector->isFinished();
  feeding = false;
  collector->stop();
  while (!collector->isFinished()) KV_ORV::yield();
  collector.reset();
  feed.join();
  ASSERT_TRUE(gaveUp) << "the capture went on although the file system was full";

  const std::string captured = readFile(path);
  EXPECT_GT(captured.size(), kFileSystemSize / 2);
  EXPECT_LE(captured.size(), kFileSystemSize);
  EXPECT_TRUE(captured == data.substr(0, captured.size())) << "the bytes that fit are not what was sent";
  // ENOSPC natively, ERROR_DISK_FULL under Windows.
  EXPECT_TRUE(log.contains(std::string("Vestrel_UARTCollector: Writing to binary file failed with error code ") +
                           (onWindows() ? "112" : "28")));
}
