#include "OutputBuffer.h"

#include <algorithm>
#include <cmath>

namespace vestrel::decoder {

OutputBuffer::OutputBuffer(std::FILE* file, std::size_t flushAt)
    : file_(file), flushAt_(file != nullptr ? flushAt : SIZE_MAX) {
  data_.resize(file != nullptr ? flushAt + 4096 : 4096);
}

OutputBuffer::~OutputBuffer() { flush(); }

void OutputBuffer::appendDecimal(std::uint64_t value) {
  static const char kPairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
      "8081828384858687888990919293949596979899";
  char digits[20];
  char* end = digits + sizeof digits;
  char* at = end;
  while (value >= 100) {
    const auto pair = static_cast<unsigned>(value % 100) * 2;
    value /= 100;
    *--at = kPairs[pair + 1];
    *--at = kPairs[pair];
  }
  if (value >= 10) {
    const auto pair = static_cast<unsigned>(value) * 2;
    *--at = kPairs[pair + 1];
    *--at = kPairs[pair];
  } else {
    *--at = static_cast<char>('0' + value);
  }
  append(std::string_view(at, static_cast<std::size_t>(end - at)));
}

void OutputBuffer::appendFixed(double value, int decimals) {
  if (!std::isfinite(value)) {
    append("null");
    return;
  }
  // The largest double has 309 digits before the point: every value fits.
  char text[330];
  const int length = std::snprintf(text, sizeof text, "%.*f", std::clamp(decimals, 0, 9), value);
  if (length > 0) append(std::string_view(text, std::min(static_cast<std::size_t>(length), sizeof text - 1)));
}

void OutputBuffer::appendHex(std::uint64_t value, int digits) {
  static const char kDigits[] = "0123456789ABCDEF";
  char text[20];
  char* end = text + sizeof text;
  char* at = end;
  int count = 0;
  do {
    *--at = kDigits[value & 0x0F];
    value >>= 4;
    ++count;
  } while (value != 0);
  for (; count < digits && count < 16; ++count) *--at = '0';
  *--at = 'x';
  *--at = '0';
  append(std::string_view(at, static_cast<std::size_t>(end - at)));
}

bool OutputBuffer::flush() {
  if (file_ == nullptr) return !failed_;
  if (size_ != 0 && !failed_) {
    if (std::fwrite(data_.data(), 1, size_, file_) != size_) failed_ = true;
  }
  size_ = 0;
  if (!failed_ && std::fflush(file_) != 0) failed_ = true;
  return !failed_;
}

}  // namespace vestrel::decoder
