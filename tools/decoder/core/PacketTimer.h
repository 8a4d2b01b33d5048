// Dates packets. The ITM sends a local timestamp after the packets it dates
// (its TC field says whether they went out in step or late), so each packet
// is held until the next local timestamp and then given the time that
// timestamp brings: in 0E 0F 10  50  0E 0F 20  40 the exception is entered at
// 5 and exited at 9. Held packets are bounded; when the bound is reached, at
// a pause of the input or at the end they go out with the last known time
// and are marked as not exact (no timestamp followed them).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "ItmDecoder.h"

namespace vestrel::decoder {

struct PacketTime {
  std::uint64_t cycles = 0;  // the sum of the local timestamps up to the one that dates the packet
  bool exact = true;         // false: the last known time, no timestamp followed
};

// Sink: anything callable as sink(const Packet&, PacketTime).
template <typename Sink>
class BasicPacketTimer {
 public:
  static constexpr std::size_t kDefaultBound = 65536;

  explicit BasicPacketTimer(Sink sink, std::size_t bound = kDefaultBound) : sink_(std::move(sink)), bound_(bound) {
    held_.reserve(bound < 4096 ? bound : 4096);
  }

  void add(const Packet& packet) {
    if (packet.kind != PacketKind::LocalTimestamp) {
      held_.push_back(packet);
      if (held_.size() >= bound_) release();
      return;
    }
    cycles_ += packet.value;
    const PacketTime time{cycles_, true};
    for (const Packet& held : held_) sink_(held, time);
    held_.clear();
    sink_(packet, time);
  }
  // Sends every held packet with the last known time, not exact.
  void release() {
    const PacketTime time{cycles_, false};
    for (const Packet& held : held_) sink_(held, time);
    held_.clear();
  }

 private:
  Sink sink_;
  std::size_t bound_;
  std::vector<Packet> held_;
  std::uint64_t cycles_ = 0;
};

using PacketTimer = BasicPacketTimer<std::function<void(const Packet&, PacketTime)>>;

}  // namespace vestrel::decoder
