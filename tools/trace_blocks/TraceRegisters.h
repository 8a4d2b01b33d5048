// The ARMv7-M / ARMv8-M debug and trace registers that SWO trace needs, with
// the bits written (ARMv7-M Architecture Reference Manual, parts C1.6 DWT,
// C1.7 ITM, C1.10 TPIU; CoreSight lock access). docs/TRACE_REGISTERS.md
// names each one and why it is written.
#pragma once

#include <cstdint>

namespace vestrel::trace_blocks {

// Debug Exception and Monitor Control Register.
constexpr std::uint32_t kDemcr = 0xE000EDFC;
constexpr std::uint32_t kDemcrTrcena = 1u << 24;  // trace blocks (DWT, ITM, TPIU) powered and enabled

// Instrumentation Trace Macrocell.
constexpr std::uint32_t kItmTer = 0xE0000E00;  // stimulus ports 0-31 enabled, a bit each
constexpr std::uint32_t kItmTpr = 0xE0000E40;  // unprivileged access per 8 ports (0: all allowed)
constexpr std::uint32_t kItmTcr = 0xE0000E80;  // trace control
constexpr std::uint32_t kItmLar = 0xE0000FB0;  // lock access: write the key to unlock
constexpr std::uint32_t kCoreSightKey = 0xC5ACCE55;

constexpr std::uint32_t kTcrItmena = 1u << 0;        // the ITM on
constexpr std::uint32_t kTcrTsena = 1u << 1;         // local timestamps
constexpr std::uint32_t kTcrSyncena = 1u << 2;       // synchronization packets
constexpr std::uint32_t kTcrTxena = 1u << 3;         // DWT packets forwarded
constexpr std::uint32_t kTcrSwoena = 1u << 4;        // timestamps counted on the SWO clock
constexpr std::uint32_t kTcrTsPrescaleShift = 8;     // 2 bits: /1, /4, /16, /64
constexpr std::uint32_t kTcrTraceBusIdShift = 16;    // 7 bits: the ITM's trace ID
constexpr std::uint32_t kTcrBusy = 1u << 23;         // read-only: packets still going out
constexpr std::uint32_t kTcrWritable = 0x007F0F1Fu;  // the bits above that hold what is written

// Data Watchpoint and Trace unit.
constexpr std::uint32_t kDwtCtrl = 0xE0001000;
constexpr std::uint32_t kCtrlCyccntena = 1u << 0;    // the cycle counter runs
constexpr std::uint32_t kCtrlPostpresetShift = 1;    // 4 bits: PC sample every (n + 1) taps
constexpr std::uint32_t kCtrlCyctap = 1u << 9;       // the tap: cycle counter bit 10 (1024) instead of 6 (64)
constexpr std::uint32_t kCtrlSynctapShift = 10;      // 2 bits: 1 = a synchronization every 2^24 cycles
constexpr std::uint32_t kCtrlPcsamplena = 1u << 12;  // periodic PC samples
constexpr std::uint32_t kCtrlExctrcena = 1u << 16;   // exception trace
constexpr std::uint32_t kCtrlManaged = 0x00011E1Fu;  // the bits above: what SWO trace sets
constexpr std::uint32_t kDwtComp0 = 0xE0001020;      // comparator 0's address
constexpr std::uint32_t kDwtMask0 = 0xE0001024;      // low address bits it ignores
constexpr std::uint32_t kDwtFunction0 = 0xE0001028;  // what a match does
constexpr std::uint32_t kFunctionPcAndData = 0x3;    // ARMv7-M: the PC and the data value on a read or write

// Trace Port Interface Unit.
constexpr std::uint32_t kTpiuCspsr = 0xE0040004;  // current port size (1 bit for SWO)
constexpr std::uint32_t kTpiuAcpr = 0xE0040010;   // SWO prescaler: trace clock / (n + 1)
constexpr std::uint32_t kTpiuSppr = 0xE00400F0;   // pin protocol
constexpr std::uint32_t kTpiuFfcr = 0xE0040304;   // formatter and flush control
constexpr std::uint32_t kSpprManchester = 1;
constexpr std::uint32_t kSpprNrz = 2;                     // UART framing
constexpr std::uint32_t kFfcrTrigInFormatterOff = 0x100;  // TrigIn on, EnFCont off: the ITM stream as it is

}  // namespace vestrel::trace_blocks
