// The decoder's statistics, for the end of text and JSON Lines output.
#pragma once

#include "ItmDecoder.h"
#include "OutputBuffer.h"
#include "PacketSink.h"

namespace vestrel::decoder {

// One "name: count" per line.
void writeStatistics(OutputBuffer& out, const DecoderStatistics& statistics);
// One JSON object of kind "statistics" and its newline; packet counts keyed
// by kind, in snake_case ("pc_sample").
void writeStatisticsJson(OutputBuffer& out, const DecoderStatistics& statistics);

// The statistics at the end of the stream, as text or as JSON.
class StatisticsWriter final : public PacketSink {
 public:
  StatisticsWriter(OutputBuffer& out, bool json) : out_(out), json_(json) {}
  void write(const Packet&, PacketTime) override {}
  void finish(const DecoderStatistics& statistics) override {
    json_ ? writeStatisticsJson(out_, statistics) : writeStatistics(out_, statistics);
  }
  bool wantsPackets() const override { return false; }

 private:
  OutputBuffer& out_;
  bool json_;
};

}  // namespace vestrel::decoder
