#include "../PortPath.h"

namespace vestrel::host {

std::string describePort(const std::string& given) {
  const std::string number = comNumberOf(given);
  if (number.empty()) return given;
  return "COM" + number + " (\\\\.\\COM" + number + ")";
}

}  // namespace vestrel::host
