// The decoder's data path from raw SWO bytes to every output: deframe (when
// the TPIU formatter was on) -> decode -> date -> every sink, in the order
// given (a sink that wants no times gets packets straight from the decoder).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ItmDecoder.h"
#include "PacketSink.h"
#include "PacketTimer.h"
#include "TpiuDeframer.h"

namespace vestrel::decoder {

class DecodeChain {
 public:
  // tpiuId > 0: the bytes are TPIU frames; only that trace ID's stream is
  // decoded.
  explicit DecodeChain(std::vector<PacketSink*> sinks, int tpiuId = 0);
  DecodeChain(const DecodeChain&) = delete;
  DecodeChain& operator=(const DecodeChain&) = delete;

  void feed(const std::uint8_t* data, std::size_t size);
  // Ends the stream: packets still held are dated with the last known time,
  // then every sink is finished, in order. Once only.
  void finish();

  const DecoderStatistics& statistics() const { return decoder_.statistics(); }

 private:
  struct Deliver {
    DecodeChain* chain;
    void operator()(const Packet& packet, PacketTime time) const {
      for (PacketSink* sink : chain->dated_) sink->write(packet, time);
    }
  };

  ItmDecoder::Sink decodedPackets();

  std::vector<PacketSink*> sinks_;
  std::vector<PacketSink*> dated_;    // the sinks that want packets with their times
  std::vector<PacketSink*> undated_;  // the sinks that want packets as they come
  int tpiuId_;
  BasicPacketTimer<Deliver> timer_;
  ItmDecoder decoder_;
  TpiuDeframer deframer_;
  std::vector<std::uint8_t> deframed_;
  bool finished_ = false;
};

}  // namespace vestrel::decoder
