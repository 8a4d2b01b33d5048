#include "ProgramFolder.h"

#include <windows.h>

#include <vector>

namespace vestrel::host {

std::filesystem::path programFolder() {
  std::vector<wchar_t> buffer(MAX_PATH);
  for (;;) {
    const DWORD length = GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) return {};
    if (length < buffer.size()) return std::filesystem::path(std::wstring(buffer.data(), length)).parent_path();
    buffer.resize(buffer.size() * 2);  // the path was cut: try a larger buffer
  }
}

}  // namespace vestrel::host
