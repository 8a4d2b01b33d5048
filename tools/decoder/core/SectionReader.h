// Finds a named section of a TDF file in a stream read block by block (its
// header: length, version, name length, name; all little-endian 32-bit) and
// passes on only the section's data, in pieces as they come. Memory stays
// at the header's size whatever the file's.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace vestrel::decoder {

class SectionReader {
 public:
  explicit SectionReader(std::string name) : name_(std::move(name)), headerSize_(12 + name_.size()) {}

  template <typename Data>
  void feed(const std::uint8_t* bytes, std::size_t size, Data data) {
    std::size_t at = 0;
    while (at < size) {
      if (found_) {
        const std::size_t take = static_cast<std::size_t>(std::min<std::uint64_t>(remaining_, size - at));
        if (take > 0) data(bytes + at, take);
        remaining_ -= take;
        return;
      }
      // Searching: a window of the last header-size bytes.
      window_.push_back(static_cast<char>(bytes[at++]));
      if (window_.size() > headerSize_) window_.erase(0, window_.size() - headerSize_);
      if (window_.size() == headerSize_ && matches()) found_ = true;
    }
  }
  bool found() const { return found_; }
  bool complete() const { return found_ && remaining_ == 0; }

 private:
  std::uint32_t word(std::size_t offset) const {
    std::uint32_t value = 0;
    std::memcpy(&value, window_.data() + offset, 4);
    return value;  // little-endian, as every machine this runs on
  }
  bool matches() {
    if (window_.compare(12, std::string::npos, name_) != 0) return false;
    if (word(8) != name_.size()) return false;
    const std::uint32_t length = word(0);
    if (length < headerSize_) return false;
    remaining_ = length - headerSize_;
    return true;
  }

  std::string name_;
  std::size_t headerSize_;
  std::string window_;
  bool found_ = false;
  std::uint64_t remaining_ = 0;
};

}  // namespace vestrel::decoder
