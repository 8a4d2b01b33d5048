#include "SymbolTable.h"

#include <algorithm>
#include <cstdio>

namespace vestrel::symbols {

SymbolTable::SymbolTable(std::vector<FunctionSymbol> functions, std::vector<std::string> files,
                         std::vector<LineRow> rows)
    : functions_(std::move(functions)), files_(std::move(files)), rows_(std::move(rows)) {
  std::stable_sort(functions_.begin(), functions_.end(),
                   [](const FunctionSymbol& a, const FunctionSymbol& b) { return a.start < b.start; });
  // Two names for one address: the first one given stays.
  functions_.erase(std::unique(functions_.begin(), functions_.end(),
                               [](const FunctionSymbol& a, const FunctionSymbol& b) { return a.start == b.start; }),
                   functions_.end());
  for (std::size_t i = 0; i < functions_.size(); ++i) {
    if (functions_[i].size == 0 && i + 1 < functions_.size()) {
      functions_[i].size = functions_[i + 1].start - functions_[i].start;
    }
  }
  // An end row sorts before a row that starts the next sequence at the same
  // address, so that the address belongs to the new sequence.
  std::stable_sort(rows_.begin(), rows_.end(), [](const LineRow& a, const LineRow& b) {
    return a.address != b.address ? a.address < b.address : a.end && !b.end;
  });
  rows_.erase(
      std::remove_if(rows_.begin(), rows_.end(), [this](const LineRow& row) { return row.file >= files_.size(); }),
      rows_.end());
}

const FunctionSymbol* SymbolTable::functionAt(std::uint32_t address) const {
  auto after = std::upper_bound(functions_.begin(), functions_.end(), address,
                                [](std::uint32_t a, const FunctionSymbol& f) { return a < f.start; });
  if (after == functions_.begin()) return nullptr;
  const FunctionSymbol& candidate = *(after - 1);
  return address - candidate.start < candidate.size ? &candidate : nullptr;
}

std::optional<SourceLine> SymbolTable::lineAt(std::uint32_t address) const {
  auto after = std::upper_bound(rows_.begin(), rows_.end(), address,
                                [](std::uint32_t a, const LineRow& row) { return a < row.address; });
  if (after == rows_.begin()) return std::nullopt;
  const LineRow& row = *(after - 1);
  if (row.end) return std::nullopt;
  return SourceLine{&files_[row.file], row.line};
}

std::string SymbolTable::describe(std::uint32_t address) const {
  const FunctionSymbol* function = functionAt(address);
  if (function == nullptr) return "";
  std::string text = function->name;
  if (address != function->start) {
    char offset[16];
    std::snprintf(offset, sizeof offset, "+0x%X", static_cast<unsigned>(address - function->start));
    text += offset;
  }
  if (const auto line = lineAt(address)) text += " (" + baseName(*line->file) + ":" + std::to_string(line->line) + ")";
  return text;
}

std::string baseName(const std::string& path) {
  const std::size_t slash = path.find_last_of("/\\");
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace vestrel::symbols
