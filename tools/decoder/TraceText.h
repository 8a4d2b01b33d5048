// Turns decoded packets into what a person reads: stimulus-port text joined
// per port and ended at each newline, exceptions with their names, times in
// cycles (and seconds, given the clock and timestamp prescale), or one JSON
// object per packet.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <string>

#include "ItmDecoder.h"

namespace vestrel::decode {

// The architectural name of an exception number ("SysTick", "IRQ 3").
std::string exceptionName(std::uint32_t number);

class TextWriter {
 public:
  struct Timing {
    std::optional<double> clockHz;  // with it, times are also given in seconds
    std::uint32_t timestampPrescale = 1;
  };
  TextWriter(std::ostream& out, Timing timing) : out_(out), timing_(timing) {}

  void write(const Packet& packet);
  // Writes stimulus text still waiting for its newline.
  void flush();

 private:
  void line(const std::string& text);
  static void appendPrintable(std::string& text, char c);
  std::string when() const;

  std::ostream& out_;
  Timing timing_;
  std::map<std::uint32_t, std::string> pendingText_;  // per stimulus port
  std::uint64_t cycles_ = 0;                          // sum of local timestamps
};

// One JSON object per packet, on a line of its own.
std::string toJson(const Packet& packet);

// A summary of the statistics, one "name: count" per line.
void writeStatistics(std::ostream& out, const DecoderStatistics& statistics);
// The same as one JSON object of kind "statistics", for JSON Lines output.
std::string statisticsJson(const DecoderStatistics& statistics);

}  // namespace vestrel::decode
