#include <direct.h>

#include <vector>

#include "../OsServices.h"
#include "windows_headers.h"

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

  LocalTime localTime() override {
    SYSTEMTIME now;
    GetLocalTime(&now);
    return LocalTime{now.wYear, now.wMonth,  now.wDayOfWeek, now.wDay,
                     now.wHour, now.wMinute, now.wSecond,    now.wMilliseconds};
  }

  void debuggerOutput(const char* text) override { OutputDebugStringA(text); }

  LibraryHandle loadLibrary(const char* file, std::uint32_t& errorCode) override {
    HMODULE module = LoadLibraryA(file);
    if (module == nullptr) errorCode = GetLastError();
    return reinterpret_cast<LibraryHandle>(module);
  }

  void* librarySymbol(LibraryHandle handle, const char* name, std::uint32_t& errorCode) override {
    FARPROC address = GetProcAddress(static_cast<HMODULE>(handle), name);
    if (address == nullptr) errorCode = GetLastError();
    return reinterpret_cast<void*>(address);
  }

  void freeLibrary(LibraryHandle handle) override { FreeLibrary(static_cast<HMODULE>(handle)); }
};

}  // namespace

OsServices& nativeOs() {
  static Win32OsServices services;
  return services;
}

}  // namespace KV_ORV
