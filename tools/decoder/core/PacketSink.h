// What every output of the decoder is to the chain that feeds it: dated
// packets in stream order, then the end of the stream. A new output is a new
// PacketSink handed to a DecodeChain.
#pragma once

#include "ItmDecoder.h"
#include "PacketTimer.h"

namespace vestrel::decoder {

class PacketSink {
 public:
  virtual ~PacketSink() = default;
  virtual void write(const Packet& packet, PacketTime time) = 0;
  // The stream ended (every packet written): what is still open is closed,
  // summaries written. statistics: the decoder's, for the whole stream.
  virtual void finish(const DecoderStatistics& statistics) = 0;
  // False for a sink that uses only what finish gives it: when no sink of a
  // chain wants packets, they are neither dated nor delivered.
  virtual bool wantsPackets() const { return true; }
  // False for a sink that uses no times (one that counts): it gets each
  // packet as soon as it is decoded, undated (time 0, not exact), and
  // packets are held and dated only when another sink needs their times.
  virtual bool wantsTimes() const { return true; }
};

}  // namespace vestrel::decoder
