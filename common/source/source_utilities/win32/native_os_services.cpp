#include <direct.h>

#include <string>
#include <vector>

#include "../OsServices.h"
#include "windows_headers.h"
// After windows.h, which it needs.
#include <tlhelp32.h>

namespace KV_ORV {

namespace {

class Win32OsServices final : public OsServices {
 public:
  bool getEnvironmentVariable(const char* name, std::string& value) override {
    // 32767 characters is the largest value Windows stores.
    std::vector<char> buffer(32768);
    SetLastError(ERROR_SUCCESS);
    DWORD length = GetEnvironmentVariableA(name, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0 || length >= buffer.size()) {
      value.clear();
      return length != 0 || GetLastError() != ERROR_ENVVAR_NOT_FOUND;
    }
    value.assign(buffer.data(), length);
    return true;
  }

  bool setEnvironmentVariable(const char* name, const char* value) override {
    return SetEnvironmentVariableA(name, value) != 0;
  }

  bool currentDirectory(std::string& out) override {
    char buffer[260];
    if (_getcwd(buffer, sizeof buffer) == nullptr) return false;
    out = buffer;
    return true;
  }

  int makeDirectory(const char* path) override { return _mkdir(path); }

  bool createDirectory(const char* path) override { return CreateDirectoryA(path, nullptr) != 0; }

  bool freeBytesAvailable(const char* directory, std::uint64_t& bytes) override {
    ULARGE_INTEGER available{}, total{}, free{};
    if (!GetDiskFreeSpaceExA(directory, &available, &total, &free)) return false;
    bytes = available.QuadPart;
    return true;
  }

  bool listProcessIds(std::vector<std::uint32_t>& ids) override {
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) return false;
    PROCESSENTRY32 entry;
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32First(snapshot, &entry); more; more = Process32Next(snapshot, &entry)) {
      ids.push_back(entry.th32ProcessID);
      entry.dwSize = sizeof entry;
    }
    CloseHandle(snapshot);
    return true;
  }

  std::uint32_t currentProcessId() override { return GetCurrentProcessId(); }

  LocalTime localTime() override {
    SYSTEMTIME now;
    GetLocalTime(&now);
    return LocalTime{now.wYear, now.wMonth,  now.wDayOfWeek, now.wDay,
                     now.wHour, now.wMinute, now.wSecond,    now.wMilliseconds};
  }

  void debuggerOutput(const char* text) override { OutputDebugStringA(text); }

  LibraryHandle loadLibrary(const char* file, std::uint32_t& errorCode) override {
    keepLoadFailure("");
    HMODULE module = LoadLibraryA(file);
    if (module == nullptr) {
      errorCode = GetLastError();
      keepLoadFailure(std::string(file) + ": " + systemMessage(errorCode) +
                      "; Windows looked beside the program, in the system folders, the working folder and PATH");
    }
    return reinterpret_cast<LibraryHandle>(module);
  }
  std::string lastLoadFailure() override { return keptLoadFailure(); }

  void* librarySymbol(LibraryHandle handle, const char* name, std::uint32_t& errorCode) override {
    FARPROC address = GetProcAddress(static_cast<HMODULE>(handle), name);
    if (address == nullptr) errorCode = GetLastError();
    return reinterpret_cast<void*>(address);
  }

  void freeLibrary(LibraryHandle handle) override { FreeLibrary(static_cast<HMODULE>(handle)); }

 private:
  // The system's text for an error number, without its line end.
  static std::string systemMessage(DWORD code) {
    char buffer[512] = {};
    const DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                                        buffer, sizeof buffer, nullptr);
    std::string text(buffer, length);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ' || text.back() == '.')) {
      text.pop_back();
    }
    return text.empty() ? "error " + std::to_string(code) : text + " (error " + std::to_string(code) + ")";
  }
};

}  // namespace

OsServices& nativeOs() {
  static Win32OsServices services;
  return services;
}

}  // namespace KV_ORV
