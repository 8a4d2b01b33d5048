#include "TraceEnvironment.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include "NativePlatform.h"
#include "OsServices.h"
#include "uString.h"

namespace KV_ORV {

namespace {

const std::string& separator() {
  static const std::string text(1, native::pathSeparator());
  return text;
}

const char* foreignSeparator() { return native::pathSeparator() == '\\' ? "/" : "\\"; }

std::string& traceSubdirectory(std::string& out, const char* subdirectory) {
  GetTraceBaseDirectory(out);
  if (subdirectory != nullptr) AppendPath(out, subdirectory);
  CreateDirectories(out.c_str());
  return out;
}

}  // namespace

std::string& GetTraceBaseDirectory(std::string& out) {
  std::string profile;
  for (const char* variable : native::profileVariables()) {
    profile = GetEnv(variable);
    if (!profile.empty()) break;
  }
  if (profile.empty()) throw source_utilities_error("failed to read environment variable \"USERPROFILE\"");
  out = profile;
  AppendPath(out, ".KV-trace");
  return out;
}

std::string& GetTraceDirectory(std::string& out) { return traceSubdirectory(out, nullptr); }
std::string& GetTraceDataDirectory(std::string& out) { return traceSubdirectory(out, "data"); }
std::string& GetTraceSettingsDirectory(std::string& out) { return traceSubdirectory(out, "settings"); }

void AppendPath(std::string& path, const char* component) {
  if (!path.empty() && path.back() != native::pathSeparator()) path += separator();
  if (component != nullptr) path += component;
  NormalisePath(path);
}

void NormalisePath(std::string& path) {
  uString::replaceAll(path, foreignSeparator(), separator().c_str());
  const std::string doubled = separator() + separator();
  std::string before;
  do {
    before = path;
    uString::replaceAll(path, doubled.c_str(), separator().c_str());
  } while (path != before);
}

int CreateDirectories(const char* path) {
  if (path == nullptr) return -1;
  std::vector<std::string> components;
  uString::tokenize(components, path, separator().c_str());
  std::string prefix;
  int result = -1;
  for (const std::string& component : components) {
    prefix += component;
    prefix += separator();
    if (component.empty() || component.back() == ':') continue;
    result = os().makeDirectory(prefix.c_str());
  }
  return result;
}

const char* GetEnv(const char* name) {
  if (name == nullptr) throw source_utilities_error("failed set an environment variable name to null");
  std::string value;
  os().getEnvironmentVariable(name, value);

  // Each thread keeps its latest result, so that two threads never overwrite
  // the text the other was handed. The lock guards the map's shape only.
  static std::mutex resultsLock;
  static std::map<std::uint32_t, std::string> results;
  std::lock_guard<std::mutex> guard(resultsLock);
  std::string& entry = results[native::currentThreadId()];
  entry = std::move(value);
  return entry.c_str();
}

void SetEnv(const char* name, const char* value) {
  if (name == nullptr) throw source_utilities_error("failed set an environment variable name to null");
  if (value == nullptr) throw source_utilities_error("failed set an environment variable value to null");
  os().setEnvironmentVariable(name, value);
}

std::string& GetCurrentDir(std::string& out) {
  if (!os().currentDirectory(out)) throw source_utilities_error("failed to get current working directory");
  return out;
}

}  // namespace KV_ORV
