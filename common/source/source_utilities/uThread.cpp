#include "uThread.h"

namespace KV_ORV {

uThread::uThread(uRunnable* runnable, std::int32_t priority, std::uint32_t stackSize)
    : runnable_(runnable), priority_(priority), stackSize_(stackSize) {}

uThread::~uThread() { native::closeThreadHandle(handle_); }

bool uThread::start() {
  handle_ = nullptr;
  threadId_ = 0;
  handle_ = native::createSuspendedThread(stackSize_, &uThread::entry, this, threadId_);
  if (handle_ == nullptr) return false;
  native::setThreadPriority(handle_, priority_);
  return native::resumeThread(handle_) == 1;
}

unsigned uThread::entry(void* argument) {
  auto* self = static_cast<uThread*>(argument);
  if (self == nullptr || self->runnable_ == nullptr) return 0;
  self->runnable_->run();
  return 0;
}

void sleepMs(std::uint32_t milliseconds) { native::sleepMilliseconds(milliseconds); }

void yield() { native::sleepMilliseconds(0); }

}  // namespace KV_ORV
