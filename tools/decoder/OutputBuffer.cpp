#include "OutputBuffer.h"

namespace vestrel::decode {

OutputBuffer::OutputBuffer(std::FILE* file, std::size_t flushAt) : file_(file), flushAt_(flushAt) {
  data_.reserve(file != nullptr ? flushAt + 4096 : 4096);
}

OutputBuffer::~OutputBuffer() { flush(); }

void OutputBuffer::appendDecimal(std::uint64_t value) {
  char digits[20];
  int count = 0;
  do {
    digits[count++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  while (count > 0) data_.push_back(digits[--count]);
}

void OutputBuffer::appendHex(std::uint64_t value, int digits) {
  static const char kDigits[] = "0123456789ABCDEF";
  char text[18];
  int count = 0;
  do {
    text[count++] = kDigits[value & 0x0F];
    value >>= 4;
  } while (value != 0);
  data_.append("0x");
  for (int pad = count; pad < digits; ++pad) data_.push_back('0');
  while (count > 0) data_.push_back(text[--count]);
}

bool OutputBuffer::flush() {
  if (file_ == nullptr) return !failed_;
  if (!data_.empty() && !failed_) {
    if (std::fwrite(data_.data(), 1, data_.size(), file_) != data_.size()) failed_ = true;
  }
  data_.clear();
  if (!failed_ && std::fflush(file_) != 0) failed_ = true;
  return !failed_;
}

}  // namespace vestrel::decode
