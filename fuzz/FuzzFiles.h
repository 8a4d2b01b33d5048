// A scratch file for fuzz inputs that must come from a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

namespace vestrel_fuzz {

inline std::string scratchFile(const char* name, const std::uint8_t* data, std::size_t size) {
  const auto dir = std::filesystem::temp_directory_path() / "vestrel-fuzz";
  std::filesystem::create_directories(dir);
  const std::string path = (dir / name).string();
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  return path;
}

}  // namespace vestrel_fuzz
