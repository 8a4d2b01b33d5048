#include <process.h>

#include "../NativePlatform.h"
#include "windows_headers.h"

namespace KV_ORV::native {

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(LockStorage::bytes));

static CRITICAL_SECTION* section(LockStorage& lock) { return reinterpret_cast<CRITICAL_SECTION*>(lock.bytes); }

void initLock(LockStorage& lock) { InitializeCriticalSection(section(lock)); }
void destroyLock(LockStorage& lock) { DeleteCriticalSection(section(lock)); }
void enterLock(LockStorage& lock) { EnterCriticalSection(section(lock)); }
void leaveLock(LockStorage& lock) { LeaveCriticalSection(section(lock)); }

std::uint32_t currentThreadId() { return GetCurrentThreadId(); }
std::uint32_t currentProcessId() { return GetCurrentProcessId(); }

ThreadHandle createSuspendedThread(std::uint32_t stackSize, ThreadEntry entry, void* argument,
                                   std::uint32_t& threadId) {
  unsigned id = 0;
  uintptr_t handle = _beginthreadex(nullptr, stackSize, entry, argument, CREATE_SUSPENDED, &id);
  if (handle == 0) return nullptr;
  threadId = id;
  return reinterpret_cast<ThreadHandle>(handle);
}

void setThreadPriority(ThreadHandle thread, int priority) { SetThreadPriority(thread, priority); }

long resumeThread(ThreadHandle thread) {
  DWORD previous = ResumeThread(thread);
  return previous == static_cast<DWORD>(-1) ? -1L : static_cast<long>(previous);
}

void closeThreadHandle(ThreadHandle thread) {
  if (thread != nullptr) CloseHandle(thread);
}

bool waitForThreadExit(ThreadHandle thread, std::uint32_t timeoutMs) {
  return WaitForSingleObject(thread, timeoutMs) == WAIT_OBJECT_0;
}

void sleepMilliseconds(std::uint32_t milliseconds) { Sleep(milliseconds); }

}  // namespace KV_ORV::native
