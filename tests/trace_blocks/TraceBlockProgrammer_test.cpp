// The trace blocks programmed as the receiver drives the host's trace
// interface: the exact reads and writes, every bit named, read-back
// mismatches reported as they are, and failures kept with their slot.
#include "TraceBlockProgrammer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "GdbTraceInterface.h"
#include "TraceRegisters.h"

using namespace vestrel::trace_blocks;
using namespace Kv::Orv::Trace;
using Strings = std::vector<std::string>;

namespace {

// Memory that logs every access ("R E000EDFC", "W E0040010 00000005").
// Registers listed as ignored read as zero and drop writes (an emulator);
// an address listed as failing throws.
class FakeMemory final : public TargetMemory {
 public:
  std::map<std::uint32_t, std::uint32_t> values;
  std::vector<std::uint32_t> ignored;
  std::uint32_t failing = 0;
  Strings log;

  std::uint32_t read32(std::uint32_t address) override {
    log.push_back(text("R", address));
    check(address);
    return isIgnored(address) ? 0 : values[address];
  }
  void write32(std::uint32_t address, std::uint32_t value) override {
    log.push_back(text("W", address, value));
    check(address);
    if (!isIgnored(address)) values[address] = value;
  }

 private:
  bool isIgnored(std::uint32_t address) const {
    for (std::uint32_t a : ignored) {
      if (a == address) return true;
    }
    return false;
  }
  void check(std::uint32_t address) const {
    if (address == failing) throw std::runtime_error("the GDB server refused reading 4 bytes at 0xE0001000: E14");
  }
  static std::string text(const char* what, std::uint32_t address, std::optional<std::uint32_t> value = {}) {
    char line[40];
    if (value) {
      std::snprintf(line, sizeof line, "%s %08X %08X", what, static_cast<unsigned>(address),
                    static_cast<unsigned>(*value));
    } else {
      std::snprintf(line, sizeof line, "%s %08X", what, static_cast<unsigned>(address));
    }
    return line;
  }
};

TraceSettings everything() {
  TraceSettings settings;
  settings.itmPorts = 0x3;
  settings.pcSampleCycles = 4096;
  settings.exceptions = true;
  settings.dataTraceAddress = 0x20000034;
  return settings;
}

// The receiver's order: prescaler, pin protocol, timestamp prescale, then
// program and enable.
void startAsTheReceiverDoes(GdbTraceInterface& trace) {
  ASSERT_EQ(trace.SetTpiuPrescaler(0, 5), 0);
  ASSERT_EQ(trace.SetPinProtocol(0, eSWO_ENCODING_UART), 0);
  ASSERT_EQ(trace.SetTimestampPrescaler(0, eSWO_TS_PRESCALAR_4), 0);
  ASSERT_EQ(trace.ProgramTpiu(0), 0) << trace.lastError();
  ASSERT_EQ(trace.EnableTpiu(0), 0) << trace.lastError();
}

TEST(TraceBlockProgrammer, TheExactSequenceAndEveryBit) {
  FakeMemory memory;
  memory.values[kDemcr] = 0x00000001;    // vector catch on reset, left alone
  memory.values[kDwtCtrl] = 0x40000000;  // four comparators (read-only bits kept)
  Strings mismatches;
  GdbTraceInterface trace(memory, everything(), [&](const std::string& m) { mismatches.push_back(m); });
  startAsTheReceiverDoes(trace);
  EXPECT_EQ(memory.log, (Strings{
                            "R E000EDFC",           // DEMCR as it is
                            "W E000EDFC 01000001",  // + TRCENA (bit 24)
                            "R E000EDFC",
                            "W E0040004 00000001",  // TPIU CSPSR: port size 1
                            "R E0040004",
                            "W E0040010 00000005",  // TPIU ACPR: trace clock / (5 + 1)
                            "R E0040010",
                            "W E00400F0 00000002",  // TPIU SPPR: 2, NRZ (UART)
                            "R E00400F0",
                            "W E0040304 00000100",  // TPIU FFCR: TrigIn, formatter off
                            "R E0040304",
                            "W E0000FB0 C5ACCE55",  // ITM LAR: unlocked (write-only)
                            "W E0000E80 00000000",  // ITM TCR: off while set up
                            "R E0000E80",
                            "W E0000E40 00000000",  // ITM TPR: every port unprivileged
                            "R E0000E40",
                            "W E0000E00 00000003",  // ITM TER: ports 0 and 1
                            "R E0000E00",
                            "R E0001000",           // DWT CTRL as it is
                            "W E0001020 20000034",  // DWT COMP0: the watched word
                            "R E0001020",
                            "W E0001024 00000002",  // DWT MASK0: a word
                            "R E0001024",
                            "W E0001028 00000003",  // DWT FUNCTION0: PC and value, read or write
                            "R E0001028",
                            // DWT CTRL: NUMCOMP kept; CYCCNTENA, POSTPRESET 3 with the 1024 tap
                            // (4096 cycles), SYNCTAP 1, PCSAMPLENA, EXCTRCENA
                            "W E0001000 40011607",
                            "R E0001000",
                            // ITM TCR: ITMENA, TSENA, SYNCENA, TXENA, SWOENA, TSPrescale /4, TraceBusID 1
                            "W E0000E80 0001011F",
                            "R E0000E80",
                        }));
  EXPECT_EQ(mismatches, Strings{});
  // 0x40011607: bit 30 (NUMCOMP 4), 16, 12, 10, 9, 2 and 1 (POSTPRESET 3), 0.
  EXPECT_EQ(memory.values[kDwtCtrl], 0x40000000u | kCtrlExctrcena | kCtrlPcsamplena | 1u << kCtrlSynctapShift |
                                         kCtrlCyctap | 3u << kCtrlPostpresetShift | kCtrlCyccntena);
  EXPECT_EQ(memory.values[kItmTcr], kTcrItmena | kTcrTsena | kTcrSyncena | kTcrTxena | kTcrSwoena |
                                        1u << kTcrTsPrescaleShift | 1u << kTcrTraceBusIdShift);
}

TEST(TraceBlockProgrammer, OnlyWhatIsAskedFor) {
  FakeMemory memory;
  TraceSettings settings;  // stimulus ports only
  GdbTraceInterface trace(memory, settings, [](const std::string&) {});
  ASSERT_EQ(trace.SetTpiuPrescaler(0, 0), 0);
  ASSERT_EQ(trace.SetPinProtocol(0, eSWO_ENCODING_MANCHESTER), 0);
  ASSERT_EQ(trace.SetTimestampPrescaler(0, eSWO_TS_PRESCALAR_64), 0);
  ASSERT_EQ(trace.ProgramTpiu(0), 0);
  ASSERT_EQ(trace.EnableTpiu(0), 0);
  EXPECT_EQ(memory.values[kTpiuSppr], kSpprManchester);
  EXPECT_EQ(memory.values[kItmTer], 0xFFFFFFFFu);
  EXPECT_EQ(memory.values[kDwtCtrl], 1u << kCtrlSynctapShift);  // syncs only: no samples, no exceptions
  // ITMENA, TSENA, SYNCENA, SWOENA (no DWT packets), TSPrescale /64, TraceBusID 1.
  EXPECT_EQ(memory.values[kItmTcr], 0x00010317u);
  EXPECT_EQ(memory.values.count(kDwtComp0), 0u);
}

TEST(TraceBlockProgrammer, OffStopAndReleaseGiveTheTargetBack) {
  FakeMemory memory;
  memory.values[kDwtCtrl] = 0x40000000;
  GdbTraceInterface trace(memory, everything(), [](const std::string&) {});
  startAsTheReceiverDoes(trace);
  memory.log.clear();
  ASSERT_EQ(trace.TraceStop(0), 0);
  ASSERT_EQ(trace.TraceOff(0), 0);
  ASSERT_EQ(trace.ReleaseTrace(0), 0);
  EXPECT_EQ(memory.log, (Strings{"R E0000E80",  // BUSY clear: nothing left to send
                                 "W E0000E80 00000000", "R E0000E80", "R E0001000",
                                 "W E0001000 40000607",  // samples and exception trace off
                                 "R E0001000", "R E000EDFC",
                                 "W E000EDFC 00000000",  // TRCENA as it was before
                                 "R E000EDFC"}));
}

TEST(TraceBlockProgrammer, MismatchesAreReportedAsTheyAre) {
  FakeMemory memory;
  // An emulator: the trace registers read as zero and ignore writes.
  memory.ignored = {kDemcr, kTpiuAcpr, kTpiuSppr, kItmTcr, kItmTer};
  Strings mismatches;
  GdbTraceInterface trace(memory, TraceSettings{}, [&](const std::string& m) { mismatches.push_back(m); });
  startAsTheReceiverDoes(trace);
  EXPECT_EQ(mismatches, (Strings{
                            "DEMCR (0xE000EDFC): wrote 0x01000000, read back 0x00000000",
                            "TPIU ACPR (0xE0040010): wrote 0x00000005, read back 0x00000000",
                            "TPIU SPPR (0xE00400F0): wrote 0x00000002, read back 0x00000000",
                            "ITM TER (0xE0000E00): wrote 0xFFFFFFFF, read back 0x00000000",
                            "ITM TCR (0xE0000E80): wrote 0x00010117, read back 0x00000000",
                        }));
}

TEST(TraceBlockProgrammer, AFailingAccessFailsItsSlotWithTheReason) {
  FakeMemory memory;
  memory.failing = kDwtCtrl;
  GdbTraceInterface trace(memory, everything(), [](const std::string&) {});
  EXPECT_EQ(trace.ProgramTpiu(0), -1);
  EXPECT_EQ(trace.lastError(), "ProgramTpiu: the GDB server refused reading 4 bytes at 0xE0001000: E14");
  EXPECT_EQ(trace.SetPinProtocol(0, eSWO_ENCODING_NONE), -1);
  EXPECT_EQ(trace.lastError(), "SetPinProtocol: no SWO encoding given");
}

TEST(TraceBlockProgrammer, SamplingIntervalsTheDwtCanMake) {
  EXPECT_EQ(nearestSamplingInterval(64).cycles(), 64u);
  EXPECT_EQ(nearestSamplingInterval(1).cycles(), 64u);
  EXPECT_EQ(nearestSamplingInterval(1000).cycles(), 1024u);
  EXPECT_EQ(nearestSamplingInterval(4096).postpreset, 3u);
  EXPECT_TRUE(nearestSamplingInterval(4096).tap1024);
  EXPECT_EQ(nearestSamplingInterval(300).cycles(), 320u);  // 64 * 5
  EXPECT_EQ(nearestSamplingInterval(100000).cycles(), 16384u);
}

}  // namespace
