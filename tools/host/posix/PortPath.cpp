#include "../PortPath.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "LinuxTtyNumbers.h"

namespace vestrel::host {

namespace {

// Why the device cannot serve as the probe's port, as the system says it.
// It has already failed to open as one, so opening it once more (without
// becoming its controlling terminal, without waiting) changes nothing.
std::string whyNotAPort(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return std::strerror(errno);
  if (!S_ISCHR(status.st_mode)) return "not a serial port (not a character device)";
  const int device = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
  if (device < 0) return std::strerror(errno);
  const bool terminal = isatty(device) != 0;
  close(device);
  return terminal ? "it opens here, but the receiver's settings for it were refused"
                  : "not a serial port (a character device that is no terminal)";
}

}  // namespace

std::string describePort(const std::string& given) {
  const std::string number = comNumberOf(given);
  if (number.empty()) return whyNotAPort(given);
  const std::string path = Kv::Orv::Trace::Vestrel::tty::devicePathOf(number);
  if (path.empty()) return "COM" + number + " is no device here (ttyACM<n> is COM n, ttyUSB<n> is COM 100 + n)";
  return "COM" + number + " is " + path + ": " + whyNotAPort(path);
}

}  // namespace vestrel::host
