#include "PacketTimer.h"

namespace vestrel::decode {

void PacketTimer::add(const Packet& packet) {
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

void PacketTimer::release() {
  const PacketTime time{cycles_, false};
  for (const Packet& held : held_) sink_(held, time);
  held_.clear();
}

}  // namespace vestrel::decode
