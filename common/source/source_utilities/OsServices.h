// The operating-system services the utility library needs that have failure
// paths or values worth controlling in tests: environment, directories, free
// disk space, the local clock, debugger output, run-time library loading and
// the C streams of files read or written whole within one call.
//
// Production code always goes through os(). The native implementation lives in
// win32/ or posix/ (one is compiled in, chosen by the build); tests install a
// scripted fake with ScopedOsOverride and forward to nativeOs() for whatever
// they do not script.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace KV_ORV {

// Local wall-clock time, split the way the Windows SYSTEMTIME record is.
struct LocalTime {
  std::uint16_t year = 0;
  std::uint16_t month = 0;      // 1 to 12
  std::uint16_t dayOfWeek = 0;  // 0 = Sunday
  std::uint16_t day = 0;        // 1 to 31
  std::uint16_t hour = 0;
  std::uint16_t minute = 0;
  std::uint16_t second = 0;
  std::uint16_t milliseconds = 0;
};

using LibraryHandle = void*;

class OsServices {
 public:
  virtual ~OsServices() = default;

  // Environment of the process. getEnvironmentVariable returns false when the
  // variable is unset (value is then emptied). Setting a null value removes
  // the variable.
  virtual bool getEnvironmentVariable(const char* name, std::string& value) = 0;
  virtual bool setEnvironmentVariable(const char* name, const char* value) = 0;
  virtual bool currentDirectory(std::string& out) = 0;

  // makeDirectory creates one directory level: 0 on success, -1 otherwise
  // (an existing directory included). createDirectory is the plain
  // create-if-missing used by the logger; it reports success only.
  virtual int makeDirectory(const char* path) = 0;
  virtual bool createDirectory(const char* path) = 0;
  // Bytes free to the calling user on the volume holding directory; a null
  // directory means the current one. False when the volume cannot be asked.
  virtual bool freeBytesAvailable(const char* directory, std::uint64_t& bytes) = 0;

  // The IDs of the running processes; false when they cannot be listed.
  virtual bool listProcessIds(std::vector<std::uint32_t>& ids) = 0;
  virtual std::uint32_t currentProcessId() = 0;

  virtual LocalTime localTime() = 0;
  virtual void debuggerOutput(const char* text) = 0;

  // Loads a library by the name the platform loader expects; on failure
  // returns null and sets errorCode to the platform's error number.
  virtual LibraryHandle loadLibrary(const char* file, std::uint32_t& errorCode) = 0;
  virtual void* librarySymbol(LibraryHandle handle, const char* name, std::uint32_t& errorCode) = 0;
  virtual void freeLibrary(LibraryHandle handle) = 0;
  // The loader's own account of this thread's last loadLibrary that failed:
  // where it looked and why ("" when the platform has none to give).
  virtual std::string lastLoadFailure() { return ""; }

  // C streams of the files opened, read or written and closed within one
  // call (the board file, TDF sections). openStream is a plain fopen;
  // openSharedStream lets other readers and writers open the file at the same
  // time. closeStream answers as fclose: 0, or EOF when buffered bytes did not
  // reach the file or the close itself failed; the stream is gone either way.
  // The same on every platform, so implemented here once.
  virtual std::FILE* openStream(const char* path, const char* mode);
  virtual std::FILE* openSharedStream(const char* path, const char* mode);
  virtual int closeStream(std::FILE* stream);
};

// The services in force: the native ones unless a test overrides them.
OsServices& os();
// The real operating system, whatever override is in force.
OsServices& nativeOs();

// Where the platform layers keep this thread's account of its last library
// load that failed (lastLoadFailure). A plain buffer, cut at 1 KiB: a
// thread_local with a destructor would keep the library that holds it from
// ever being unloaded.
void keepLoadFailure(const std::string& text);
std::string keptLoadFailure();

// Installs a replacement for the lifetime of this object (tests only).
class ScopedOsOverride {
 public:
  explicit ScopedOsOverride(OsServices& replacement);
  ~ScopedOsOverride();
  ScopedOsOverride(const ScopedOsOverride&) = delete;
  ScopedOsOverride& operator=(const ScopedOsOverride&) = delete;

 private:
  OsServices* previous_;
};

}  // namespace KV_ORV
