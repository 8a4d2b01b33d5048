#include "JsonString.h"

#include <cstdint>
#include <string_view>

namespace vestrel::decoder {

void appendJsonString(OutputBuffer& out, const std::string& text) {
  static const char kDigits[] = "0123456789abcdef";
  auto escapeByte = [&](unsigned char byte) {
    out.append("\\u00");
    out.append(kDigits[byte >> 4]);
    out.append(kDigits[byte & 0x0F]);
  };
  const std::size_t size = text.size();
  for (std::size_t i = 0; i < size;) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x80) {
      if (byte == '"') {
        out.append("\\\"");
      } else if (byte == '\\') {
        out.append("\\\\");
      } else if (byte == '\n') {
        out.append("\\n");
      } else if (byte == '\t') {
        out.append("\\t");
      } else if (byte < 0x20 || byte == 0x7F) {
        escapeByte(byte);
      } else {
        out.append(static_cast<char>(byte));
      }
      ++i;
      continue;
    }
    // A UTF-8 sequence: its length by the lead byte, its continuation bytes
    // 10xxxxxx, no overlong form, no surrogate, nothing above U+10FFFF.
    std::size_t length = 0;
    std::uint32_t code = 0;
    if (byte >= 0xC2 && byte <= 0xDF) {
      length = 2;
      code = byte & 0x1F;
    } else if (byte >= 0xE0 && byte <= 0xEF) {
      length = 3;
      code = byte & 0x0F;
    } else if (byte >= 0xF0 && byte <= 0xF4) {
      length = 4;
      code = byte & 0x07;
    }
    bool valid = length != 0 && i + length <= size;
    for (std::size_t k = 1; valid && k < length; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      valid = (next & 0xC0) == 0x80;
      code = (code << 6) | (next & 0x3F);
    }
    if (valid) {
      valid = !(length == 3 && (code < 0x800 || (code >= 0xD800 && code <= 0xDFFF))) &&
              !(length == 4 && (code < 0x10000 || code > 0x10FFFF));
    }
    if (!valid) {
      escapeByte(byte);
      ++i;
      continue;
    }
    out.append(std::string_view(text.data() + i, length));
    i += length;
  }
}

}  // namespace vestrel::decoder
