#include "TestLog.h"

#include <algorithm>
#include <atomic>

#include "LogControl.h"
#include "OsServices.h"
#include "TraceStartup.h"

namespace vestrel_test {

namespace {
constexpr std::size_t kStampedPrefix = 21;  // "M     14:03:07:045 | "
}

TestLog::TestLog(const char* level)
    : userProfile_("USERPROFILE", std::string()),
      logDir_("VESTREL_TEST_LOG_DIR", std::string()),
      logging_("KV_TRACE_LOGGING", std::nullopt) {
  static std::atomic<int> counter{0};
  name_ = "test_log_" + std::to_string(counter++) + ".txt";
  // The profile stays in force after the set-up, for the code under test.
  KV_ORV::nativeOs().setEnvironmentVariable("USERPROFILE", profile_.path().c_str());
  KV_ORV::nativeOs().setEnvironmentVariable("VESTREL_TEST_LOG_DIR", logs_.path().c_str());
  ScopedEnv logging("VESTREL_TEST_LOGGING", level != nullptr ? std::optional<std::string>(level) : std::nullopt);
  KV_ORV::LogControl::Instance().Init(name_.c_str(), "VESTREL_TEST_LOGGING", "VESTREL_TEST_LOG_DIR", true);
  path_ = logs_.file(name_);
}

TestLog::TestLog(const char* level, StartupNamed)
    : userProfile_("USERPROFILE", std::string()),
      logDir_("KV_TRACE_LOGGING_DIR", std::string()),
      logging_("KV_TRACE_LOGGING", level != nullptr ? std::optional<std::string>(level) : std::nullopt) {
  KV_ORV::nativeOs().setEnvironmentVariable("USERPROFILE", profile_.path().c_str());
  KV_ORV::TraceStartup startup;
  startup.run();
  name_ = startup.logFileName();
  // The name is the same for every test of the process; each gets a new log.
  KV_ORV::LogControl::Instance().Forget(name_);
  KV_ORV::LogControl::Instance().Init(name_.c_str(), KV_ORV::TraceStartup::kLoggingVariable,
                                      KV_ORV::TraceStartup::kLoggingDirVariable, true);
  path_ = startup.baseDirectory() + sep() + name_;
}

std::vector<std::string> TestLog::rawLines() const {
  auto all = splitLines(readFile(path()), textNewline());
  // The logger's own two directory lines come first.
  all.erase(all.begin(), all.begin() + std::min<std::size_t>(2, all.size()));
  return all;
}

std::vector<std::string> TestLog::lines() const {
  std::vector<std::string> texts;
  for (const std::string& line : rawLines())
    texts.push_back(line.size() > kStampedPrefix ? line.substr(kStampedPrefix) : "");
  return texts;
}

std::vector<std::string> TestLog::linesStartingWith(const std::string& prefix) const {
  std::vector<std::string> found;
  for (const std::string& text : lines()) {
    if (text.rfind(prefix, 0) == 0) found.push_back(text);
  }
  return found;
}

std::string TestLog::rawLineOf(const std::string& text) const {
  for (const std::string& line : rawLines()) {
    if (line.size() > kStampedPrefix && line.substr(kStampedPrefix) == text) return line;
  }
  return {};
}

bool TestLog::contains(const std::string& text) const {
  const auto all = lines();
  return std::find(all.begin(), all.end(), text) != all.end();
}

}  // namespace vestrel_test
