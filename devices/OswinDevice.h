// The Oswin family: two generations of clock system, told apart by the
// device class in DID0. Classes 10 and 12 have the newer RSCLKCFG/PLLFREQ
// registers, every other class the classic RCC/RCC2 pair. The class also
// names the device-description module that maps exception numbers.
#pragma once

#include <cstdint>
#include <string>

#include "DeviceRegisters.h"

namespace Kv::Orv::Trace::Vestrel {

class OswinDevice {
 public:
  OswinDevice(const std::string& cpuName, Probe::CDeviceIdentifier* identifier, Probe::CTargetAdapter* adapter);
  // Throws cHexkitError when the clock source cannot be known.
  double getSystemClock() const;
  const char* getExceptionMapName() const;

  // The classic configuration as decoded from RCC and RCC2.
  struct ClassicClock {
    std::uint32_t deviceClass = 0;
    bool mainOscillatorDisabled = false;
    std::uint32_t oscillatorSource = 0;
    std::uint32_t crystalIndex = 0;
    double crystalHz = 0.0;
    bool bypass = false;
    bool powerDown = false;
    bool useSystemDivider = false;
    std::uint32_t systemDivider = 0;
    bool divideBy400 = false;
  };
  static ClassicClock decodeClassic(std::uint32_t deviceClass, std::uint32_t rcc, std::uint32_t rcc2);
  static double classicClock(const ClassicClock& clock);
  static double newerClock(std::uint32_t rsclkcfg, std::uint32_t pllfreq0, std::uint32_t pllfreq1);

  std::uint32_t deviceClass() const { return deviceClass_; }

  static constexpr const char* kTag = "Vestrel_OswinDevice";

 private:
  bool newerClockSystem() const { return deviceClass_ == 10 || deviceClass_ == 12; }

  std::string cpuName_;
  DeviceRegisters registers_;
  std::uint32_t rcc_ = 0;
  std::uint32_t rcc2_ = 0;
  std::uint32_t did0_ = 0;
  std::uint32_t rsclkcfg_ = 0;
  std::uint32_t pllfreq0_ = 0;
  std::uint32_t pllfreq1_ = 0;
  std::uint32_t deviceClass_ = 0;
};

}  // namespace Kv::Orv::Trace::Vestrel
