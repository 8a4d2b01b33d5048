// What every device family needs: the device's clock-system module from its
// description, register addresses by name, and 4-byte target reads.
#pragma once

#include <cstdint>
#include <string>

#include "ProbeInterfaces.h"

namespace Kv::Orv::Trace::Vestrel {

class DeviceRegisters {
 public:
  // Throws cHexkitError when the device description or its "MOD_SYSCLK"
  // module is missing.
  DeviceRegisters(const std::string& cpuName, Probe::CDeviceIdentifier* identifier, Probe::CTargetAdapter* adapter);

  // A register's address: its hexadecimal text read as strtoul reads base 16.
  std::uint32_t address(const char* registerName);
  // The word at address; 0 when the read fails (no adapter, or the target
  // did not answer): the value is not set before the read.
  std::uint32_t read(std::uint32_t address);

 private:
  Probe::CDeviceModule* module_ = nullptr;
  Probe::CTargetAdapter* adapter_;
};

extern const char* const kClockUndetermined;

}  // namespace Kv::Orv::Trace::Vestrel
