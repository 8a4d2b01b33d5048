// A recursive lock that knows which thread owns it, so that an unlock from
// the wrong thread is refused instead of corrupting the lock.
#pragma once

#include <atomic>
#include <cstdint>

#include "NativePlatform.h"

namespace KV_ORV {

class uMutex {
 public:
  uMutex();
  virtual ~uMutex();
  uMutex(const uMutex&) = delete;
  uMutex& operator=(const uMutex&) = delete;

  // Blocks until the lock is held; re-entry by the owner succeeds at once.
  // Always true.
  bool lock();
  // False, and the lock untouched, when the calling thread does not hold it.
  bool unlock();

  std::int32_t lockCount() const { return lockCount_.load(std::memory_order_relaxed); }
  std::uint32_t ownerThreadId() const { return ownerThreadId_.load(std::memory_order_relaxed); }

 private:
  native::LockStorage section_;
  // Written only while the lock is held; atomic so that the owner check of a
  // foreign thread reads a whole value.
  std::atomic<std::int32_t> lockCount_{0};
  std::atomic<std::uint32_t> ownerThreadId_{0};
};

// Holds a uMutex for the lifetime of a scope.
class uLockGuard {
 public:
  explicit uLockGuard(uMutex& mutex) : mutex_(mutex) { mutex_.lock(); }
  ~uLockGuard() { mutex_.unlock(); }
  uLockGuard(const uLockGuard&) = delete;
  uLockGuard& operator=(const uLockGuard&) = delete;

 private:
  uMutex& mutex_;
};

}  // namespace KV_ORV
