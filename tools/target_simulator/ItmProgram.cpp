#include "ItmProgram.h"

#include <stdexcept>

#include "FirmwareLayout.h"

namespace vestrel::target_simulator {

namespace {

void append(std::string& out, std::initializer_list<std::uint8_t> bytes) {
  for (std::uint8_t b : bytes) out += static_cast<char>(b);
}

// A value as 7-bit groups, least significant first, the continuation bit set
// on all but the last.
void continued(std::string& out, std::uint64_t value, int maximumBytes) {
  for (int i = 0; i < maximumBytes; ++i) {
    const std::uint8_t group = value & 0x7F;
    value >>= 7;
    if (value == 0 || i == maximumBytes - 1) {
      out += static_cast<char>(group);
      return;
    }
    out += static_cast<char>(group | 0x80);
  }
}

// A local timestamp (format 1, in step): the packets before it happened
// this many cycles after the previous one.
void localTimestamp(std::string& out, std::uint64_t cycles) {
  out += static_cast<char>(0xC0);
  continued(out, cycles, 4);
}

constexpr std::uint8_t kSysTick = 15;
constexpr std::uint8_t kUartInterrupt = 19;  // IRQ 3

void exceptionPacket(std::string& out, std::uint8_t number, std::uint8_t function) {
  append(out, {0x0E, number, static_cast<std::uint8_t>(function << 4)});
}

// Which function each of 16 consecutive PC samples falls in ("" : asleep).
const char* const kSampleSchedule[16] = {
    "filter_sample", "read_sensor",
    "filter_sample", "main",
    "filter_sample", "uart_send",
    "read_sensor",   "",
    "filter_sample", "main",
    "filter_sample", "read_sensor",
    "uart_send",     "",
    "filter_sample", "SysTick_Handler",
};

std::uint32_t firmwareLabel(const std::string& name) {
  for (const FirmwareLabel& label : kFirmwareLabels) {
    if (name == label.name) return label.address;
  }
  throw std::logic_error("the demo firmware has no label " + name);
}

const FirmwareFunction& firmwareFunction(const std::string& name) {
  for (const FirmwareFunction& function : kFirmwareFunctions) {
    if (name == function.name) return function;
  }
  throw std::logic_error("the demo firmware has no function " + name);
}

}  // namespace

// One character per packet, as printf over ITM port writes do.
void ItmProgram::text(std::string& out, std::uint32_t port, const std::string& line) {
  for (char c : line) {
    out += static_cast<char>((port << 3) | 0x01);
    out += c;
  }
  textSent_[port] += line;
}

// SysTick runs; when nested, the UART's interrupt pre-empts it and SysTick
// resumes afterwards. Each step is dated by a local timestamp.
void ItmProgram::exceptions(std::string& out, bool nested) {
  exceptionPacket(out, kSysTick, 1);
  localTimestamp(out, 12);
  exceptions_ += 1;
  if (nested) {
    exceptionPacket(out, kUartInterrupt, 1);
    localTimestamp(out, 20);
    exceptionPacket(out, kUartInterrupt, 2);
    exceptionPacket(out, kSysTick, 3);
    localTimestamp(out, 6);
    exceptions_ += 3;
  }
  exceptionPacket(out, kSysTick, 2);
  exceptionPacket(out, 0, 3);  // back to thread mode
  exceptions_ += 2;
}

// A periodic PC sample from the schedule; within a function the samples walk
// its instructions (2-byte steps), so every instruction gets its share; but
// every other sample in filter_sample falls in its summing loop, the hot
// spot.
void ItmProgram::pcSample(std::string& out, std::uint64_t iteration) {
  const char* name = kSampleSchedule[iteration % 16];
  if (name[0] == '\0') {
    append(out, {0x15, 0x00});
    ++sleepSamples_;
    return;
  }
  const FirmwareFunction& function = firmwareFunction(name);
  std::uint32_t start = function.address;
  std::uint32_t size = function.size;
  if (std::string(name) == "filter_sample" && iteration / 2 % 2 == 0) {
    start = firmwareLabel("filter_sum");
    size = firmwareLabel("filter_done") - start;
  }
  const auto step = static_cast<std::uint32_t>((iteration / 16 * 2) % size);
  const std::uint32_t pc = start + step;
  append(out, {0x17, static_cast<std::uint8_t>(pc), static_cast<std::uint8_t>(pc >> 8),
               static_cast<std::uint8_t>(pc >> 16), static_cast<std::uint8_t>(pc >> 24)});
  ++pcSamples_[pc];
}

std::string ItmProgram::nextIteration() {
  std::string out;
  const std::uint64_t i = iteration_++;
  if (i % 64 == 0) append(out, {0x00, 0x00, 0x00, 0x00, 0x00, 0x80});
  if (overflowRequested_) {
    append(out, {0x70});
    overflowRequested_ = false;
  }
  if (i % 32 == 0) {
    out += static_cast<char>(0x94);  // global timestamp, low bits
    continued(out, (i * 1000) & 0x3FFFFFF, 4);
  }
  text(out, 0, "tick " + std::to_string(i) + "\n");
  if (i % 4 == 0) text(out, 1, "sensor=" + std::to_string(20 + i % 7) + "\n");
  if (i % 8 == 0) exceptions(out, i % 16 == 0);
  pcSample(out, i);
  // DWT comparator 0 watches the loop counter: a 4-byte write.
  const auto counter = static_cast<std::uint32_t>(i);
  append(out, {0x8F, static_cast<std::uint8_t>(counter), static_cast<std::uint8_t>(counter >> 8),
               static_cast<std::uint8_t>(counter >> 16), static_cast<std::uint8_t>(counter >> 24)});
  // Local timestamp, after the packets it dates, as the ITM sends it: the
  // cycles the rest of the iteration took.
  localTimestamp(out, 100 + i % 50);
  return out;
}

}  // namespace vestrel::target_simulator
