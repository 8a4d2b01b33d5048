#pragma once

#include "ItmDecoder.h"
#include "OutputBuffer.h"
#include "PacketSink.h"
#include "PacketTimer.h"
#include "StimulusLines.h"
#include "SymbolTable.h"
#include "Timing.h"

namespace vestrel::decoder {

// JSON Lines carry what the text carries, as objects with the same times:
// one per stimulus line (kind "text") and one per other event. raw adds an
// object for every packet (each instrumentation packet, timestamps, pages).
class JsonWriter final : public PacketSink {
 public:
  JsonWriter(OutputBuffer& out, Timing timing, bool raw = false) : out_(out), timing_(timing), raw_(raw) {}

  void write(const Packet& packet, PacketTime time) override;
  // Writes stimulus text still waiting for its newline as text objects.
  void finish(const DecoderStatistics& statistics) override;
  // PC values then also carry "function", "file" and "line".
  void setSymbols(const symbols::SymbolTable* symbols) { symbols_ = symbols; }

 private:
  void time(PacketTime time);
  void where(std::uint64_t pc);
  void textLine(const StimulusLines::Line& line);
  void fields(const Packet& p);

  OutputBuffer& out_;
  Timing timing_;
  bool raw_;
  StimulusLines lines_;
  const symbols::SymbolTable* symbols_ = nullptr;
};

}  // namespace vestrel::decoder
