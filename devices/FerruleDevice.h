// The Ferrule family: a fixed 48 MHz clock, optionally halved.
#pragma once

#include <cstdint>
#include <string>

#include "DeviceRegisters.h"

namespace Kv::Orv::Trace::Vestrel {

class FerruleDevice {
 public:
  FerruleDevice(const std::string& cpuName, Probe::CDeviceIdentifier* identifier, Probe::CTargetAdapter* adapter);
  double getSystemClock() const;

  static constexpr const char* kTag = "Vestrel_FerruleDevice";

 private:
  std::string cpuName_;
  DeviceRegisters registers_;
  std::uint32_t cpuClockDivider_ = 0;
};

}  // namespace Kv::Orv::Trace::Vestrel
