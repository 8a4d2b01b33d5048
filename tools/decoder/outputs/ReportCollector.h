// Gathers what the HTML report shows while a capture is decoded: handler
// runs (for the timeline), a summary per exception, overflow and sync-loss
// markers, and each stimulus port's text lines. Everything is bounded: past
// its limit a list keeps counting but stops growing, and the report says how
// much it does not show.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "HandlerStack.h"
#include "ItmDecoder.h"
#include "PacketTimer.h"
#include "Profile.h"
#include "StimulusLines.h"
#include "Timing.h"

namespace vestrel::decoder {

struct ReportLimits {
  std::size_t runs = 20000;         // handler runs drawn on the timeline
  std::size_t markers = 1000;       // overflow and sync-loss markers
  std::size_t linesPerPort = 1000;  // text lines shown per port
  std::size_t lineLength = 500;     // characters shown per line
};

struct ExceptionSummary {
  std::uint64_t runs = 0;
  std::uint64_t cycles = 0;  // time inside, pre-emptions included
  std::uint32_t deepest = 0;
};

struct ReportMarker {
  std::uint64_t cycles = 0;
  std::string what;
};

struct PortText {
  std::vector<std::string> lines;     // the first ReportLimits::linesPerPort
  std::vector<std::uint64_t> cycles;  // when each of them ended
  std::uint64_t total = 0;
  std::uint64_t shortened = 0;  // lines cut at ReportLimits::lineLength
};

struct ReportData {
  std::string source;  // what was decoded, for the heading
  Timing timing;
  ReportLimits limits;
  bool timed = false;  // some packet carried a time
  std::uint64_t firstCycles = 0, lastCycles = 0;
  std::vector<HandlerRun> runs;  // in the order they ended
  std::uint64_t runsTotal = 0;
  std::map<std::uint16_t, ExceptionSummary> exceptions;
  std::vector<ReportMarker> markers;
  std::uint64_t markersTotal = 0;
  std::map<std::uint32_t, PortText> ports;
  DecoderStatistics statistics;
  ProfileReport profile;
  bool named = false;  // the profile has function names
};

class ReportCollector {
 public:
  ReportCollector(std::string source, Timing timing, ReportLimits limits = {});

  void write(const Packet& packet, PacketTime time);
  // Closes what is still open; the data is then complete.
  void finish(const DecoderStatistics& statistics, ProfileReport profile, bool named);
  const ReportData& data() const { return data_; }

 private:
  void seen(std::uint64_t cycles);
  void ended(const HandlerRun& run);
  void marker(std::uint64_t cycles, std::string what);
  void line(const StimulusLines::Line& line);

  ReportData data_;
  HandlerStack handlers_;
  StimulusLines lines_;
};

}  // namespace vestrel::decoder
