#include "../ProcessResources.h"

// The tool-help declarations need the Windows headers first.
#include "win32/windows_headers.h"

#include <tlhelp32.h>
// GetProcessMemoryInfo from kernel32 (K32GetProcessMemoryInfo): no psapi.dll.
#define PSAPI_VERSION 2
#include <psapi.h>

#include <cstdint>

namespace vestrel_test {

std::size_t threadCount() {
  HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  if (snapshot == INVALID_HANDLE_VALUE) return 0;
  const DWORD self = GetCurrentProcessId();
  std::size_t count = 0;
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == self) ++count;
  }
  CloseHandle(snapshot);
  return count;
}

// Wine answers GetProcessHandleCount with 0. It gives a new handle the
// lowest free slot of the process's table, so the slot of a fresh handle
// stands in for the count there: it only grows when handles are left open.
std::size_t handleCount() {
  DWORD count = 0;
  if (GetProcessHandleCount(GetCurrentProcess(), &count) && count > 0) return count;
  HANDLE probe = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (probe == nullptr) return 0;
  const auto slot = reinterpret_cast<std::uintptr_t>(probe) / 4;
  CloseHandle(probe);
  return static_cast<std::size_t>(slot);
}

std::size_t peakMemoryBytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof counters;
  if (!GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters)) return 0;
  return counters.PeakWorkingSetSize;
}

// Windows has no per-process handle limit that a process may lower.
bool limitOpenHandles(std::size_t) { return false; }

}  // namespace vestrel_test
