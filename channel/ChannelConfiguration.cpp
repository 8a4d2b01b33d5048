// SetConfiguration: load the options file, then turn the option texts into
// the driver's settings.
#include <cstdlib>
#include <string>

#include "CNumberText.h"
#include "ChannelDriver.h"
#include "LogControl.h"
#include "XmlOptions.h"
#include "cHexkitError.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;
using KV_ORV::kLogError;
using KV_ORV::kLogMessage;

namespace {

// The firmware that first carried SWO on Calder probes.
constexpr std::uint32_t kFirstSwoFirmware = 0x01000005;

std::uint32_t unsignedDecimal(const std::string& text) { return KV_ORV::strtoul32(text.c_str(), 10); }

}  // namespace

// "V 2.0.0.5" reads as 2.0.0.5. The text is cut after the blank before the
// first dot, or after its first character when there is no blank, so
// "1.0.0.5" reads with major 0: a text without the word has always been
// read that way, and probes report the word.
std::uint32_t ChannelDriver::ParseFirmwareVersion(std::string text) {
  const std::size_t dot = text.find('.');
  if (dot == std::string::npos) return 0;
  std::size_t cut = dot;
  while (cut > 0 && text[cut] != ' ') --cut;
  text.erase(0, cut + 1);
  std::uint32_t parts[3] = {0, 0, 0};
  for (std::uint32_t& part : parts) {
    const std::size_t next = text.find('.');
    if (next == std::string::npos) return 0;
    part = static_cast<std::uint32_t>(KV_ORV::atoi32(text.substr(0, next).c_str()));
    text.erase(0, next + 1);
  }
  const auto patch = static_cast<std::uint32_t>(KV_ORV::atoi32(text.c_str()));
  return parts[0] << 24 | parts[1] << 16 | parts[2] << 8 | patch;
}

std::string ChannelDriver::findOption(std::uint32_t id) const {
  for (const ChannelOptions& option : options_) {
    if (option.id == id) return option.value;
  }
  KV_LOG(1, kLogError, "%s: NULL value for CPU=%s and option ID=%d.", kTag, cpuName_.c_str(), static_cast<int>(id));
  return {};
}

void ChannelDriver::SetConfiguration(const char* fileName) {
  KV_ORV::uLockGuard guard(*lock_);
  if (fileName == nullptr) {
    KV_LOG(1, kLogError, "SetConfiguration called with null options for %s", cpuShortName_.c_str());
    Hexkit::throwHexkitError("Internal error setting configuration.");
  }
  KV_LOG(1, kLogMessage, "%s: Set configuration called file - %s.", kTag, fileName);
  OptionSet loaded;
  ChannelOptionsHandler handler;
  handler.load(loaded, fileName, probeKind_);
  options_ = loaded;
  applyOptions();
  state_ = kReadyToRecord;
}

// Each step keeps what the steps before it set, should a later one fail.
void ChannelDriver::applyOptions() {
  const std::uint32_t version = ParseFirmwareVersion(findOption(kOptionFirmwareVersion));
  if (probeKind_ == kCalderProbe && version < kFirstSwoFirmware) {
    Hexkit::throwHexkitError(
        "SWO is not supported by the current emulator firmware. Update the firmware to the latest version (check with "
        "your emulator's vendor for details)");
  }
  firmwareVersion_ = version;

  KV_LOG(1, kLogMessage, "%s: Setting eSWO_ENCODING = %s.", kTag, findOption(kOptionEncoding).c_str());
  encoding_ = eSWO_ENCODING_UART;

  if (findOption(kOptionPrescalerMode) == "Auto") {
    prescalerAuto_ = true;
  } else {
    prescalerAuto_ = false;
    const std::string value = findOption(kOptionPrescalerValue);
    if (value == "Prescalar value") Hexkit::throwHexkitError("Please specify prescalar in Receiver settings");
    prescaler_ = unsignedDecimal(value);
  }

  if (encoding_ == eSWO_ENCODING_UART) {
    if (findOption(kOptionClockMode) == "Auto") {
      clockAuto_ = true;
    } else {
      clockAuto_ = false;
      const std::string value = findOption(kOptionClockValue);
      if (value == "Frequency in Hz") Hexkit::throwHexkitError("Please specify clock frequency in Receiver Settings");
      traceClockHz_ = std::strtod(value.c_str(), nullptr);
    }
    const std::string port = findOption(kOptionComPort);
    if (port.empty()) Hexkit::throwHexkitError("Please specify valid COM port number in Receiver Settings");
    comPort_ = unsignedDecimal(port);
  }

  tsPrescaler_ = unsignedDecimal(findOption(kOptionTimestampPrescaler));
  KV_LOG(1, kLogMessage, "%s: Setting eSWO_TS_PRESCALAR = %d.", kTag, static_cast<int>(tsPrescaler_));
}

}  // namespace Kv::Orv::Trace::Vestrel
