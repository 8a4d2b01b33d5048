// Which target devices support SWO capture, and the probe configuration each
// needs: SWD with the COM port on TDO, or one of the cJTAG variants.
#pragma once

#include <functional>

#include "ProbeInterfaces.h"

namespace Kv::Orv::Trace::Vestrel {

// Answers whether the board data has an entry (section, key, value).
using BoardEntryQuery = std::function<bool(const char* section, const char* key, const char* value)>;

extern const char* const kSwdConfigurationMessage;
extern const char* const kCjtagConfigurationMessage;

// True when the connected device supports SWO and the probe is configured
// for it; false when no supported device matches. A supported device whose
// probe configuration is wrong throws cHexkitError with the message that
// tells the user what to change.
bool CheckDeviceSupport(Probe::CDeviceIdentifier& identifier, const BoardEntryQuery& hasBoardEntry);

}  // namespace Kv::Orv::Trace::Vestrel
