#include "DecodeChain.h"

#include <algorithm>

namespace vestrel::decoder {

namespace {

bool anyWantsPackets(const std::vector<PacketSink*>& sinks) {
  return std::any_of(sinks.begin(), sinks.end(), [](const PacketSink* sink) { return sink->wantsPackets(); });
}

}  // namespace

DecodeChain::DecodeChain(std::vector<PacketSink*> sinks, int tpiuId)
    : sinks_(std::move(sinks)),
      tpiuId_(tpiuId),
      timer_(Deliver{this}),
      decoder_(anyWantsPackets(sinks_) ? ItmDecoder::Sink([this](const Packet& packet) { timer_.add(packet); })
                                       : ItmDecoder::Sink()),
      deframer_([this](std::uint8_t id, std::uint8_t byte) {
        if (id == tpiuId_) deframed_.push_back(byte);
      }) {}

void DecodeChain::feed(const std::uint8_t* data, std::size_t size) {
  if (tpiuId_ <= 0) {
    decoder_.feed(data, size);
    return;
  }
  deframed_.clear();
  deframer_.feed(data, size);
  decoder_.feed(deframed_.data(), deframed_.size());
}

void DecodeChain::finish() {
  if (finished_) return;
  finished_ = true;
  decoder_.finish();
  timer_.release();
  for (PacketSink* sink : sinks_) sink->finish(decoder_.statistics());
}

}  // namespace vestrel::decoder
