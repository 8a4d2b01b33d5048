#include "ProgramFolder.h"

#include <system_error>

namespace vestrel::host {

std::filesystem::path programFolder() {
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::filesystem::path() : self.parent_path();
}

}  // namespace vestrel::host
