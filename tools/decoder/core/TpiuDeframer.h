// Undoes the TPIU formatter: 16-byte frames that interleave several trace
// sources by ID. Used when the formatter was left on (with SWO in UART mode
// it is normally bypassed). Frames are found by the full synchronization
// pattern FF FF FF 7F; half-syncs (FF 7F) are dropped; ID 0 is padding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace vestrel::decoder {

class TpiuDeframer {
 public:
  using Sink = std::function<void(std::uint8_t id, std::uint8_t byte)>;
  explicit TpiuDeframer(Sink sink) : sink_(std::move(sink)) {}

  void feed(const std::uint8_t* data, std::size_t size);

  bool aligned() const { return aligned_; }
  std::uint64_t frames() const { return frames_; }

 private:
  void frame();
  void data(std::uint8_t byte);

  Sink sink_;
  std::uint8_t frame_[16] = {};
  std::size_t filled_ = 0;
  std::uint32_t syncWindow_ = 0;  // the last four bytes, for the sync search
  bool aligned_ = false;
  std::uint8_t id_ = 0;
  std::uint64_t frames_ = 0;
};

}  // namespace vestrel::decoder
