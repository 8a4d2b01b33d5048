#include "StimulusLines.h"

namespace vestrel::decoder {

std::size_t StimulusLines::partEnd(const std::string& text) {
  std::size_t start = text.size();
  while (start > 0 && text.size() - start < 4 && (static_cast<unsigned char>(text[start - 1]) & 0xC0) == 0x80) {
    --start;
  }
  if (start == 0) return text.size();
  const auto lead = static_cast<unsigned char>(text[start - 1]);
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
  return start - 1 + length > text.size() ? start - 1 : text.size();
}

}  // namespace vestrel::decoder
