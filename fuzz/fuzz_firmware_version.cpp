// The probe firmware version text: any text gives a number.
#include <cstdint>
#include <string>

#include "ChannelDriver.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Kv::Orv::Trace::Vestrel::ChannelDriver::ParseFirmwareVersion(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
