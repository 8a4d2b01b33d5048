// Reads a firmware image's function symbols and line table from an ELF file
// (32- or 64-bit, any byte order; Thumb addresses have bit 0 cleared).
// Control characters in names are escaped as \xHH (they reach terminals).
// Only a regular file is read (a FIFO is refused, not waited on). The
// Linux build reads it with elfutils; the Windows build has no ELF reader and
// says so.
#pragma once

#include <string>

#include "SymbolTable.h"

namespace vestrel::symbols {

// True when this build can read ELF files.
bool elfSymbolsAvailable();

// Throws std::runtime_error with the path and the reason when the file
// cannot be read, is no ELF file, or this build cannot read ELF files.
SymbolTable loadElfSymbols(const std::string& path);

}  // namespace vestrel::symbols
