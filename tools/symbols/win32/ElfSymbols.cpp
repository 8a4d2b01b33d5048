// The Windows build of the tools has no ELF and DWARF reader (elfutils is
// built for Linux only); names and lines come from the Linux build.
#include "ElfSymbols.h"

#include <stdexcept>

namespace vestrel::symbols {

bool elfSymbolsAvailable() { return false; }

SymbolTable loadElfSymbols(const std::string&) {
  throw std::runtime_error(
      "--elf is not available in the Windows build (it reads ELF and DWARF with elfutils, which is built for Linux "
      "only); decode on Linux for function names and lines");
}

}  // namespace vestrel::symbols
