#include <dirent.h>
#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "../OsServices.h"

namespace KV_ORV {

namespace {

// Windows error numbers reported for library failures, so that messages read
// the same on both platforms.
constexpr std::uint32_t kModuleNotFound = 126;     // ERROR_MOD_NOT_FOUND
constexpr std::uint32_t kProcedureNotFound = 127;  // ERROR_PROC_NOT_FOUND
constexpr std::uint32_t kBadImage = 193;           // ERROR_BAD_EXE_FORMAT

bool isFile(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::string executableDirectory() {
  char buffer[PATH_MAX];
  ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  if (length <= 0) return {};
  std::string path(buffer, static_cast<std::size_t>(length));
  return path.substr(0, path.find_last_of('/'));
}

class PosixOsServices final : public OsServices {
 public:
  bool getEnvironmentVariable(const char* name, std::string& value) override {
    const char* found = getenv(name);
    value = found != nullptr ? found : "";
    return found != nullptr;
  }

  // A null value removes the variable, as on Windows.
  bool setEnvironmentVariable(const char* name, const char* value) override {
    return (value != nullptr ? setenv(name, value, 1) : unsetenv(name)) == 0;
  }

  // Windows' _getcwd is given 260 bytes (MAX_PATH); Linux paths have no
  // such limit, so the whole path is taken, however deep.
  bool currentDirectory(std::string& out) override {
    char* path = getcwd(nullptr, 0);
    if (path == nullptr) return false;
    out = path;
    std::free(path);
    return true;
  }

  int makeDirectory(const char* path) override { return mkdir(path, 0777) == 0 ? 0 : -1; }

  bool createDirectory(const char* path) override { return mkdir(path, 0777) == 0; }

  bool freeBytesAvailable(const char* directory, std::uint64_t& bytes) override {
    struct statvfs volume;
    if (statvfs(directory != nullptr ? directory : ".", &volume) != 0) return false;
    bytes = static_cast<std::uint64_t>(volume.f_bavail) * volume.f_frsize;
    return true;
  }

  // The numeric entries of /proc are the running processes.
  bool listProcessIds(std::vector<std::uint32_t>& ids) override {
    DIR* proc = opendir("/proc");
    if (proc == nullptr) return false;
    while (dirent* entry = readdir(proc)) {
      char* end = nullptr;
      unsigned long id = std::strtoul(entry->d_name, &end, 10);
      if (end != entry->d_name && *end == '\0') ids.push_back(static_cast<std::uint32_t>(id));
    }
    closedir(proc);
    return true;
  }

  std::uint32_t currentProcessId() override { return static_cast<std::uint32_t>(getpid()); }

  LocalTime localTime() override {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    return LocalTime{
        static_cast<std::uint16_t>(local.tm_year + 1900), static_cast<std::uint16_t>(local.tm_mon + 1),
        static_cast<std::uint16_t>(local.tm_wday),        static_cast<std::uint16_t>(local.tm_mday),
        static_cast<std::uint16_t>(local.tm_hour),        static_cast<std::uint16_t>(local.tm_min),
        static_cast<std::uint16_t>(local.tm_sec),         static_cast<std::uint16_t>(now.tv_nsec / 1000000)};
  }

  // There is no debugger channel here; standard error is where a developer
  // watching the process sees it.
  void debuggerOutput(const char* text) override {
    std::fputs(text, stderr);
    std::fflush(stderr);
  }

  // Searches like the Windows loader does for a bare name: the dynamic
  // linker's own path first, then the executable's directory, the private
  // library folder of an installed Vestrel beside it (../lib/vestrel: found
  // even where a sanitizer's runtime, intercepting dlopen, hides the
  // program's RUNPATH), the working directory and each directory of PATH.
  LibraryHandle loadLibrary(const char* file, std::uint32_t& errorCode) override {
    keepLoadFailure("");
    std::string name = file;
    if (name.find('/') != std::string::npos) return openCandidate(name, errorCode);
    if (void* handle = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL)) return handle;
    const char* linkerSays = dlerror();
    const std::string linkerMessage = linkerSays != nullptr ? linkerSays : name + ": not found";

    const std::string programFolder = executableDirectory();
    std::string directories = programFolder + ":" + programFolder + "/../lib/vestrel:.";
    if (const char* path = getenv("PATH")) directories += std::string(":") + path;
    std::size_t start = 0;
    while (start <= directories.size()) {
      std::size_t end = directories.find(':', start);
      if (end == std::string::npos) end = directories.size();
      std::string directory = directories.substr(start, end - start);
      start = end + 1;
      if (directory.empty()) continue;
      std::string candidate = directory + "/" + name;
      if (isFile(candidate)) return openCandidate(candidate, errorCode);
    }
    errorCode = kModuleNotFound;
    keepLoadFailure(linkerMessage + "; not beside the program (" + programFolder + ") or in ../lib/vestrel, " +
                    "the working folder or a PATH folder either");
    return nullptr;
  }

  void* librarySymbol(LibraryHandle handle, const char* name, std::uint32_t& errorCode) override {
    void* address = dlsym(handle, name);
    if (address == nullptr) errorCode = kProcedureNotFound;
    return address;
  }

  void freeLibrary(LibraryHandle handle) override { dlclose(handle); }

 private:
  static LibraryHandle openCandidate(const std::string& path, std::uint32_t& errorCode) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      errorCode = isFile(path) ? kBadImage : kModuleNotFound;
      const char* linkerSays = dlerror();
      keepLoadFailure(linkerSays != nullptr ? linkerSays : path + ": cannot be loaded");
    }
    return handle;
  }
  std::string lastLoadFailure() override { return keptLoadFailure(); }
};

}  // namespace

OsServices& nativeOs() {
  static PosixOsServices services;
  return services;
}

}  // namespace KV_ORV
