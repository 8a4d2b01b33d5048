// Lets tests put a driver into a recording state that only a full capture
// set-up would otherwise reach.
#pragma once

#include "ChannelDriver.h"

namespace Kv::Orv::Trace::Vestrel {

class ChannelDriverTestAccess {
 public:
  static void setState(ChannelDriver& driver, std::uint32_t state) { driver.state_ = state; }
  static void setItmChannel(ChannelDriver& driver, int port, std::int32_t type) {
    driver.itmChannelTypes_[static_cast<std::size_t>(port)] = type;
    driver.itmSetupLoaded_ = true;
  }
};

}  // namespace Kv::Orv::Trace::Vestrel
