// Turns dated packets into what a person reads: stimulus-port text joined
// per port and ended at each newline, exceptions with their names, times in
// cycles (and seconds, given the clock and timestamp prescale).
#pragma once

#include "ItmDecoder.h"
#include "OutputBuffer.h"
#include "PacketSink.h"
#include "PacketTimer.h"
#include "StimulusLines.h"
#include "SymbolTable.h"
#include "Timing.h"

namespace vestrel::decoder {

class TextWriter final : public PacketSink {
 public:
  TextWriter(OutputBuffer& out, Timing timing) : out_(out), timing_(timing) {}

  void write(const Packet& packet, PacketTime time) override;
  // Writes stimulus text still waiting for its newline.
  void finish(const DecoderStatistics& statistics) override;
  // PC values are then also given as function+offset (file:line).
  void setSymbols(const symbols::SymbolTable* symbols) { symbols_ = symbols; }

 private:
  void when(PacketTime time);
  void where(std::uint64_t pc);
  void lineStart(PacketTime time);
  void portText(const Packet& p, PacketTime time);
  void packetLine(const Packet& p, PacketTime time);
  void textLine(const StimulusLines::Line& line);
  void dataTrace(const Packet& p);
  void garbage(const Packet& p);

  OutputBuffer& out_;
  Timing timing_;
  StimulusLines lines_;
  const symbols::SymbolTable* symbols_ = nullptr;
};

}  // namespace vestrel::decoder
