#include "SystemClock.h"

#include <cmath>

#include "FerruleDevice.h"
#include "LarkinDevice.h"
#include "OswinDevice.h"
#include "cHexkitError.h"

namespace Kv::Orv::Trace::Vestrel {

namespace {

// A clock the registers give that is infinite (a calibration divisor of 0),
// not a number, or beyond what a 32-bit rate can take is not a clock.
double plausible(double clock) {
  if (!std::isfinite(clock) || clock >= 4294967296.0) Hexkit::throwHexkitError(kClockUndetermined);
  return clock;
}

double familyClock(const std::string& cpuName, Probe::CDeviceIdentifier* identifier, Probe::CTargetAdapter* adapter) {
  if (identifier == nullptr) Hexkit::throwHexkitError(kClockUndetermined);
  if (identifier->matchDevice(kOswinIdentifier, kOswinMask)) {
    return OswinDevice(cpuName, identifier, adapter).getSystemClock();
  }
  // Every query of a family is made before the family is decided. The top
  // four bits (the silicon revision) are ignored.
  const bool larkinA = identifier->matchDevice(0x0B9AF02F, 0x0FFFFFFF);
  const bool larkinB = identifier->matchDevice(0x0BB4D02F, 0x0FFFFFFF);
  if (larkinA || larkinB) return LarkinDevice(cpuName, identifier, adapter).getSystemClock();
  const bool ferruleA = identifier->matchDevice(0x0B99A02F, 0x0FFFFFFF);
  const bool ferruleB = identifier->matchDevice(0x0B9BE02F, 0x0FFFFFFF);
  const bool ferruleC = identifier->matchDevice(0x0BB4102F, 0x0FFFFFFF);
  if (ferruleA || ferruleB || ferruleC) return FerruleDevice(cpuName, identifier, adapter).getSystemClock();
  Hexkit::throwHexkitError(kClockUndetermined);
}

}  // namespace

double getSystemClock(const std::string& cpuName, Probe::CDeviceIdentifier* identifier,
                      Probe::CTargetAdapter* adapter) {
  return plausible(familyClock(cpuName, identifier, adapter));
}

}  // namespace Kv::Orv::Trace::Vestrel
