// A timeline of the capture in the Chrome trace-event JSON format, which the
// Perfetto UI (ui.perfetto.dev) and chrome://tracing open: exception
// handlers as nested duration slices on the CPU's track, each stimulus
// port's text lines as instant events on a track of its own, chosen ports'
// values as counter tracks, PC samples, and overflows and lost
// synchronisation as markers. Times are microseconds given the clock (and
// timestamp prescale), cycles otherwise; the metadata says which. Every
// slice that begins ends: a handler still open at the end of the capture is
// closed at the last time and marked so.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "HandlerStack.h"
#include "OutputBuffer.h"
#include "PacketSink.h"
#include "PacketTimer.h"
#include "StimulusLines.h"
#include "SymbolTable.h"
#include "Timing.h"

namespace vestrel::decoder {

class PerfettoWriter final : public PacketSink {
 public:
  // symbols (may be null): PC samples are named by their function.
  // At most this many events are written (some 100 bytes each); the rest are
  // counted, and the timeline ends with a marker that says how many.
  static constexpr std::uint64_t kMaxEvents = 500000;

  PerfettoWriter(OutputBuffer& out, Timing timing, std::set<std::uint32_t> counterPorts,
                 const symbols::SymbolTable* symbols = nullptr, std::uint64_t maxEvents = kMaxEvents);

  void write(const Packet& packet, PacketTime time) override;
  // Closes open slices and the document.
  void finish(const DecoderStatistics& statistics) override;
  // Events not written because the timeline was full.
  std::uint64_t leftOut() const { return leftOut_; }

  static constexpr int kCpuTrack = 1;
  static constexpr int kPcTrack = 2;
  static constexpr int kMarkerTrack = 3;
  static constexpr int kFirstPortTrack = 100;  // + port number

 private:
  // False when the event was left out (the timeline is full and it is not
  // one that must be written: the end of a slice whose beginning was).
  bool event(const char* phase, int track, const std::string& name, std::uint64_t cycles, const std::string& args = "",
             bool always = false);
  bool admit(bool always);
  void portValue(const Packet& p, PacketTime when);
  void exception(const Packet& p, std::uint64_t cycles);
  void pcSample(const Packet& p, std::uint64_t cycles);
  void closeRun(const HandlerRun& run);
  void trackName(int track, const std::string& name);
  void time(std::uint64_t cycles);

  OutputBuffer& out_;
  Timing timing_;
  std::set<std::uint32_t> counterPorts_;
  const symbols::SymbolTable* symbols_;
  StimulusLines lines_;
  HandlerStack handlers_;
  std::set<std::uint32_t> portsNamed_;
  std::uint64_t lastCycles_ = 0;
  std::uint64_t maxEvents_;
  std::uint64_t events_ = 0;
  std::uint64_t leftOut_ = 0;
  std::optional<std::uint64_t> firstHiddenRun_;  // runs from this serial on have no slice
};

}  // namespace vestrel::decoder
