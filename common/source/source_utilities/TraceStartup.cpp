#include "TraceStartup.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "OsServices.h"
#include "TraceEnvironment.h"
#include "uString.h"
#include "uTime.h"

namespace KV_ORV {

namespace {

// A PID names the debug client only while such a process runs.
bool isRunningProcess(std::uint64_t pid) {
  if (pid == 0) return false;
  std::vector<std::uint32_t> ids;
  if (!os().listProcessIds(ids)) return false;
  return std::find(ids.begin(), ids.end(), pid) != ids.end();
}

}  // namespace

void TraceStartup::run() {
  if (done_) return;

  pid_ = GetEnv(kPidVariable);
  if (!pid_.empty() && !isRunningProcess(uString::toNumeric<std::uint64_t>(pid_.c_str()))) pid_.clear();
  if (pid_.empty()) {
    pid_ = std::to_string(os().currentProcessId());
    SetEnv(kPidVariable, pid_.c_str());
  }

  GetTraceDirectory(baseDirectory_);
  GetTraceDataDirectory(dataDirectory_);
  GetTraceSettingsDirectory(settingsDirectory_);
  // Created once more on purpose: harmless, and it keeps the folders there
  // even if another process removed one in between.
  CreateDirectories(baseDirectory_.c_str());
  CreateDirectories(dataDirectory_.c_str());
  CreateDirectories(settingsDirectory_.c_str());

  SetEnv(kLoggingDirVariable, baseDirectory_.c_str());
  SetEnv(kDataDirVariable, dataDirectory_.c_str());
  SetEnv(kSettingsDirVariable, settingsDirectory_.c_str());

  // Month, day and four-digit year run together unpadded: 16 November 2026
  // is 11162026, 5 January 2026 is 152026.
  const uTime today;
  logFileName_ = "kv_trace_log_" + std::to_string(today.month()) + std::to_string(today.day()) +
                 std::to_string(today.year()) + "_" + pid_ + ".txt";
  done_ = true;
}

}  // namespace KV_ORV
