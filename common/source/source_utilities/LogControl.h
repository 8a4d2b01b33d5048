// The process-wide owner of the log files: it knows the logger that call
// sites write to and the verbosity they test before formatting a line.
//
// Call sites write through KV_LOG (below), which tests the verbosity before
// anything is formatted.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "uLogger.h"

namespace KV_ORV {

class LogControl {
 public:
  // Made on first use; lives as long as the module that holds it.
  static LogControl& Instance();

  // Sets up, or selects again, the logger for a file name. The verbosity and
  // the extra outputs come from the variable levelVariable names; the file
  // goes into the directory named by directoryVariable. False when a name is
  // missing or the volume has less than 5120000 bytes free (no logger is
  // made then). Throws source_utilities_error when the trace directories
  // cannot be found.
  bool Init(const char* name, const char* levelVariable, const char* directoryVariable, bool registerByName);

  // The current logger when the verbosity is at least threshold, else null.
  uLogger* LoggerAt(std::int32_t threshold) const {
    return verbosity_ >= threshold && verbosity_ != 0 ? current_ : nullptr;
  }
  uLogger* Current() const { return current_; }
  std::int32_t Verbosity() const { return verbosity_; }
  bool RegisterByName() const { return registerByName_; }
  std::int32_t Created() const { return created_; }
  uLogger* Registered(const std::string& name) const;
  // Drops the registration of name, so that the next Init with it makes a
  // new logger (in the directory then in force); the old logger lives on.
  // For a process that runs many sessions, such as a test program.
  void Forget(const std::string& name);

  // Free space a log volume must have for a logger to be made.
  static constexpr std::uint64_t kMinimumFreeBytes = 5120000;

 private:
  LogControl() = default;
  void applyVerbosity(uLogger& logger, std::int32_t level);

  uLogger* current_ = nullptr;
  std::int32_t verbosity_ = 0;
  bool registerByName_ = false;
  std::int32_t created_ = 0;
  std::map<std::string, uLogger*> byName_;
  // Every logger made, registered or not: they all live as long as the
  // process, and none is lost when another becomes current.
  std::vector<std::unique_ptr<uLogger>> made_;
};

}  // namespace KV_ORV

// Writes one time-stamped line through the current logger when the verbosity
// is at least threshold; the arguments are not evaluated otherwise.
#define KV_LOG(threshold, level, ...)                                                      \
  do {                                                                                     \
    if (KV_ORV::uLogger* kvLogger_ = KV_ORV::LogControl::Instance().LoggerAt(threshold)) { \
      kvLogger_->Printf((level), KV_ORV::kStampTime, __VA_ARGS__);                         \
    }                                                                                      \
  } while (0)
