#include "DeviceSupport.h"

#include <cstdint>

#include "cHexkitError.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;

const char* const kSwdConfigurationMessage =
    "Please check the target configuration(TGTCFG). Debug probe protocol must be SWD with COM port connected to "
    "TDO.";
// Both list items are numbered "1." in the text users know.
const char* const kCjtagConfigurationMessage =
    "Please check the target configuration(TGTCFG). Debug probe protocol must be set to either: \n 1. 2-pin CJTAG "
    "with Aux COM port connected to target TDO or UART pin.\n 1. 4-pin CJTAG with Aux COM port connected to target "
    "UART pin.";

namespace {

enum class ProbeCheck { Swd, Cjtag };

struct SupportedDevice {
  std::uint32_t identifier;
  std::uint32_t mask;
  ProbeCheck check;
};

// Asked in this order; the first match decides.
constexpr SupportedDevice kSupportedDevices[] = {
    {0xF0F0F0F0, 0xFFFFFFFF, ProbeCheck::Swd},    // Oswin
    {0x0B9AF02F, 0x0FFFFFFF, ProbeCheck::Swd},    // Larkin
    {0x0BB4D02F, 0x0FFFFFFF, ProbeCheck::Swd},    // Larkin
    {0x0B99A02F, 0x0FFFFFFF, ProbeCheck::Cjtag},  // Ferrule
    {0x0B9BE02F, 0x0FFFFFFF, ProbeCheck::Cjtag},  // Ferrule
    {0x0BB4102F, 0x0FFFFFFF, ProbeCheck::Cjtag},  // Ferrule
};

bool swdCheckPasses(const BoardEntryQuery& hasBoardEntry) {
  // Both entries are always looked up.
  const bool debugEnabled = hasBoardEntry("swd", "swd_debug", "enabled");
  const bool swoOnTdo = hasBoardEntry("swd", "swo_data", "tdo_pin");
  return debugEnabled && swoOnTdo;
}

// 4-pin cJTAG must not route SWO to TDO; 2-pin cJTAG may use either pin.
bool cjtagCheckPasses(const BoardEntryQuery& hasBoardEntry) {
  const bool twoPin = hasBoardEntry("dot7", "ts_pin_width", "only_two");
  const bool swoOnTdo = hasBoardEntry("swd", "swo_data", "tdo_pin");
  return twoPin || !swoOnTdo;
}

}  // namespace

bool CheckDeviceSupport(Probe::CDeviceIdentifier& identifier, const BoardEntryQuery& hasBoardEntry) {
  for (const SupportedDevice& device : kSupportedDevices) {
    if (!identifier.matchDevice(device.identifier, device.mask)) continue;
    if (device.check == ProbeCheck::Swd) {
      if (!swdCheckPasses(hasBoardEntry)) Hexkit::throwHexkitError(kSwdConfigurationMessage);
    } else if (!cjtagCheckPasses(hasBoardEntry)) {
      Hexkit::throwHexkitError(kCjtagConfigurationMessage);
    }
    return true;
  }
  return false;
}

}  // namespace Kv::Orv::Trace::Vestrel
