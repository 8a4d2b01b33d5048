#include "uMutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "NativePlatform.h"

using KV_ORV::uMutex;

TEST(uMutex, UnlockOnAFreshMutexIsRefused) {
  uMutex mutex;
  EXPECT_FALSE(mutex.unlock());
  EXPECT_EQ(mutex.lockCount(), 0);
  EXPECT_EQ(mutex.ownerThreadId(), 0u);
}

TEST(uMutex, TwoLocksAndTwoUnlocksOnOneThreadLeaveItFree) {
  uMutex mutex;
  EXPECT_TRUE(mutex.lock());
  EXPECT_TRUE(mutex.lock());
  EXPECT_EQ(mutex.lockCount(), 2);
  EXPECT_EQ(mutex.ownerThreadId(), KV_ORV::native::currentThreadId());
  EXPECT_TRUE(mutex.unlock());
  EXPECT_EQ(mutex.lockCount(), 1);
  EXPECT_EQ(mutex.ownerThreadId(), KV_ORV::native::currentThreadId());
  EXPECT_TRUE(mutex.unlock());
  EXPECT_EQ(mutex.lockCount(), 0);
  EXPECT_EQ(mutex.ownerThreadId(), 0u);
  EXPECT_FALSE(mutex.unlock());
}

TEST(uMutex, UnlockFromAnotherThreadIsRefusedAndTheOwnerKeepsTheLock) {
  uMutex mutex;
  ASSERT_TRUE(mutex.lock());
  const std::uint32_t owner = KV_ORV::native::currentThreadId();
  bool foreignUnlock = true;
  std::thread other([&] { foreignUnlock = mutex.unlock(); });
  other.join();
  EXPECT_FALSE(foreignUnlock);
  EXPECT_EQ(mutex.lockCount(), 1);
  EXPECT_EQ(mutex.ownerThreadId(), owner);

  // Still held: another thread cannot get in until the owner lets go.
  std::atomic<bool> entered{false};
  std::thread waiter([&] {
    mutex.lock();
    entered = true;
    mutex.unlock();
  });
  KV_ORV::native::sleepMilliseconds(50);
  EXPECT_FALSE(entered.load());
  EXPECT_TRUE(mutex.unlock());
  waiter.join();
  EXPECT_TRUE(entered.load());
}

TEST(uMutex, SerialisesIncrementsFromSeveralThreads) {
  uMutex mutex;
  long counter = 0;
  auto work = [&] {
    for (int i = 0; i < 20000; ++i) {
      KV_ORV::uLockGuard guard(mutex);
      ++counter;
    }
  };
  std::thread a(work), b(work), c(work);
  a.join();
  b.join();
  c.join();
  EXPECT_EQ(counter, 60000);
  EXPECT_EQ(mutex.lockCount(), 0);
}
