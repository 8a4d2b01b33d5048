// Function names and source lines of a firmware image, looked up by address:
// which function a PC sample fell in, and on which line. Built from an ELF
// file (ElfSymbols.h) or, in tests and simulations, from lists.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vestrel::symbols {

struct FunctionSymbol {
  std::string name;
  std::uint32_t start = 0;  // Thumb bit cleared
  std::uint32_t size = 0;
};

// A row of a line table: the instructions from address up to the next row's
// address come from file:line; an end row closes a sequence.
struct LineRow {
  std::uint32_t address = 0;
  std::uint32_t file = 0;  // index into the file names
  std::uint32_t line = 0;
  bool end = false;
};

struct SourceLine {
  const std::string* file = nullptr;  // as the debug information names it
  std::uint32_t line = 0;
  bool operator==(const SourceLine& other) const { return file == other.file && line == other.line; }
};

class SymbolTable {
 public:
  SymbolTable() = default;
  // Functions in any order; sizes of 0 (a symbol without .size) reach the
  // next function. Rows in any order within each sequence's address range.
  SymbolTable(std::vector<FunctionSymbol> functions, std::vector<std::string> files, std::vector<LineRow> rows);

  // The function whose [start, start + size) holds address; null outside all.
  const FunctionSymbol* functionAt(std::uint32_t address) const;
  // The source line of the instruction at address, if the image says.
  std::optional<SourceLine> lineAt(std::uint32_t address) const;
  // "name+0x4 (file.s:61)", "name", or "" when no function holds address.
  std::string describe(std::uint32_t address) const;

  bool empty() const { return functions_.empty(); }
  std::size_t functionCount() const { return functions_.size(); }
  std::size_t lineRowCount() const { return rows_.size(); }

 private:
  std::vector<FunctionSymbol> functions_;  // by start
  std::vector<std::string> files_;
  std::vector<LineRow> rows_;  // by address
};

// The last part of a path ("demo_firmware.s" for "/src/demo_firmware.s").
std::string baseName(const std::string& path);

}  // namespace vestrel::symbols
