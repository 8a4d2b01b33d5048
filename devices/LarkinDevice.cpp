#include "LarkinDevice.h"

#include <cstring>

#include "LogControl.h"
#include "cHexkitError.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;
using KV_ORV::kLogMessage;

LarkinDevice::LarkinDevice(const std::string& cpuName, Probe::CDeviceIdentifier* identifier,
                           Probe::CTargetAdapter* adapter)
    : cpuName_(cpuName), registers_(cpuName, identifier, adapter) {
  csctl0_ = registers_.read(registers_.address("CSCTL0"));
  csctl1_ = registers_.read(registers_.address("CSCTL1"));
  csctl2_ = registers_.read(registers_.address("CSCTL2"));
  csctl3_ = registers_.read(registers_.address("CSCTL3"));
  csclken_ = registers_.read(registers_.address("CSCLKEN"));
  // The TLV base is the address itself; nothing is read there yet.
  tlvBase_ = registers_.address("TLVBASE");
  KV_LOG(1, kLogMessage,
         "%s: CSCTL0 = 0x%x, CSCTL1 = 0x%x, CSCTL2 = 0x%x, CSCTL3 = 0x%x, CSCLKEN = 0x%x, TLVBASE = 0x%x", kTag,
         csctl0_, csctl1_, csctl2_, csctl3_, csclken_, tlvBase_);
}

double LarkinDevice::dcoFrequency() {
  // Centre frequency in MHz per DCORSEL (rows 6 and 7 repeat row 0).
  static const double kCentreMHz[8] = {1.5, 3, 6, 12, 24, 48, 1.5, 1.5};
  const double nominal = kCentreMHz[(csctl0_ >> 16) & 0x7] * 1000000.0;
  std::int32_t tune = static_cast<std::int32_t>(csctl0_ & 0x1FFF);
  if ((tune & 0x1000) != 0) tune = static_cast<std::int16_t>(static_cast<std::uint16_t>(tune | 0xF000));
  if (tune == 0) return nominal;

  // The resistor choice below always comes out 0 (the bit is shifted out),
  // so the internal-resistor constants are always used. Kept as the clock
  // has always been computed.
  const std::uint32_t externalResistor = (csctl0_ & 0x10000) >> 22;
  float k = 0.0f;
  std::uint32_t fcal = 0;
  if (externalResistor == 0) {
    const std::uint32_t bits = registers_.read(tlvBase_ + 100);
    std::memcpy(&k, &bits, sizeof k);
    fcal = registers_.read(tlvBase_ + 76);
  } else {
    k = static_cast<float>(registers_.read(tlvBase_ + 132));
    fcal = registers_.read(tlvBase_ + 108);
  }
  const float offset = static_cast<float>(static_cast<std::int32_t>(768 - fcal));
  const float divisor = 1.0f - (k * static_cast<float>(tune)) / (8.0f * (1.0f + k * offset));
  return nominal / static_cast<double>(divisor);
}

double LarkinDevice::getSystemClock() {
  const std::uint32_t selm = csctl1_ & 0x7;
  const std::uint32_t divm = (csctl1_ >> 16) & 0x7;
  KV_LOG(1, kLogMessage, "%s: selm = %d, divm = %d", kTag, static_cast<int>(selm), static_cast<int>(divm));
  double source = 0.0;
  switch (selm) {
    case 0:
      source = 32768.0;
      break;
    case 1:
      source = 10240.0;
      break;
    case 2:
      source = (csclken_ & 0x8000) != 0 ? 131072.0 : 32768.0;
      break;
    case 3:
      source = dcoFrequency();
      break;
    case 4:
      source = 25165824.0;
      break;
    default:
      Hexkit::throwHexkitError(kClockUndetermined);
  }
  const double clock = source / static_cast<double>(1u << divm);
  if (clock == 0.0) Hexkit::throwHexkitError(kClockUndetermined);
  return clock;
}

}  // namespace Kv::Orv::Trace::Vestrel
