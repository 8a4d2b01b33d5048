// The firmware symbol reader (elfutils) on mutated ELF files: read or
// refused with a runtime_error, never a crash; every name it gives is free
// of terminal control characters; lookups anywhere answer.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

#include "ElfSymbols.h"

namespace {

bool printable(const std::string& text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte < 0x20 && c != '\t') || byte == 0x7F) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path =
      (std::filesystem::temp_directory_path() / ("vestrel-fuzz-elf-" + std::to_string(std::random_device{}()) + ".elf"))
          .string();
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return 0;
  std::fwrite(data, 1, size, file);
  std::fclose(file);
  try {
    const vestrel::symbols::SymbolTable symbols = vestrel::symbols::loadElfSymbols(path);
    for (std::uint32_t address : {0u, 1u, 0x100u, 0x8000u, 0x08000000u, 0xFFFFFFFEu}) {
      if (!printable(symbols.describe(address))) std::abort();
    }
  } catch (const std::runtime_error&) {
  }
  return 0;
}
