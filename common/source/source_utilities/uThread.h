// Starts one native thread for one uRunnable. Stopping is cooperative and up
// to the owner: it asks the runnable to stop by the runnable's own means,
// polls the runnable until it reports that it finished (calling yield()
// between polls) and only then destroys the uThread, which never waits.
#pragma once

#include <cstdint>

#include "NativePlatform.h"
#include "uRunnable.h"

namespace KV_ORV {

class uThread {
 public:
  uThread(uRunnable* runnable, std::int32_t priority, std::uint32_t stackSize);
  // Releases the native handle only: the thread is neither waited for nor
  // stopped, and the runnable is not deleted.
  virtual ~uThread();
  uThread(const uThread&) = delete;
  uThread& operator=(const uThread&) = delete;

  // Creates the thread suspended, applies the priority and lets it run. True
  // only when the thread was created and released from exactly one suspension.
  // Call once per object.
  bool start();

  std::uint32_t threadId() const { return threadId_; }
  std::int32_t priority() const { return priority_; }
  std::uint32_t stackSize() const { return stackSize_; }
  // The native handle, null until started (for tests that must see the end of
  // the thread).
  native::ThreadHandle handle() const { return handle_; }

 private:
  static unsigned entry(void* argument);

  uRunnable* runnable_;
  native::ThreadHandle handle_ = nullptr;
  std::int32_t priority_;
  std::uint32_t stackSize_;
  std::uint32_t threadId_ = 0;
};

// Suspends the calling thread for the given time.
void sleepMs(std::uint32_t milliseconds);
// Gives up the rest of the calling thread's time slice.
void yield();

}  // namespace KV_ORV
