// Soak: many start/stop cycles of a recording with data flowing, checked for
// threads and handles left behind (memory: LeakSanitizer in the sanitizer
// stage runs this same test).
#include <algorithm>
#include <chrono>
#include <thread>

#include "ProcessResources.h"
#include "RecordingFixture.h"

using namespace vestrel_test;

namespace {

constexpr int kCycles = 2000;

class ChannelSoakTest : public ChannelRecordingTest {
 protected:
  std::uint64_t delivered = 0;

  // One recording: start, wait for the bytes, halt, stop, check the capture.
  ::testing::AssertionResult cycle(int number) {
    const std::string bytes = "cycle " + std::to_string(number) + " of the soak";
    port.push(bytes);
    delivered += bytes.size();
    driver->SetTargetState(6);
    driver->StartRecording(false);
    while (port.deliveredBytes < delivered) KV_ORV::yield();
    driver->SetTargetState(7);
    driver->StopRecording();
    const std::string captured = readFile(driver->captureFilePath());
    if (captured != bytes) return ::testing::AssertionFailure() << "cycle " << number << " captured " << captured;
    return ::testing::AssertionSuccess();
  }

  // A finished thread may take a moment to leave the process's list: the
  // count once it is no more than expected (after 5 s, whatever it is).
  static std::size_t settledThreadCount(std::size_t expected) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    std::size_t count = threadCount();
    while (count > expected && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      count = threadCount();
    }
    return count;
  }

  // The threads a quiet process runs: the fewest seen over half a second, so
  // that one still ending (the last recording's) is not counted.
  static std::size_t quietThreadCount() {
    std::size_t fewest = threadCount();
    for (int look = 0; look < 50; ++look) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      fewest = std::min(fewest, threadCount());
    }
    return fewest;
  }
};

}  // namespace

TEST_F(ChannelSoakTest, TwoThousandRecordingsWithDataFlowingLeaveNoThreadOrHandleBehind) {
  configure();
  ASSERT_TRUE(cycle(0));  // the first one also does the one-time start-up
  const std::size_t threads = quietThreadCount();
  const std::size_t handles = handleCount();
  ASSERT_GT(threads, 0u);
  ASSERT_GT(handles, 0u);
  for (int number = 1; number <= kCycles; ++number) ASSERT_TRUE(cycle(number));
  // A thread left behind keeps the count above the quiet one.
  EXPECT_LE(settledThreadCount(threads), threads);
  EXPECT_EQ(handleCount(), handles);
  EXPECT_EQ(driver->state(), 5u);
  EXPECT_EQ(std::count(port.calls.begin(), port.calls.end(), "closePort"), kCycles + 1);
}
