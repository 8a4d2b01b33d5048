#include <io.h>
#include <share.h>

#include <cstdint>
#include <cstdio>

#include "../NativePlatform.h"

namespace KV_ORV::native {

std::FILE* openSharedStream(const char* path, const char* mode) { return _fsopen(path, mode, _SH_DENYNO); }

std::int64_t streamLength(std::FILE* stream) { return _filelengthi64(_fileno(stream)); }

bool seekStream(std::FILE* stream, std::uint64_t offset) {
  return offset <= static_cast<std::uint64_t>(INT64_MAX) &&
         _fseeki64(stream, static_cast<__int64>(offset), SEEK_SET) == 0;
}

std::vector<const char*> profileVariables() { return {"USERPROFILE"}; }

char pathSeparator() { return '\\'; }

std::string platformLibraryName(const char* name) {
  std::string file = name != nullptr ? name : "";
  const std::string suffix = ".dll";
  if (file.size() >= suffix.size() && file.compare(file.size() - suffix.size(), suffix.size(), suffix) == 0) {
    return file;
  }
  return file + suffix;
}

}  // namespace KV_ORV::native
