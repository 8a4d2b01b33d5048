#include "PrintableText.h"

namespace vestrel::printable_text {

void appendPrintable(std::string& out, std::string_view text) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (needsEscape(byte)) {
      out += "\\x";
      out += kDigits[byte >> 4];
      out += kDigits[byte & 0x0F];
    } else {
      out += c;
    }
  }
}

std::string printable(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  appendPrintable(out, text);
  return out;
}

std::string hexWord(std::uint32_t value) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string text = "0x00000000";
  for (int digit = 9; digit >= 2; --digit, value >>= 4) text[static_cast<std::size_t>(digit)] = kDigits[value & 0x0F];
  return text;
}

}  // namespace vestrel::printable_text
