#include <stdio.h>
#include <sys/stat.h>

#include "../NativePlatform.h"

namespace KV_ORV::native {

// POSIX streams never lock other processes out, so the plain open is already
// the shared one.
std::FILE* openSharedStream(const char* path, const char* mode) { return std::fopen(path, mode); }

std::int64_t streamLength(std::FILE* stream) {
  struct stat status;
  if (fstat(fileno(stream), &status) != 0) return -1;
  return static_cast<std::int64_t>(status.st_size);
}

bool seekStream(std::FILE* stream, std::uint64_t offset) {
  return offset <= static_cast<std::uint64_t>(INT64_MAX) && fseeko(stream, static_cast<off_t>(offset), SEEK_SET) == 0;
}

// USERPROFILE wins when set (a Windows-style set-up); HOME is the native one.
std::vector<const char*> profileVariables() { return {"USERPROFILE", "HOME"}; }

char pathSeparator() { return '/'; }

// Libraries are named lib<name>.so here. A name given with the Windows ending
// (ICETargetAdapter.dll) names the same library; one that is already a shared
// object file name stays as it is.
std::string platformLibraryName(const char* name) {
  std::string file = name != nullptr ? name : "";
  if (file.empty()) return file;
  auto endsWith = [&](const std::string& suffix) {
    return file.size() >= suffix.size() && file.compare(file.size() - suffix.size(), suffix.size(), suffix) == 0;
  };
  if (endsWith(".so")) return file;
  if (endsWith(".dll")) file.resize(file.size() - 4);
  return "lib" + file + ".so";
}

}  // namespace KV_ORV::native
