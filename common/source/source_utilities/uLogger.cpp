#include "uLogger.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "OsServices.h"
#include "uTime.h"

namespace KV_ORV {

namespace {

const char* stampPattern(std::uint32_t category) {
  switch (category) {
    case kStampDate:
      return "%m/%d/%y | ";
    case kStampTime:
      return "%H:%M:%S:%s | ";
    case kStampDateTime:
      return "%m/%d/%y %H:%M:%S:%s | ";
    default:
      return " ";
  }
}

}  // namespace

uLogger::uLogger(const char* path, bool append)
    : path_(path != nullptr ? path : ""), append_(append), buffer_(new char[bufferSize_]) {
  line_.reserve(bufferSize_ + 1);
}

uLogger::~uLogger() {
  file_.close();
  fileOpen_ = false;
}

void uLogger::Printf(std::uint32_t levelValue, std::uint32_t categoryValue, const char* format, ...) {
  if (!enabled_ || levelValue == 0 || levelMask_ == 0 || format == nullptr) return;
  uLockGuard guard(lock_);

  char* buffer = buffer_.get();
  static const char kLetters[5] = {'M', 'W', 'F', 'A', 'E'};
  for (int bit = 0; bit < 5; ++bit) buffer[bit] = (levelValue & (1u << bit)) != 0 ? kLetters[bit] : ' ';
  buffer[5] = ' ';
  buffer[6] = '\0';
  std::size_t used = 6;

  uTime now;
  if (now.format(buffer + used, static_cast<int>(bufferSize_ - used), stampPattern(categoryValue)) != nullptr) {
    used += std::strlen(buffer + used);
  }

  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int needed = std::vsnprintf(buffer + used, bufferSize_ - used, format, arguments);
  va_end(arguments);
  if (needed < 0) {
    va_end(again);
    return;
  }
  if (used + static_cast<std::size_t>(needed) < bufferSize_) {
    va_end(again);
    Write(buffer, used + static_cast<std::size_t>(needed));
    return;
  }
  // A line longer than the buffer is written whole, not cut.
  std::string longLine(buffer, used);
  longLine.resize(used + static_cast<std::size_t>(needed) + 1);
  std::vsnprintf(longLine.data() + used, static_cast<std::size_t>(needed) + 1, format, again);
  va_end(again);
  longLine.resize(used + static_cast<std::size_t>(needed));
  Write(longLine.c_str(), longLine.size());
}

std::size_t uLogger::Write(const char* text, std::size_t length) {
  if (!enabled_ || text == nullptr) return length;
  uLockGuard guard(lock_);
  if (length == 0) length = std::strlen(text);

  if (!fileOpen_) fileOpen_ = file_.open(path_.c_str(), append_ ? "a+" : "w+");

  // Whatever line end the caller used (none, "\n", "\r\n" or "\n\r"), the
  // file gets exactly one newline.
  std::size_t end = length;
  if (end > 0 && (text[end - 1] == '\n' || text[end - 1] == '\r')) {
    const char last = text[--end];
    const char pair = last == '\n' ? '\r' : '\n';
    if (end > 0 && text[end - 1] == pair) --end;
  }
  line_.assign(text, end);
  line_ += '\n';

  file_.write(line_.data(), line_.size());
  file_.flush();
  if (echoConsole_) {
    std::printf("%s", line_.c_str());
    std::fflush(stdout);
  }
  if (debuggerOutput_) os().debuggerOutput(line_.c_str());
  return line_.size();
}

bool uLogger::SetEnabled(bool on) {
  uLockGuard guard(lock_);
  const bool previous = enabled_;
  enabled_ = on;
  if (!on) {
    file_.close();
    fileOpen_ = false;
  }
  return previous;
}

void uLogger::SetEchoConsole(bool on) {
  uLockGuard guard(lock_);
  echoConsole_ = on;
}

void uLogger::SetDebuggerOutput(bool on) {
  uLockGuard guard(lock_);
  debuggerOutput_ = on;
}

}  // namespace KV_ORV
