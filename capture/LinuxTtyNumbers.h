// The COM numbers of Linux's USB serial ttys, one per device (the Linux
// serial port and device list use them; plain text, so tested everywhere):
// ttyACM<n> is COM n and ttyUSB<n> is COM (100 + n), for n below 100, so that a Calder
// port on ttyACM3 and a Harrow port on ttyUSB3 are COM3 and COM103. Other
// ttys have no number (a device path still reaches them).
#pragma once

#include <string>

namespace Kv::Orv::Trace::Vestrel::tty {

constexpr unsigned kUsbSerialBase = 100;

// "3" for ttyACM3, "103" for ttyUSB3, "" for any other name.
inline std::string comNumberOf(const std::string& ttyName) {
  unsigned base = 0;
  if (ttyName.rfind("ttyACM", 0) == 0) {
    base = 0;
  } else if (ttyName.rfind("ttyUSB", 0) == 0) {
    base = kUsbSerialBase;
  } else {
    return "";
  }
  const std::string index = ttyName.substr(6);
  if (index.empty() || index.size() > 2 || index.find_first_not_of("0123456789") != std::string::npos) return "";
  return std::to_string(base + static_cast<unsigned>(std::stoul(index)));
}

// The device of COM number, the other way round; "" when it names none.
inline std::string devicePathOf(const std::string& number) {
  if (number.empty() || number.size() > 3 || number.find_first_not_of("0123456789") != std::string::npos) return "";
  const unsigned value = static_cast<unsigned>(std::stoul(number));
  if (value < kUsbSerialBase) return "/dev/ttyACM" + std::to_string(value);
  if (value < 2 * kUsbSerialBase) return "/dev/ttyUSB" + std::to_string(value - kUsbSerialBase);
  return "";
}

}  // namespace Kv::Orv::Trace::Vestrel::tty
