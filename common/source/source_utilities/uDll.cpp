#include "uDll.h"

#include "LogControl.h"
#include "NativePlatform.h"
#include "TraceEnvironment.h"
#include "uString.h"

namespace KV_ORV {

namespace {
constexpr std::uint32_t kNoMode = 0xFFFFFFFF;
// Line number the function-entry trace has always carried.
constexpr int kFindAndLoadLine = 191;
}  // namespace

uDll::uDll(const char* name, std::uint32_t mode)
    : name_(name != nullptr ? name : ""), mode_(mode == kNoMode ? 0 : mode) {}

uDll::~uDll() {
  if (handle_ != nullptr) {
    lastError_.clear();
    os().freeLibrary(handle_);
    handle_ = nullptr;
  }
}

std::string uDll::GetPlatformName(const char* name) { return native::platformLibraryName(name); }

bool uDll::FindAndLoad(const char* name, std::uint32_t mode) {
  LogControl& logs = LogControl::Instance();
  if (uLogger* log = logs.LoggerAt(3)) {
    log->Printf(kLogFunction, kStampNone, "%s #%d  %s(...)\n", kSourceFile, kFindAndLoadLine,
                "KV_ORV::uDll::FindAndLoad");
  }
  if (name == nullptr) return false;
  if (handle_ != nullptr) return true;

  std::string workingDirectory;
  GetCurrentDir(workingDirectory);
  std::string file = GetPlatformName(name);
  const std::string path = GetEnv("PATH");
  if (uLogger* log = logs.LoggerAt(1)) {
    log->Printf(kLogMessage, kStampTime, "uDll:  request to load \"%s\" in mode %d", name, static_cast<int>(mode));
    log->Printf(kLogMessage, kStampTime, "uDll:  GetPlatformName returned \"%s\"", file.c_str());
    log->Printf(kLogMessage, kStampTime, "uDll:  Working Directory is: \"%s\"", workingDirectory.c_str());
    log->Printf(kLogMessage, kStampTime, "uDll:  PATH=%s", path.c_str());
  }

  // The loader is handed the bare name so that it applies its own default
  // extension and search order.
  uString::replaceAll(file, ".dll", "");

  name_ = file;
  if (mode != kNoMode) mode_ = mode;
  if (file.empty()) return false;
  return load(file, mode);
}

bool uDll::load(const std::string& file, std::uint32_t mode) {
  if (mode == kNoMode) mode_ = 0;
  lastError_.clear();
  loaderMessage_.clear();
  std::uint32_t errorCode = 0;
  handle_ = os().loadLibrary(file.c_str(), errorCode);
  if (handle_ == nullptr) {
    lastError_ = "failed to load " + file + " with error code " + std::to_string(errorCode);
    loaderMessage_ = os().lastLoadFailure();
    if (uLogger* log = LogControl::Instance().LoggerAt(1)) {
      log->Printf(kLogMessage, kStampTime, "uDll: %s", lastError_.c_str());
    }
  }
  return handle_ != nullptr;
}

void* uDll::GetSymbol(const char* exportName) {
  if (handle_ == nullptr || exportName == nullptr) return nullptr;
  lastError_.clear();
  std::uint32_t errorCode = 0;
  void* address = os().librarySymbol(handle_, exportName, errorCode);
  if (address == nullptr) lastError_ = "GetLastError() returned " + std::to_string(static_cast<int>(errorCode));
  return address;
}

}  // namespace KV_ORV
