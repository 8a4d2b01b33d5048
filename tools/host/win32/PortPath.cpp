#include "../PortPath.h"

namespace vestrel::host {

std::string describePort(const std::string& given) {
  std::string number = given;
  if (number.size() > 3 && (number.compare(0, 3, "COM") == 0 || number.compare(0, 3, "com") == 0)) number.erase(0, 3);
  if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) return given;
  return "COM" + number + " (\\\\.\\COM" + number + ")";
}

}  // namespace vestrel::host
