#include "TpiuDeframer.h"

namespace vestrel::decoder {

namespace {
constexpr std::uint32_t kFullSync = 0xFFFFFF7F;  // FF FF FF 7F, as bytes arrive
}

void TpiuDeframer::feed(const std::uint8_t* data, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    const std::uint8_t byte = data[i];
    syncWindow_ = (syncWindow_ << 8) | byte;
    if (syncWindow_ == kFullSync) {
      // A full sync marks a frame boundary; the sync bytes themselves, and
      // whatever part of a frame came before them, are not data.
      aligned_ = true;
      filled_ = 0;
      continue;
    }
    if (!aligned_) continue;
    frame_[filled_++] = byte;
    if (filled_ == 16) {
      frame();
      filled_ = 0;
    }
  }
}

void TpiuDeframer::data(std::uint8_t byte) {
  if (id_ != 0 && sink_) sink_(id_, byte);
}

// Even bytes are an ID change (bit 0 set: the new ID in bits 7..1) or data
// whose bit 0 travels in byte 15; odd bytes are data. For an ID, byte 15's
// bit says whether the change applies after the next data byte (1) or at
// once (0).
void TpiuDeframer::frame() {
  ++frames_;
  const std::uint8_t auxiliary = frame_[15];
  for (int pair = 0; pair < 8; ++pair) {
    const std::uint8_t even = frame_[2 * pair];
    const bool flag = ((auxiliary >> pair) & 1) != 0;
    const bool hasOdd = pair < 7;
    const std::uint8_t odd = hasOdd ? frame_[2 * pair + 1] : 0;
    if ((even & 1) != 0) {
      if (even == 0xFF && hasOdd && odd == 0x7F) continue;  // half-sync
      const std::uint8_t newId = even >> 1;
      if (flag && hasOdd) {
        data(odd);  // the next byte still belongs to the old ID
        id_ = newId;
      } else {
        id_ = newId;
        if (hasOdd) data(odd);
      }
    } else {
      data(static_cast<std::uint8_t>((even & 0xFE) | (flag ? 1 : 0)));
      if (hasOdd) data(odd);
    }
  }
}

}  // namespace vestrel::decoder
