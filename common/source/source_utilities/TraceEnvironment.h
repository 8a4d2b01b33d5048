// The per-user trace directories and access to environment variables.
// Failures are thrown as source_utilities_error.
#pragma once

#include <string>

#include "source_utilities_error.h"

namespace KV_ORV {

// <profile>\.KV-trace, computed only. The profile is "USERPROFILE".
std::string& GetTraceBaseDirectory(std::string& out);
// The base, data and settings directories, computed and created.
std::string& GetTraceDirectory(std::string& out);
std::string& GetTraceDataDirectory(std::string& out);
std::string& GetTraceSettingsDirectory(std::string& out);

// Joins component to path with one separator, then normalises the result.
void AppendPath(std::string& path, const char* component);
// Turns every separator of the other platform into this platform's and
// collapses doubled separators.
void NormalisePath(std::string& path);
// Creates every level of path from the outside in. Drive components ("C:")
// and empty ones (the root) are never created. Returns the result of the last
// creation: 0 when it made the directory, -1 otherwise (an existing one too).
int CreateDirectories(const char* path);

// The value of an environment variable, empty when unset. The text belongs
// to the calling thread and stays valid until that thread reads another.
const char* GetEnv(const char* name);
void SetEnv(const char* name, const char* value);
std::string& GetCurrentDir(std::string& out);

}  // namespace KV_ORV
