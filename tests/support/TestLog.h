// A log at a chosen verbosity in a scratch profile, read back as lines. The
// profile is also the user profile for the test's duration.
#pragma once

#include <string>
#include <vector>

#include "TestSupport.h"

namespace vestrel_test {

class TestLog {
 public:
  // level: the value of the logging variable ("1" to "6"); nullptr leaves
  // logging off.
  explicit TestLog(const char* level);
  // The log the trace start-up names (kv_trace_log_<date>_<pid>.txt under
  // the profile), with KV_TRACE_LOGGING set to level: modules that set up
  // logging on their own (the collector) then write to this same log.
  struct StartupNamed {};
  TestLog(const char* level, StartupNamed);

  // Whole lines as written, without their line ends.
  std::vector<std::string> rawLines() const;
  // The text of each time-stamped line after "<prefix> HH:MM:SS:mmm | ".
  std::vector<std::string> lines() const;
  // The texts that begin with prefix (a component's tag, say).
  std::vector<std::string> linesStartingWith(const std::string& prefix) const;
  // The whole line whose text equals text, or the empty text.
  std::string rawLineOf(const std::string& text) const;
  // True when some line's text equals text.
  bool contains(const std::string& text) const;
  const std::string& profile() const { return profile_.path(); }
  std::string path() const { return path_; }

 private:
  ScratchDirectory profile_;
  ScratchDirectory logs_;
  ScopedEnv userProfile_;
  ScopedEnv logDir_;
  ScopedEnv logging_;
  std::string name_;
  std::string path_;
};

}  // namespace vestrel_test
