// What the host can say of a probe port the receiver could not open: the
// device the COM number maps to on this system and, where the system can
// tell without opening it, why it cannot be used.
#pragma once

#include <string>

namespace vestrel::host {

// The COM number --port names ("7" and "COM7" give "7"), or "" when it
// names a device path instead.
inline std::string comNumberOf(const std::string& port) {
  std::string number = port;
  if (number.size() > 3 && (number.compare(0, 3, "COM") == 0 || number.compare(0, 3, "com") == 0)) number.erase(0, 3);
  if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) return "";
  return number;
}

// For --port as given (a number, COMn, or a device path): "COM99 is
// /dev/ttyACM99: No such file or directory", "not a serial port (...)", ...
std::string describePort(const std::string& given);

}  // namespace vestrel::host
