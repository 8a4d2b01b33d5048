// How the stream's times become seconds: the trace clock and the ITM's
// timestamp prescaler. Without a clock, times stay in cycles.
#pragma once

#include <cstdint>
#include <optional>

namespace vestrel::decoder {

struct Timing {
  std::optional<double> clockHz;  // with it, times are also given in seconds
  std::uint32_t timestampPrescale = 1;

  bool hasClock() const { return clockHz && *clockHz > 0; }
  // Only with a clock.
  double seconds(std::uint64_t cycles) const { return static_cast<double>(cycles) * timestampPrescale / *clockHz; }
};

}  // namespace vestrel::decoder
