#include "FerruleDevice.h"

#include "LogControl.h"

namespace Kv::Orv::Trace::Vestrel {

FerruleDevice::FerruleDevice(const std::string& cpuName, Probe::CDeviceIdentifier* identifier,
                             Probe::CTargetAdapter* adapter)
    : cpuName_(cpuName), registers_(cpuName, identifier, adapter) {
  cpuClockDivider_ = registers_.read(registers_.address("CPUCLKDIV"));
  KV_LOG(1, KV_ORV::kLogMessage, "%s: CPUCLKDIV = 0x%x", kTag, cpuClockDivider_);
}

// Only bit 0 counts: 48 MHz, or 24 MHz when it is set.
double FerruleDevice::getSystemClock() const { return 48000000.0 / static_cast<double>((cpuClockDivider_ & 1) + 1); }

}  // namespace Kv::Orv::Trace::Vestrel
