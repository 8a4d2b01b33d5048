// Text gathered in one large buffer and written to a file in big pieces
// (the console and pipes get a few large writes, not one per line), or kept
// in memory when there is no file. Numbers are formatted straight into it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace vestrel::decoder {

class OutputBuffer {
 public:
  // file null: everything stays in text().
  explicit OutputBuffer(std::FILE* file = nullptr, std::size_t flushAt = std::size_t{1} << 20);
  ~OutputBuffer();
  OutputBuffer(const OutputBuffer&) = delete;
  OutputBuffer& operator=(const OutputBuffer&) = delete;

  void append(std::string_view text) {
    room(text.size());
    std::memcpy(data_.data() + size_, text.data(), text.size());
    size_ += text.size();
    if (size_ >= flushAt_) flush();
  }
  void append(char c) {
    room(1);
    data_[size_++] = c;
    if (size_ >= flushAt_) flush();
  }
  void appendDecimal(std::uint64_t value);
  // "0x" and digits upper-case hexadecimal digits, zero-padded.
  void appendHex(std::uint64_t value, int digits);
  // value with decimals digits after the point (at most 9); a value that is
  // no finite number is written null (valid in JSON, plain in text).
  void appendFixed(double value, int decimals);

  // Writes what is gathered to the file and flushes it; false once a write
  // has failed (the rest is then dropped).
  bool flush();
  bool failed() const { return failed_; }
  std::string text() const { return std::string(data_.data(), size_); }
  // Forgets what is gathered (for a caller that took it with text()).
  void clear() { size_ = 0; }

 private:
  void room(std::size_t bytes) {
    if (size_ + bytes > data_.size()) data_.resize(2 * (size_ + bytes));
  }

  std::FILE* file_;
  std::size_t flushAt_;
  std::vector<char> data_;
  std::size_t size_ = 0;
  bool failed_ = false;
};

}  // namespace vestrel::decoder
