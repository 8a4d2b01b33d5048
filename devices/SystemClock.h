// The target's system clock, read from its clock-control registers by the
// device family that the identification code selects.
#pragma once

#include <string>

#include "ProbeInterfaces.h"

namespace Kv::Orv::Trace::Vestrel {

// The identification query of the Oswin family.
constexpr std::uint32_t kOswinIdentifier = 0xF0F0F0F0;
constexpr std::uint32_t kOswinMask = 0xFFFFFFFF;

// Hz; throws cHexkitError when no family matches or the family cannot tell.
double getSystemClock(const std::string& cpuName, Probe::CDeviceIdentifier* identifier, Probe::CTargetAdapter* adapter);

}  // namespace Kv::Orv::Trace::Vestrel
