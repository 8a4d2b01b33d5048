#include "TraceBlockProgrammer.h"
#include "PrintableText.h"

#include <cstdio>
#include <cstdlib>

#include "TraceRegisters.h"

namespace vestrel::trace_blocks {

namespace {

std::string hex(std::uint32_t value) { return printable_text::hexWord(value); }

std::uint32_t prescaleCode(std::uint32_t prescale) {
  switch (prescale) {
    case 4:
      return 1;
    case 16:
      return 2;
    case 64:
      return 3;
    default:
      return 0;
  }
}

}  // namespace

SamplingInterval nearestSamplingInterval(std::uint32_t cycles) {
  SamplingInterval best;
  std::uint64_t bestDistance = UINT64_MAX;
  for (const bool tap1024 : {false, true}) {
    for (std::uint32_t postpreset = 0; postpreset < 16; ++postpreset) {
      const SamplingInterval candidate{tap1024, postpreset};
      const std::uint64_t distance =
          static_cast<std::uint64_t>(std::llabs(static_cast<long long>(candidate.cycles()) - cycles));
      if (distance < bestDistance) {
        best = candidate;
        bestDistance = distance;
      }
    }
  }
  return best;
}

TraceBlockProgrammer::TraceBlockProgrammer(TargetMemory& memory, TraceSettings settings, Report mismatch)
    : memory_(memory), settings_(settings), mismatch_(std::move(mismatch)) {}

void TraceBlockProgrammer::write(const char* name, std::uint32_t address, std::uint32_t value, std::uint32_t checked) {
  memory_.write32(address, value);
  if (checked == 0) return;
  const std::uint32_t back = memory_.read32(address);
  if ((back & checked) != (value & checked)) {
    mismatch_(std::string(name) + " (" + hex(address) + "): wrote " + hex(value & checked) + ", read back " +
              hex(back & checked));
  }
}

std::uint32_t TraceBlockProgrammer::itmControl() const {
  const bool dwt = settings_.pcSampleCycles || settings_.exceptions || settings_.dataTraceAddress;
  return kTcrItmena | kTcrTsena | kTcrSyncena | (dwt ? kTcrTxena : 0) | kTcrSwoena |
         prescaleCode(timestampPrescale_) << kTcrTsPrescaleShift | 1u << kTcrTraceBusIdShift;
}

std::uint32_t TraceBlockProgrammer::dwtControl(std::uint32_t current) const {
  // The read-only bits (the number of comparators, what is implemented)
  // stay as the target has them; the trace bits are ours.
  std::uint32_t value = current & ~kCtrlManaged;
  value |= 1u << kCtrlSynctapShift;
  if (settings_.pcSampleCycles) {
    const SamplingInterval interval = nearestSamplingInterval(*settings_.pcSampleCycles);
    value |= kCtrlCyccntena | kCtrlPcsamplena | interval.postpreset << kCtrlPostpresetShift |
             (interval.tap1024 ? kCtrlCyctap : 0);
  }
  if (settings_.exceptions) value |= kCtrlExctrcena;
  return value;
}

void TraceBlockProgrammer::program() {
  const std::uint32_t demcr = memory_.read32(kDemcr);
  if (!demcrBefore_) demcrBefore_ = demcr;
  write("DEMCR", kDemcr, demcr | kDemcrTrcena, kDemcrTrcena);
  write("TPIU CSPSR", kTpiuCspsr, 1);
  write("TPIU ACPR", kTpiuAcpr, prescaler_, 0xFFFF);
  write("TPIU SPPR", kTpiuSppr, manchester_ ? kSpprManchester : kSpprNrz, 0x3);
  write("TPIU FFCR", kTpiuFfcr, kFfcrTrigInFormatterOff, 0x102);
  write("ITM LAR", kItmLar, kCoreSightKey, 0);  // write-only
  write("ITM TCR", kItmTcr, 0, kTcrWritable);   // off while it is set up
  write("ITM TPR", kItmTpr, 0, 0xF);
  write("ITM TER", kItmTer, settings_.itmPorts);
  dwtBefore_ = memory_.read32(kDwtCtrl);
  if (settings_.dataTraceAddress) {
    write("DWT COMP0", kDwtComp0, *settings_.dataTraceAddress);
    write("DWT MASK0", kDwtMask0, 2, 0x1F);  // a word: the two low address bits ignored
    write("DWT FUNCTION0", kDwtFunction0, kFunctionPcAndData, 0xF);
  }
}

void TraceBlockProgrammer::enable() {
  write("DWT CTRL", kDwtCtrl, dwtControl(dwtBefore_), kCtrlManaged);
  write("ITM TCR", kItmTcr, itmControl(), kTcrWritable);
}

void TraceBlockProgrammer::off() {
  write("ITM TCR", kItmTcr, 0, kTcrWritable);
  const std::uint32_t dwt = memory_.read32(kDwtCtrl);
  write("DWT CTRL", kDwtCtrl, dwt & ~(kCtrlPcsamplena | kCtrlExctrcena), kCtrlPcsamplena | kCtrlExctrcena);
}

void TraceBlockProgrammer::stop() {
  for (int i = 0; i < 100 && (memory_.read32(kItmTcr) & kTcrBusy) != 0; ++i) {
  }
}

void TraceBlockProgrammer::release() {
  if (!demcrBefore_) return;
  if ((*demcrBefore_ & kDemcrTrcena) == 0) {
    const std::uint32_t demcr = memory_.read32(kDemcr);
    write("DEMCR", kDemcr, demcr & ~kDemcrTrcena, kDemcrTrcena);
  }
  demcrBefore_.reset();
}

}  // namespace vestrel::trace_blocks
