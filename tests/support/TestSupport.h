// Helpers shared by the tests: scratch directories, whole-file reads,
// environment variables restored at scope end, and the platform's literal
// conventions so that one test source states the expectation of each
// platform.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace vestrel_test {

// True on the Windows build (run under Wine), false on the Linux build.
bool onWindows();

// A build with AddressSanitizer or ThreadSanitizer: their allocators keep
// freed memory (quarantine, shadow), so peak-memory figures mean nothing.
constexpr bool sanitizedBuild() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return true;
#else
  return false;
#endif
}
// The platform's path separator as text.
std::string sep();
// How a text-mode C stream writes a newline on this platform.
std::string textNewline();

// A fresh directory that is removed with everything in it at scope end.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + sep() + name; }

 private:
  std::string path_;
};

// Sets (or, with nullopt, unsets) a variable and restores it at scope end.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, std::optional<std::string> value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::optional<std::string> previous_;
};

std::string readFile(const std::string& path);
bool fileExists(const std::string& path);
// Length of a file, which another handle may be writing; -1 when it cannot
// be opened.
std::int64_t fileLength(const std::string& path);
// size bytes of a fixed pseudo-random sequence chosen by seed.
std::string randomBytes(std::size_t size, unsigned seed);
std::vector<std::string> splitLines(const std::string& text, const std::string& newline);

}  // namespace vestrel_test
