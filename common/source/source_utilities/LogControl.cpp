#include "LogControl.h"

#include <cstdlib>

#include "CNumberText.h"
#include "NativePlatform.h"
#include "OsServices.h"
#include "TraceEnvironment.h"

namespace KV_ORV {

// Destroyed with the module that holds it (process end, or unloading the
// library), closing every log file it made.
LogControl& LogControl::Instance() {
  static LogControl instance;
  return instance;
}

uLogger* LogControl::Registered(const std::string& name) const {
  auto found = byName_.find(name);
  return found != byName_.end() ? found->second : nullptr;
}

void LogControl::Forget(const std::string& name) {
  auto found = byName_.find(name);
  if (found == byName_.end()) return;
  if (current_ == found->second) current_ = nullptr;
  byName_.erase(found);
}

bool LogControl::Init(const char* name, const char* levelVariable, const char* directoryVariable, bool registerByName) {
  if (name == nullptr || levelVariable == nullptr) return false;

  registerByName_ = registerByName;
  if (registerByName) {
    current_ = Registered(name);
    if (current_ != nullptr) return true;
  }

  std::string path = name;
  std::string directory;
  if (directoryVariable != nullptr) {
    directory = GetEnv(directoryVariable);
    if (!directory.empty()) path = directory + native::pathSeparator() + name;
  }

  std::uint64_t freeBytes = 0;
  const char* volume = directoryVariable != nullptr ? directory.c_str() : nullptr;
  if (!os().freeBytesAvailable(volume, freeBytes) || freeBytes < kMinimumFreeBytes) return false;
  if (directoryVariable != nullptr) os().createDirectory(directory.c_str());

  const std::int32_t level = atoi32(GetEnv(levelVariable));
  made_.push_back(std::make_unique<uLogger>(path.c_str(), true));
  uLogger* logger = made_.back().get();
  current_ = logger;
  if (registerByName) byName_[name] = logger;
  ++created_;
  applyVerbosity(*logger, level);

  std::string settings;
  std::string data;
  logger->Printf(kLogMessage, kStampTime, "Logger : trace user settings directory is %s",
                 GetTraceSettingsDirectory(settings).c_str());
  logger->Printf(kLogMessage, kStampTime, "Logger : trace temporary data directory is %s",
                 GetTraceDataDirectory(data).c_str());
  return true;
}

// KV_TRACE_LOGGING value -> what the logger does and the verbosity stored.
void LogControl::applyVerbosity(uLogger& logger, std::int32_t level) {
  struct Row {
    bool echoConsole;
    bool debuggerOutput;
    std::int32_t verbosity;
  };
  static const Row kTable[7] = {
      {false, false, 0},  // unused: 0 disables logging
      {false, false, 1}, {true, false, 1}, {false, false, 2}, {true, false, 2}, {true, true, 2}, {true, true, 3},
  };
  if (level < 1 || level > 6) {
    logger.SetEnabled(false);
    verbosity_ = level;
    return;
  }
  const Row& row = kTable[level];
  logger.SetEnabled(true);
  logger.SetEchoConsole(row.echoConsole);
  logger.SetDebuggerOutput(row.debuggerOutput);
  verbosity_ = row.verbosity;
}

}  // namespace KV_ORV
