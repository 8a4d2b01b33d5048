#include "DeviceRegisters.h"

#include <cstdlib>

#include "CNumberText.h"
#include "cHexkitError.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;

const char* const kClockUndetermined =
    "Could not determine the System clock frequency automatically. Please set it manually in the receiver "
    "properties.";

DeviceRegisters::DeviceRegisters(const std::string& cpuName, Probe::CDeviceIdentifier* identifier,
                                 Probe::CTargetAdapter* adapter)
    : adapter_(adapter) {
  Probe::CDeviceInfo* info = identifier != nullptr ? identifier->getDeviceInfo(cpuName.c_str()) : nullptr;
  if (info == nullptr) {
    Hexkit::throwHexkitError("Internal error: Device information could not be parsed");
  }
  module_ = info->getModule("MOD_SYSCLK");
  // "deftermined" is the message as users know it.
  if (module_ == nullptr) {
    Hexkit::throwHexkitError("Internal error: Trace clock freq could not be deftermined for this device");
  }
}

std::uint32_t DeviceRegisters::address(const char* registerName) {
  const std::string text = module_->getRegisterAddress(registerName);
  return KV_ORV::strtoul32(text.c_str(), 16);
}

std::uint32_t DeviceRegisters::read(std::uint32_t address) {
  std::uint32_t value = 0;
  if (adapter_ != nullptr) adapter_->readMemory(&value, address, 4, 0);
  return value;
}

}  // namespace Kv::Orv::Trace::Vestrel
