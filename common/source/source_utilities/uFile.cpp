#include "uFile.h"

#include "NativePlatform.h"

namespace KV_ORV {

uFile::uFile(const char* path, const char* mode) : path_(path != nullptr ? path : ""), mode_(mode ? mode : "") {}

bool uFile::open(const char* path, const char* mode) {
  uLockGuard guard(lock_);
  if (stream_ != nullptr) {
    std::fclose(stream_);
    stream_ = nullptr;
  }
  if (path != nullptr) path_ = path;
  mode_ = mode != nullptr ? mode : "";
  stream_ = native::openSharedStream(path_.c_str(), mode_.c_str());
  isOpen_ = stream_ != nullptr;
  return isOpen_;
}

std::size_t uFile::write(const void* buffer, std::size_t count) {
  if (!isOpen_ || buffer == nullptr) return 0;
  uLockGuard guard(lock_);
  if (stream_ == nullptr) return 0;
  return std::fwrite(buffer, 1, count, stream_);
}

std::size_t uFile::read(void* buffer, std::size_t count) {
  if (!isOpen_ || buffer == nullptr) return 0;
  uLockGuard guard(lock_);
  if (stream_ == nullptr) return 0;
  return std::fread(buffer, 1, count, stream_);
}

bool uFile::writeText(const char* text) {
  if (!isOpen_ || text == nullptr) return false;
  uLockGuard guard(lock_);
  if (stream_ == nullptr) return false;
  return std::fputs(text, stream_) >= 0;
}

bool uFile::flush() {
  if (!isOpen_) return false;
  uLockGuard guard(lock_);
  if (stream_ == nullptr) return false;
  return std::fflush(stream_) == 0;
}

bool uFile::close() {
  uLockGuard guard(lock_);
  if (stream_ == nullptr) return false;
  isOpen_ = std::fclose(stream_) != 0;
  stream_ = nullptr;
  return true;
}

std::int64_t uFile::length() const {
  std::FILE* stream = stream_;
  return stream != nullptr ? native::streamLength(stream) : -1;
}

}  // namespace KV_ORV
