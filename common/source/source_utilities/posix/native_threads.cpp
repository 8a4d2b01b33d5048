#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "../NativePlatform.h"

namespace KV_ORV::native {

static_assert(sizeof(pthread_mutex_t) <= sizeof(LockStorage::bytes));

static pthread_mutex_t* mutexOf(LockStorage& lock) { return reinterpret_cast<pthread_mutex_t*>(lock.bytes); }

// Critical sections are recursive; so is this.
void initLock(LockStorage& lock) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(mutexOf(lock), &attributes);
  pthread_mutexattr_destroy(&attributes);
}
void destroyLock(LockStorage& lock) { pthread_mutex_destroy(mutexOf(lock)); }
void enterLock(LockStorage& lock) { pthread_mutex_lock(mutexOf(lock)); }
void leaveLock(LockStorage& lock) { pthread_mutex_unlock(mutexOf(lock)); }

std::uint32_t currentThreadId() { return static_cast<std::uint32_t>(syscall(SYS_gettid)); }
std::uint32_t currentProcessId() { return static_cast<std::uint32_t>(getpid()); }

namespace {

// POSIX threads cannot be created suspended, so the new thread waits at a gate
// until resumeThread opens it. The record is shared by the handle and the
// thread; whichever lets go last frees it.
struct PosixThread {
  std::mutex mutex;
  std::condition_variable changed;
  long suspendCount = 1;
  bool idKnown = false;
  bool exited = false;
  std::uint32_t threadId = 0;
  ThreadEntry entry = nullptr;
  void* argument = nullptr;
  pthread_t thread{};
};

using SharedThread = std::shared_ptr<PosixThread>;

void* threadMain(void* start) {
  SharedThread self = std::move(*static_cast<SharedThread*>(start));
  delete static_cast<SharedThread*>(start);
  {
    std::unique_lock<std::mutex> guard(self->mutex);
    self->threadId = currentThreadId();
    self->idKnown = true;
    self->changed.notify_all();
    self->changed.wait(guard, [&] { return self->suspendCount == 0; });
  }
  self->entry(self->argument);
  {
    std::lock_guard<std::mutex> guard(self->mutex);
    self->exited = true;
  }
  self->changed.notify_all();
  return nullptr;
}

}  // namespace

ThreadHandle createSuspendedThread(std::uint32_t stackSize, ThreadEntry entry, void* argument,
                                   std::uint32_t& threadId) {
  auto record = std::make_shared<PosixThread>();
  record->entry = entry;
  record->argument = argument;

  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  if (stackSize != 0 && pthread_attr_setstacksize(&attributes, stackSize) != 0) {
    pthread_attr_destroy(&attributes);
    return nullptr;
  }
  auto* start = new SharedThread(record);
  int failed = pthread_create(&record->thread, &attributes, threadMain, start);
  pthread_attr_destroy(&attributes);
  if (failed != 0) {
    delete start;
    return nullptr;
  }
  std::unique_lock<std::mutex> guard(record->mutex);
  record->changed.wait(guard, [&] { return record->idKnown; });
  threadId = record->threadId;
  return new SharedThread(record);
}

// Linux gives ordinary threads no priority of their own; the value is kept by
// the caller and not applied here.
void setThreadPriority(ThreadHandle, int) {}

long resumeThread(ThreadHandle thread) {
  auto& record = *static_cast<SharedThread*>(thread);
  std::lock_guard<std::mutex> guard(record->mutex);
  long previous = record->suspendCount;
  if (record->suspendCount > 0 && --record->suspendCount == 0) record->changed.notify_all();
  return previous;
}

void closeThreadHandle(ThreadHandle thread) {
  if (thread == nullptr) return;
  auto* record = static_cast<SharedThread*>(thread);
  pthread_detach((*record)->thread);
  delete record;
}

bool waitForThreadExit(ThreadHandle thread, std::uint32_t timeoutMs) {
  auto& record = *static_cast<SharedThread*>(thread);
  std::unique_lock<std::mutex> guard(record->mutex);
  return record->changed.wait_for(guard, std::chrono::milliseconds(timeoutMs), [&] { return record->exited; });
}

void sleepMilliseconds(std::uint32_t milliseconds) {
  if (milliseconds == 0) {
    sched_yield();
    return;
  }
  timespec remaining{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
  while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
  }
}

}  // namespace KV_ORV::native
