// The Larkin family: a clock system of selectable sources, among them a
// digitally controlled oscillator tuned against calibration constants that
// the device keeps in its TLV table.
#pragma once

#include <cstdint>
#include <string>

#include "DeviceRegisters.h"

namespace Kv::Orv::Trace::Vestrel {

class LarkinDevice {
 public:
  // Reads CSCTL0..3, CSCLKEN and the TLV base address. Throws cHexkitError.
  LarkinDevice(const std::string& cpuName, Probe::CDeviceIdentifier* identifier, Probe::CTargetAdapter* adapter);
  // The main clock in Hz. Throws cHexkitError when it cannot be known.
  double getSystemClock();

  static constexpr const char* kTag = "Vestrel_LarkinDevice";

 private:
  double dcoFrequency();

  std::string cpuName_;
  DeviceRegisters registers_;
  std::uint32_t csctl0_ = 0;
  std::uint32_t csctl1_ = 0;
  std::uint32_t csctl2_ = 0;
  std::uint32_t csctl3_ = 0;
  std::uint32_t csclken_ = 0;
  std::uint32_t tlvBase_ = 0;
};

}  // namespace Kv::Orv::Trace::Vestrel
