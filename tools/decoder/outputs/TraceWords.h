// Words that more than one output writes the same way.
#pragma once

#include <cstdint>

#include "ItmDecoder.h"
#include "OutputBuffer.h"
#include "Timing.h"

namespace vestrel::decoder {

// False for the packets that text and JSON Lines show only through the
// others: local timestamps (in the times of the lines), stimulus pages (in
// the port numbers) and other extensions.
inline bool hasALineOfItsOwn(PacketKind kind) {
  return kind != PacketKind::LocalTimestamp && kind != PacketKind::StimulusPage && kind != PacketKind::Extension;
}

// The architectural name of an exception number ("SysTick", "IRQ 3").
void appendExceptionName(OutputBuffer& out, std::uint32_t number);

// Seconds with 9 decimals (nanoseconds); only with a clock.
void appendSeconds(OutputBuffer& out, const Timing& timing, std::uint64_t cycles);

}  // namespace vestrel::decoder
