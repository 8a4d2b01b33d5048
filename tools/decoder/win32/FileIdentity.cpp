#include "FileIdentity.h"

#include <io.h>
#include <windows.h>

namespace vestrel::decoder {

namespace {

std::optional<FileIdentity> identityOfHandle(HANDLE handle) {
  BY_HANDLE_FILE_INFORMATION information{};
  if (handle == INVALID_HANDLE_VALUE || !GetFileInformationByHandle(handle, &information)) return std::nullopt;
  return FileIdentity{information.dwVolumeSerialNumber,
                      (static_cast<std::uint64_t>(information.nFileIndexHigh) << 32) | information.nFileIndexLow};
}

}  // namespace

std::optional<FileIdentity> identityOf(std::FILE* stream) {
  if (stream == nullptr) return std::nullopt;
  return identityOfHandle(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream))));
}

std::optional<FileIdentity> identityOf(const std::string& path) {
  // Opened for no access at all: sharing never stands in the way.
  const HANDLE handle = CreateFileA(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return std::nullopt;
  const auto identity = identityOfHandle(handle);
  CloseHandle(handle);
  return identity;
}

}  // namespace vestrel::decoder
