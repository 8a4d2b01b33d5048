// A process-wide local-time stamp for log lines, formatted with strftime
// patterns plus two millisecond placeholders: "%s" (three digits) and "%#s"
// (unpadded).
#pragma once

namespace KV_ORV {

class uTime {
 public:
  // Captures the current local time into the one record that every uTime
  // shares.
  uTime();
  virtual ~uTime() = default;

  // Writes the captured time into buffer (at most size bytes, always
  // terminated). Null when buffer is null, size is not positive or the time
  // is unavailable; "Invalid time" before the first capture.
  char* format(char* buffer, int size, const char* pattern) const { return formatShared(buffer, size, pattern); }
  // The same, for the shared record whether or not any uTime exists yet.
  static char* formatShared(char* buffer, int size, const char* pattern);

  int day() const;
  int month() const;
  int year() const;
  int milliseconds() const;
  // Day number used for the "%j" and week-number patterns: 0 on the first
  // capture of the process; see uTime.cpp for how it is counted.
  int dayOfYear() const;
};

}  // namespace KV_ORV
