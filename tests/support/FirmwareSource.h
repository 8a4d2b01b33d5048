// Lines of the demo firmware's assembler source, found by their text, so
// that tests of line information follow the source when it changes. The
// including test defines VESTREL_DEMO_FIRMWARE_SOURCE.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>

namespace vestrel_test {

// The first line (1-based) that holds part; 0 if none.
inline std::uint32_t firmwareLineHolding(const std::string& part) {
  std::ifstream source(VESTREL_DEMO_FIRMWARE_SOURCE);
  std::string text;
  for (std::uint32_t number = 1; std::getline(source, text); ++number) {
    if (text.find(part) != std::string::npos) return number;
  }
  return 0;
}

// The line of the first instruction after "label:"; 0 if no such label.
inline std::uint32_t firmwareLineAfterLabel(const std::string& label) {
  std::ifstream source(VESTREL_DEMO_FIRMWARE_SOURCE);
  std::string text;
  for (std::uint32_t number = 1; std::getline(source, text); ++number) {
    if (text == label + ":") return number + 1;
  }
  return 0;
}

}  // namespace vestrel_test
