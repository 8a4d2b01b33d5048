#include "uMutex.h"

namespace KV_ORV {

uMutex::uMutex() { native::initLock(section_); }

uMutex::~uMutex() { native::destroyLock(section_); }

bool uMutex::lock() {
  native::enterLock(section_);
  ownerThreadId_.store(native::currentThreadId(), std::memory_order_relaxed);
  lockCount_.fetch_add(1, std::memory_order_relaxed);
  return true;
}

bool uMutex::unlock() {
  if (ownerThreadId_.load(std::memory_order_relaxed) != native::currentThreadId() ||
      lockCount_.load(std::memory_order_relaxed) < 1) {
    return false;
  }
  if (lockCount_.fetch_sub(1, std::memory_order_relaxed) == 1) ownerThreadId_.store(0, std::memory_order_relaxed);
  native::leaveLock(section_);
  return true;
}

}  // namespace KV_ORV
