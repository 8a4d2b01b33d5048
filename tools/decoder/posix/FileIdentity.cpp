#include "FileIdentity.h"

#include <sys/stat.h>

namespace vestrel::decoder {

namespace {

FileIdentity identityIn(const struct stat& status) {
  return {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino)};
}

}  // namespace

std::optional<FileIdentity> identityOf(std::FILE* stream) {
  struct stat status {};
  if (stream == nullptr || ::fstat(fileno(stream), &status) != 0) return std::nullopt;
  return identityIn(status);
}

std::optional<FileIdentity> identityOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return identityIn(status);
}

}  // namespace vestrel::decoder
