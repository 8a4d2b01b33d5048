// Primitives of the host operating system that the utility library builds on
// directly and that tests never replace: locks, threads, sleeping, shared C
// streams and the platform's naming conventions. Implemented once per platform
// in win32/ or posix/.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace KV_ORV::native {

// --- Locks: a recursive lock kept in caller-provided storage -----------------
struct LockStorage {
  alignas(16) unsigned char bytes[64];
};
void initLock(LockStorage& lock);
void destroyLock(LockStorage& lock);
void enterLock(LockStorage& lock);
void leaveLock(LockStorage& lock);

// --- Threads --------------------------------------------------------------------
std::uint32_t currentThreadId();
std::uint32_t currentProcessId();

using ThreadEntry = unsigned (*)(void* argument);
using ThreadHandle = void*;

// Creates a thread that does not run until resumeThread. Returns null on
// failure. stackSize 0 selects the platform default.
ThreadHandle createSuspendedThread(std::uint32_t stackSize, ThreadEntry entry, void* argument, std::uint32_t& threadId);
void setThreadPriority(ThreadHandle thread, int priority);
// Returns the suspend count the thread had before the call, or -1 on failure.
long resumeThread(ThreadHandle thread);
// Releases the handle; the thread itself runs on undisturbed.
void closeThreadHandle(ThreadHandle thread);
// Test support: waits up to timeoutMs for the thread to end.
bool waitForThreadExit(ThreadHandle thread, std::uint32_t timeoutMs);

void sleepMilliseconds(std::uint32_t milliseconds);

// --- Files ------------------------------------------------------------------------
// Opens a C stream that other readers and writers may open at the same time.
std::FILE* openSharedStream(const char* path, const char* mode);
// Length of the file behind an open stream, -1 when it cannot be read.
std::int64_t streamLength(std::FILE* stream);
// Moves an open stream to a byte offset from the start, with 64-bit offsets
// on every platform (std::fseek takes a long, 32 bits on Windows).
bool seekStream(std::FILE* stream, std::uint64_t offset);

// --- Naming conventions ------------------------------------------------------------
char pathSeparator();
// Environment variables naming the user's profile directory, tried in order.
std::vector<const char*> profileVariables();
// The file name the platform gives a library called name.
std::string platformLibraryName(const char* name);

}  // namespace KV_ORV::native
