// A minimal 32-bit little-endian ARM ELF file with the function symbols
// given and nothing else (no code, no DWARF): enough for the symbol reader,
// written byte by byte so that names may hold any bytes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vestrel_test {

struct ElfFunction {
  std::string name;
  std::uint32_t address, size;
};

inline std::string minimalElf(const std::vector<ElfFunction>& functions) {
  const auto put16 = [](std::string& out, std::uint16_t v) {
    out += static_cast<char>(v & 0xFF);
    out += static_cast<char>(v >> 8);
  };
  const auto put32 = [](std::string& out, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) out += static_cast<char>((v >> (8 * i)) & 0xFF);
  };
  std::string strtab(1, '\0');
  std::string symtab(16, '\0');  // symbol 0 is null
  for (const ElfFunction& f : functions) {
    put32(symtab, static_cast<std::uint32_t>(strtab.size()));
    strtab += f.name + '\0';
    put32(symtab, f.address | 1);  // Thumb
    put32(symtab, f.size);
    symtab += static_cast<char>(0x12);  // global, function
    symtab += '\0';
    put16(symtab, 1);  // defined (section 1)
  }
  const std::string shstrtab = std::string("\0.strtab\0.symtab\0.shstrtab\0", 27);
  const std::uint32_t strtabAt = 52;
  const std::uint32_t symtabAt = strtabAt + static_cast<std::uint32_t>(strtab.size());
  const std::uint32_t shstrtabAt = symtabAt + static_cast<std::uint32_t>(symtab.size());
  const std::uint32_t sectionsAt = shstrtabAt + static_cast<std::uint32_t>(shstrtab.size());
  std::string elf =
      "\x7f"
      "ELF";
  elf += '\x01';  // 32-bit
  elf += '\x01';  // little-endian
  elf += '\x01';  // version
  elf += std::string(9, '\0');
  put16(elf, 2);   // executable
  put16(elf, 40);  // ARM
  put32(elf, 1);   // version
  put32(elf, 0);   // entry
  put32(elf, 0);   // program headers
  put32(elf, sectionsAt);
  put32(elf, 0x05000000);  // flags: EABI 5
  put16(elf, 52);          // header size
  put16(elf, 32);          // program header size
  put16(elf, 0);
  put16(elf, 40);  // section header size
  put16(elf, 4);   // sections
  put16(elf, 3);   // .shstrtab
  elf += strtab + symtab + shstrtab;
  const auto section = [&](std::uint32_t name, std::uint32_t type, std::uint32_t at, std::uint32_t size,
                           std::uint32_t link, std::uint32_t info, std::uint32_t entry) {
    put32(elf, name);
    put32(elf, type);
    put32(elf, 0);  // flags
    put32(elf, 0);  // address
    put32(elf, at);
    put32(elf, size);
    put32(elf, link);
    put32(elf, info);
    put32(elf, 1);  // alignment
    put32(elf, entry);
  };
  section(0, 0, 0, 0, 0, 0, 0);
  section(1, 3, strtabAt, static_cast<std::uint32_t>(strtab.size()), 0, 0, 0);       // .strtab
  section(9, 2, symtabAt, static_cast<std::uint32_t>(symtab.size()), 1, 1, 16);      // .symtab
  section(17, 3, shstrtabAt, static_cast<std::uint32_t>(shstrtab.size()), 0, 0, 0);  // .shstrtab
  return elf;
}

}  // namespace vestrel_test
