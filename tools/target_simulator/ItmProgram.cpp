#include "ItmProgram.h"

namespace vestrel::simulator {

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

}  // namespace

// One character per packet, as printf over ITM port writes do.
void ItmProgram::text(std::string& out, std::uint32_t port, const std::string& line) {
  for (char c : line) {
    out += static_cast<char>((port << 3) | 0x01);
    out += c;
  }
  textSent_[port] += line;
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
  if (i % 8 == 0) {
    // SysTick (exception 15): entered, exited, back to thread mode.
    append(out, {0x0E, 0x0F, 0x10, 0x0E, 0x0F, 0x20, 0x0E, 0x00, 0x30});
    exceptions_ += 3;
  }
  const std::uint32_t pc = 0x08000100 + static_cast<std::uint32_t>(i % 64) * 4;
  append(out, {0x17, static_cast<std::uint8_t>(pc), static_cast<std::uint8_t>(pc >> 8),
               static_cast<std::uint8_t>(pc >> 16), static_cast<std::uint8_t>(pc >> 24)});
  // DWT comparator 0 watches the loop counter: a 4-byte write.
  const auto counter = static_cast<std::uint32_t>(i);
  append(out, {0x8F, static_cast<std::uint8_t>(counter), static_cast<std::uint8_t>(counter >> 8),
               static_cast<std::uint8_t>(counter >> 16), static_cast<std::uint8_t>(counter >> 24)});
  // Local timestamp, after the packets it dates, as the ITM sends it: the
  // cycles the iteration took.
  out += static_cast<char>(0xC0);
  continued(out, 100 + i % 50, 4);
  return out;
}

}  // namespace vestrel::simulator
