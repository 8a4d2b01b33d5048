// Programs the target's trace blocks for SWO, in the order the receiver asks
// for it through the host's trace interface: the TPIU's prescaler, pin
// protocol and the ITM's timestamp prescale are remembered, then program()
// writes DEMCR, TPIU, ITM and DWT and enable() switches the ITM and DWT on;
// off() and stop() end the trace, release() gives DEMCR back as it was.
// Every write is read back where the architecture allows (the lock access
// register reads nothing back; read-only bits are left out) and a mismatch
// is reported, not hidden: some targets (and emulators) ignore these writes.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "TargetMemory.h"

namespace vestrel::trace_blocks {

struct TraceSettings {
  std::uint32_t itmPorts = 0xFFFFFFFFu;           // stimulus ports enabled (TER)
  std::optional<std::uint32_t> pcSampleCycles;    // a PC sample every so many cycles
  bool exceptions = false;                        // exception trace
  std::optional<std::uint32_t> dataTraceAddress;  // comparator 0: PC and value of reads and writes of this word
};

// The PC-sampling interval the DWT can make closest to cycles: the tap (64 or
// 1024 cycles) and POSTPRESET (0-15); interval = tap * (POSTPRESET + 1).
struct SamplingInterval {
  bool tap1024 = false;
  std::uint32_t postpreset = 0;
  std::uint32_t cycles() const { return (tap1024 ? 1024u : 64u) * (postpreset + 1); }
};
SamplingInterval nearestSamplingInterval(std::uint32_t cycles);

class TraceBlockProgrammer {
 public:
  using Report = std::function<void(const std::string&)>;
  TraceBlockProgrammer(TargetMemory& memory, TraceSettings settings, Report mismatch);

  void setPrescaler(std::uint32_t prescaler) { prescaler_ = prescaler; }
  void setManchester(bool manchester) { manchester_ = manchester; }
  // 1, 4, 16 or 64.
  void setTimestampPrescale(std::uint32_t prescale) { timestampPrescale_ = prescale; }

  void program();
  void enable();
  void off();
  // Waits (a bounded number of reads) for the ITM to send what it holds.
  void stop();
  void release();

  // The values enable() writes, for the record.
  std::uint32_t itmControl() const;
  std::uint32_t dwtControl(std::uint32_t current) const;

 private:
  void write(const char* name, std::uint32_t address, std::uint32_t value, std::uint32_t checked = 0xFFFFFFFFu);

  TargetMemory& memory_;
  TraceSettings settings_;
  Report mismatch_;
  std::uint32_t prescaler_ = 0;
  bool manchester_ = false;
  std::uint32_t timestampPrescale_ = 1;
  std::optional<std::uint32_t> demcrBefore_;
  std::uint32_t dwtBefore_ = 0;
};

}  // namespace vestrel::trace_blocks
