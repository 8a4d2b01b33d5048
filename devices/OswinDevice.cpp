#include "OswinDevice.h"

#include "LogControl.h"
#include "cHexkitError.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;
using KV_ORV::kLogMessage;

namespace {

[[noreturn]] void undetermined() { Hexkit::throwHexkitError(kClockUndetermined); }

std::uint32_t bits(std::uint32_t value, int high, int low) { return (value >> low) & ((1u << (high - low + 1)) - 1); }

// Crystal frequencies in MHz by the RCC crystal index; 27 to 31 are unknown.
constexpr double kCrystalMHz[27] = {1.0,    1.8432, 2.0,      2.4576, 3.579545, 3.6864, 4.0,   4.096, 4.9152,
                                    5.0,    5.12,   6.0,      6.144,  7.3728,   8.0,    8.192, 10.0,  12.0,
                                    12.288, 13.56,  14.31818, 16.0,   16.384,   18.0,   20.0,  24.0,  25.0};

}  // namespace

OswinDevice::OswinDevice(const std::string& cpuName, Probe::CDeviceIdentifier* identifier,
                         Probe::CTargetAdapter* adapter)
    : cpuName_(cpuName), registers_(cpuName, identifier, adapter) {
  const std::uint32_t did0Address = registers_.address("DID0");
  did0_ = registers_.read(did0Address);
  deviceClass_ = bits(did0_, 23, 16);
  KV_LOG(1, kLogMessage, "%s: DID0 addr = 0x%x value = 0x%x", kTag, did0Address, did0_);
  if (newerClockSystem()) {
    KV_LOG(1, kLogMessage, "%s: Glacine", kTag);
    const std::uint32_t rsclkcfg = registers_.address("RSCLKCFG");
    const std::uint32_t pllfreq0 = registers_.address("PLLFREQ0");
    const std::uint32_t pllfreq1 = registers_.address("PLLFREQ1");
    rsclkcfg_ = registers_.read(rsclkcfg);
    pllfreq0_ = registers_.read(pllfreq0);
    pllfreq1_ = registers_.read(pllfreq1);
  } else {
    const std::uint32_t rcc = registers_.address("RCC");
    const std::uint32_t rcc2 = registers_.address("RCC2");
    rcc_ = registers_.read(rcc);
    rcc2_ = registers_.read(rcc2);
  }
}

const char* OswinDevice::getExceptionMapName() const {
  return newerClockSystem() ? "MOD_EXCEPTIONMAP_129" : "MOD_EXCEPTIONMAP_123";
}

double OswinDevice::getSystemClock() const {
  if (newerClockSystem()) return newerClock(rsclkcfg_, pllfreq0_, pllfreq1_);
  return classicClock(decodeClassic(deviceClass_, rcc_, rcc2_));
}

double OswinDevice::newerClock(std::uint32_t rsclkcfg, std::uint32_t pllfreq0, std::uint32_t pllfreq1) {
  if (bits(rsclkcfg, 28, 28) != 0) {
    // Only the 16 MHz precision internal oscillator is known as PLL input.
    if (bits(rsclkcfg, 27, 24) != 0) undetermined();
    const double multiplier = bits(pllfreq0, 9, 0) + bits(pllfreq0, 19, 10) / 1024.0;
    const std::uint32_t q = bits(pllfreq1, 12, 8);
    const std::uint32_t n = bits(pllfreq1, 4, 0);
    const double vco = 16000000.0 * multiplier / static_cast<double>((q + 1) * (n + 1));
    return vco / static_cast<double>(bits(rsclkcfg, 9, 0) + 1);
  }
  // Source 2, the 30 kHz low-frequency oscillator, has a known frequency but
  // is reported as undeterminable, as it always has been.
  double source = 0.0;
  switch (bits(rsclkcfg, 23, 20)) {
    case 0:
      source = 16000000.0;
      break;
    case 2:
      source = 30000.0;
      undetermined();
    default:
      undetermined();
  }
  return source / static_cast<double>(bits(rsclkcfg, 19, 10) + 1);
}

OswinDevice::ClassicClock OswinDevice::decodeClassic(std::uint32_t deviceClass, std::uint32_t rcc, std::uint32_t rcc2) {
  ClassicClock clock;
  clock.deviceClass = deviceClass;
  clock.mainOscillatorDisabled = bits(rcc, 0, 0) != 0;
  clock.oscillatorSource = bits(rcc, 5, 4);
  clock.crystalIndex = bits(rcc, 10, 6);
  clock.crystalHz = clock.crystalIndex < 27 ? kCrystalMHz[clock.crystalIndex] * 1000000.0 : 0.0;
  clock.bypass = bits(rcc, 11, 11) != 0;
  clock.powerDown = bits(rcc, 13, 13) != 0;
  clock.useSystemDivider = bits(rcc, 22, 22) != 0;
  clock.systemDivider = bits(rcc, 26, 23);
  clock.divideBy400 = false;
  if (bits(rcc2, 31, 31) != 0) {
    // RCC2 overrides all but the use-system-divider flag, which stays RCC's.
    clock.oscillatorSource = bits(rcc2, 6, 4);
    clock.bypass = bits(rcc2, 11, 11) != 0;
    clock.powerDown = bits(rcc2, 13, 13) != 0;
    clock.divideBy400 = bits(rcc2, 30, 30) != 0;
    clock.systemDivider = bits(rcc2, 28, 23);
    if (clock.divideBy400) clock.systemDivider = (clock.systemDivider * 2) | bits(rcc2, 22, 22);
  }
  return clock;
}

double OswinDevice::classicClock(const ClassicClock& clock) {
  double frequency = 0.0;
  if (clock.bypass) {
    const double internal = clock.deviceClass <= 3 ? 12000000.0 : 16000000.0;
    switch (clock.oscillatorSource) {
      case 0:
        if (clock.crystalHz == 0.0) undetermined();
        frequency = clock.crystalHz;
        break;
      case 1:
        frequency = internal;
        break;
      case 2:
        frequency = internal / 4.0;
        break;
      case 3:
        frequency = 30000.0;
        break;
      case 7:
        frequency = 32768.0;
        break;
      default:
        undetermined();
    }
  } else {
    // The PLL output is taken at its nominal value, whatever the crystal.
    frequency = clock.divideBy400 ? 400000000.0 : 200000000.0;
  }
  if (clock.useSystemDivider) frequency /= static_cast<double>(clock.systemDivider + 1);
  return frequency;
}

}  // namespace Kv::Orv::Trace::Vestrel
