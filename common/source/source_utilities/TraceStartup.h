// The one-time set-up of the trace environment that a module runs before it
// first logs: it settles the debug client's process number, creates the
// trace directories, publishes them in the environment for every module of
// the process, and names the log file. Each module that needs it keeps an
// instance of its own.
#pragma once

#include <string>

namespace KV_ORV {

class TraceStartup {
 public:
  // Runs the set-up unless it completed before. Throws source_utilities_error
  // (or uString::error) when the profile or the process number cannot be
  // read; done() then stays false and the next call tries again.
  void run();

  bool done() const { return done_; }
  const std::string& debugClientPid() const { return pid_; }
  const std::string& baseDirectory() const { return baseDirectory_; }
  const std::string& dataDirectory() const { return dataDirectory_; }
  const std::string& settingsDirectory() const { return settingsDirectory_; }
  const std::string& logFileName() const { return logFileName_; }

  static constexpr const char* kPidVariable = "KV_TRACE_DEBUGCLIENT_PID";
  static constexpr const char* kLoggingVariable = "KV_TRACE_LOGGING";
  static constexpr const char* kLoggingDirVariable = "KV_TRACE_LOGGING_DIR";
  static constexpr const char* kDataDirVariable = "KV_TRACE_DATA_DIR";
  static constexpr const char* kSettingsDirVariable = "KV_TRACE_SETTINGS_DIR";

 private:
  bool done_ = false;
  std::string pid_;
  std::string baseDirectory_;
  std::string dataDirectory_;
  std::string settingsDirectory_;
  std::string logFileName_;
};

}  // namespace KV_ORV
