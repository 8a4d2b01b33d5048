// One text log file. Every line is "<level letters> <time stamp> | <text>"
// and ends in exactly one newline; lines from several threads never
// interleave.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "uFile.h"
#include "uMutex.h"

namespace KV_ORV {

// Level values (bit set): each bit has a letter in the line prefix.
enum LogLevel : std::uint32_t {
  kLogMessage = 1,   // M
  kLogWarning = 2,   // W
  kLogFunction = 4,  // F
  kLogA = 8,         // A
  kLogError = 16,    // E
};

// Time-stamp categories.
enum LogStamp : std::uint32_t {
  kStampNone = 0,
  kStampDate = 1,
  kStampTime = 2,
  kStampDateTime = 3,
};

class uLogger {
 public:
  uLogger(const char* path, bool append);
  virtual ~uLogger();
  uLogger(const uLogger&) = delete;
  uLogger& operator=(const uLogger&) = delete;

  // Formats and writes one line; nothing when disabled or levelValue is 0.
  void Printf(std::uint32_t levelValue, std::uint32_t categoryValue, const char* format, ...)
#if defined(__GNUC__)
      __attribute__((format(printf, 4, 5)))
#endif
      ;
  // Writes a finished line (length 0: measure it), ending it in exactly one
  // newline. Returns the length written, or length unchanged when disabled.
  std::size_t Write(const char* text, std::size_t length);
  // Switching off closes the file; the next enabled line reopens it,
  // appending. Returns the previous value.
  bool SetEnabled(bool on);

  void SetEchoConsole(bool on);
  void SetDebuggerOutput(bool on);

  bool enabled() const { return enabled_; }
  bool echoConsole() const { return echoConsole_; }
  bool debuggerOutput() const { return debuggerOutput_; }
  bool append() const { return append_; }
  bool fileOpen() const { return fileOpen_; }
  const std::string& path() const { return path_; }

 private:
  uFile file_;
  std::string path_;
  std::atomic<bool> enabled_{true};  // read before the lock is taken
  bool echoConsole_ = false;
  bool debuggerOutput_ = false;
  bool append_;
  bool fileOpen_ = false;
  uMutex lock_;
  std::uint32_t bufferSize_ = 4096;
  std::unique_ptr<char[]> buffer_;
  std::uint32_t levelMask_ = 31;
  std::string line_;  // the line as written, reused
};

}  // namespace KV_ORV
