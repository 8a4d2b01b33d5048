// What the host can say of a probe port the receiver could not open: the
// device the COM number maps to on this system and, where the system can
// tell without opening it, why it cannot be used.
#pragma once

#include <string>

namespace vestrel::host {

// For --port as given (a number, COMn, or a device path): "COM99 is
// /dev/ttyACM99: No such file or directory", "not a serial port (...)", ...
std::string describePort(const std::string& given);

}  // namespace vestrel::host
