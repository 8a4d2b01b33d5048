#include "DecodeChain.h"

namespace vestrel::decoder {

namespace {

std::vector<PacketSink*> sinksThat(const std::vector<PacketSink*>& sinks, bool wantTimes) {
  std::vector<PacketSink*> chosen;
  for (PacketSink* sink : sinks) {
    if (sink->wantsPackets() && sink->wantsTimes() == wantTimes) chosen.push_back(sink);
  }
  return chosen;
}

}  // namespace

DecodeChain::DecodeChain(std::vector<PacketSink*> sinks, int tpiuId)
    : sinks_(std::move(sinks)),
      dated_(sinksThat(sinks_, true)),
      undated_(sinksThat(sinks_, false)),
      tpiuId_(tpiuId),
      timer_(Deliver{this}),
      decoder_(decodedPackets()),
      deframer_([this](std::uint8_t id, std::uint8_t byte) {
        if (id == tpiuId_) deframed_.push_back(byte);
      }) {}

// Where the decoder's packets go: nowhere when no sink wants them (the
// decoder then only counts), to be dated when only dated sinks want them.
ItmDecoder::Sink DecodeChain::decodedPackets() {
  if (undated_.empty()) {
    if (dated_.empty()) return {};
    return [this](const Packet& packet) { timer_.add(packet); };
  }
  return [this](const Packet& packet) {
    for (PacketSink* sink : undated_) sink->write(packet, PacketTime{0, false});
    if (!dated_.empty()) timer_.add(packet);
  };
}

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
