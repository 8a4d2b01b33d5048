// Which file an open stream or a path is (device and inode, or volume and
// file index under Windows), so that a file followed as it grows is known
// to have been replaced by another under the same name.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

namespace vestrel::decoder {

struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t file = 0;
  bool operator==(const FileIdentity&) const = default;
};

std::optional<FileIdentity> identityOf(std::FILE* stream);
std::optional<FileIdentity> identityOf(const std::string& path);

}  // namespace vestrel::decoder
