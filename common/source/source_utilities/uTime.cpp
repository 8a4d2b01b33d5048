#include "uTime.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>

#include "OsServices.h"

namespace KV_ORV {

namespace {

enum class State { Valid = 0, Invalid = 1, Unavailable = 2 };

struct Record {
  LocalTime time;
  int dayOfYear = 0;
  State state = State::Invalid;
};

// The record is shared by every uTime of the process. The lock only keeps a
// capture on one thread from being read half-written by another.
std::mutex recordLock;
Record record;

Record snapshot() {
  std::lock_guard<std::mutex> guard(recordLock);
  return record;
}

// Cumulative days before each month. The log time stamps have always used
// the first table in years not divisible by 4 and the second in the others,
// with no century rule and the count starting at 1; "%j" output depends on
// it, so it stays that way.
constexpr int kDaysBeforeMonthA[12] = {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335};
constexpr int kDaysBeforeMonthB[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};

// Replaces every placeholder in buffer with the digits, but only when the
// whole result still fits in size bytes.
void substitute(char* buffer, int size, const char* placeholder, const char* digits) {
  std::string text(buffer);
  if (text.find(placeholder) == std::string::npos) return;
  std::string replaced;
  const std::size_t placeholderLength = std::strlen(placeholder);
  std::size_t from = 0;
  for (std::size_t at; (at = text.find(placeholder, from)) != std::string::npos; from = at + placeholderLength) {
    replaced.append(text, from, at - from).append(digits);
  }
  replaced.append(text, from, std::string::npos);
  if (replaced.size() + 1 > static_cast<std::size_t>(size)) return;
  std::memcpy(buffer, replaced.c_str(), replaced.size() + 1);
}

}  // namespace

uTime::uTime() {
  const LocalTime now = os().localTime();
  std::lock_guard<std::mutex> guard(recordLock);
  const bool firstCapture = record.state == State::Invalid;
  int dayOfYear = 0;
  if (!firstCapture && now.month >= 1 && now.month <= 12) {
    const int* table = (now.year % 4 != 0) ? kDaysBeforeMonthA : kDaysBeforeMonthB;
    dayOfYear = now.day + table[now.month - 1];
  }
  record.time = now;
  record.dayOfYear = dayOfYear;
  record.state = State::Valid;
}

char* uTime::formatShared(char* buffer, int size, const char* pattern) {
  const Record captured = snapshot();
  if (buffer == nullptr || size <= 0 || captured.state == State::Unavailable) return nullptr;
  const std::size_t room = static_cast<std::size_t>(size);
  if (captured.state == State::Invalid) {
    std::snprintf(buffer, room, "%s", "Invalid time");
    return buffer;
  }
  std::snprintf(buffer, room, "%s", pattern != nullptr ? pattern : "");

  char padded[16];
  char unpadded[16];
  std::snprintf(padded, sizeof padded, "%03d", captured.time.milliseconds);
  std::snprintf(unpadded, sizeof unpadded, "%d", captured.time.milliseconds);
  substitute(buffer, size, "%s", padded);
  substitute(buffer, size, "%#s", unpadded);

  std::tm calendar{};
  calendar.tm_sec = captured.time.second;
  calendar.tm_min = captured.time.minute;
  calendar.tm_hour = captured.time.hour;
  calendar.tm_mday = captured.time.day;
  calendar.tm_mon = captured.time.month - 1;
  calendar.tm_year = captured.time.year - 1900;
  calendar.tm_wday = captured.time.dayOfWeek;
  calendar.tm_yday = captured.dayOfYear;
  calendar.tm_isdst = 0;

  const std::string expanded(buffer);
  // strftime leaves the buffer undefined when the result does not fit: hand
  // back an empty text then rather than a cut or garbled one.
  if (std::strftime(buffer, room, expanded.c_str(), &calendar) == 0) buffer[0] = '\0';
  return buffer;
}

int uTime::day() const { return snapshot().time.day; }
int uTime::month() const { return snapshot().time.month; }
int uTime::year() const { return snapshot().time.year; }
int uTime::milliseconds() const { return snapshot().time.milliseconds; }
int uTime::dayOfYear() const { return snapshot().dayOfYear; }

}  // namespace KV_ORV
