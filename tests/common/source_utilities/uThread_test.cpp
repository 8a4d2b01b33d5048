#include "uThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "NativePlatform.h"

using KV_ORV::uRunnable;
using KV_ORV::uThread;

namespace {

class RecordingRunnable : public uRunnable {
 public:
  void run() override {
    ranOnThread = KV_ORV::native::currentThreadId();
    ++runs;
    finished = true;
  }
  std::atomic<std::uint32_t> ranOnThread{0};
  std::atomic<int> runs{0};
  std::atomic<bool> finished{false};
};

// Runs until asked to stop, the way the capture collector does.
class StoppableRunnable : public uRunnable {
 public:
  void run() override {
    while (running) {
      ++loops;
      KV_ORV::yield();
    }
    finished = true;
  }
  std::atomic<bool> running{true};
  std::atomic<bool> finished{false};
  std::atomic<long> loops{0};
};

void waitUntil(const std::atomic<bool>& flag) {
  while (!flag) KV_ORV::yield();
}

}  // namespace

TEST(uThread, ConstructionStoresItsSettingsAndStartsNothing) {
  RecordingRunnable runnable;
  uThread thread(&runnable, 2, 65536);
  EXPECT_EQ(thread.priority(), 2);
  EXPECT_EQ(thread.stackSize(), 65536u);
  EXPECT_EQ(thread.threadId(), 0u);
  EXPECT_EQ(thread.handle(), nullptr);
  KV_ORV::sleepMs(20);
  EXPECT_EQ(runnable.runs.load(), 0);
}

TEST(uThread, StartRunsTheRunnableOnceOnANewThread) {
  RecordingRunnable runnable;
  uThread thread(&runnable, 0, 0);
  ASSERT_TRUE(thread.start());
  waitUntil(runnable.finished);
  EXPECT_EQ(runnable.runs.load(), 1);
  EXPECT_NE(thread.threadId(), 0u);
  EXPECT_EQ(runnable.ranOnThread.load(), thread.threadId());
  EXPECT_NE(runnable.ranOnThread.load(), KV_ORV::native::currentThreadId());
  EXPECT_TRUE(KV_ORV::native::waitForThreadExit(thread.handle(), 5000));
}

TEST(uThread, ANullRunnableStartsAndReturnsAtOnce) {
  uThread thread(nullptr, 0, 0);
  EXPECT_TRUE(thread.start());
  EXPECT_NE(thread.threadId(), 0u);
  EXPECT_TRUE(KV_ORV::native::waitForThreadExit(thread.handle(), 5000));
}

TEST(uThread, AnExplicitStackSizeAndPriorityAreAccepted) {
  RecordingRunnable runnable;
  uThread thread(&runnable, 1, 256 * 1024);
  ASSERT_TRUE(thread.start());
  waitUntil(runnable.finished);
  EXPECT_TRUE(KV_ORV::native::waitForThreadExit(thread.handle(), 5000));
}

TEST(uThread, CooperativeStopEndsTheRunnableBeforeTheThreadIsDestroyed) {
  StoppableRunnable runnable;
  auto thread = std::make_unique<uThread>(&runnable, 0, 0);
  ASSERT_TRUE(thread->start());
  while (runnable.loops.load() < 10) KV_ORV::yield();
  runnable.running = false;
  waitUntil(runnable.finished);
  auto handleOwner = thread->handle();
  EXPECT_TRUE(KV_ORV::native::waitForThreadExit(handleOwner, 5000));
  thread.reset();  // closes the handle without waiting
  EXPECT_TRUE(runnable.finished.load());
}

TEST(uThread, SleepSuspendsForAtLeastTheTimeGiven) {
  const auto before = std::chrono::steady_clock::now();
  KV_ORV::sleepMs(30);
  const auto elapsed = std::chrono::steady_clock::now() - before;
  EXPECT_GE(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count(), 29);
}
