// 32-bit reads and writes of a target's memory: a GDB connection in use,
// a scripted map in tests. Failures throw std::runtime_error with the reason.
#pragma once

#include <cstdint>

namespace vestrel::trace_blocks {

class TargetMemory {
 public:
  virtual ~TargetMemory() = default;
  virtual std::uint32_t read32(std::uint32_t address) = 0;
  virtual void write32(std::uint32_t address, std::uint32_t value) = 0;
};

}  // namespace vestrel::trace_blocks
