// Text from outside (a target's stimulus ports, an ELF file's names, a GDB
// server's replies) made safe to show a person: terminal control characters
// (escape, bell, backspace, carriage return...) become \xHH so that no input
// can drive the user's terminal; tabs and every byte from 0x80 on (UTF-8)
// pass as they are.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vestrel::printable_text {

constexpr bool needsEscape(unsigned char byte) { return (byte < 0x20 && byte != '\t') || byte == 0x7F; }
void appendPrintable(std::string& out, std::string_view text);
std::string printable(std::string_view text);

// A 32-bit address or word as people read them in a debugger: "0x2000001C".
std::string hexWord(std::uint32_t value);

}  // namespace vestrel::printable_text
