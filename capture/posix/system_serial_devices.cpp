// Serial-port devices from sysfs: every USB serial tty (ttyACM*, ttyUSB*),
// named by its USB interface string and "(COM<n>)" with its own number
// (LinuxTtyNumbers.h), so that probe ports are recognised by the same
// friendly-name patterns as on Windows.
#include <dirent.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>

#include "../LinuxTtyNumbers.h"
#include "../SerialDeviceSource.h"

namespace Kv::Orv::Trace::Vestrel {

namespace {

std::string readLine(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  return line;
}

std::wstring widen(const std::string& text) { return std::wstring(text.begin(), text.end()); }

class SysfsSerialDevices final : public SerialDeviceSource {
 public:
  VersionCheck checkVersion() override { return VersionCheck::Supported; }

  // The sysfs root can be moved (VESTREL_SYSFS_ROOT) so that tests can lay
  // out a device tree of their own.
  bool friendlyNames(std::vector<std::wstring>& names) override {
    const char* root = std::getenv("VESTREL_SYSFS_ROOT");
    const std::string classDir = std::string(root != nullptr ? root : "/sys") + "/class/tty";
    DIR* ttys = opendir(classDir.c_str());
    if (ttys == nullptr) return false;
    std::vector<std::string> entries;
    while (dirent* entry = readdir(ttys)) entries.emplace_back(entry->d_name);
    closedir(ttys);
    std::sort(entries.begin(), entries.end());
    for (const std::string& tty : entries) {
      const std::string number = tty::comNumberOf(tty);
      if (number.empty()) continue;
      // The interface string sits on the USB interface the tty hangs off.
      std::string name = readLine(classDir + "/" + tty + "/device/interface");
      if (name.empty()) name = readLine(classDir + "/" + tty + "/device/../interface");
      if (name.empty()) continue;
      names.push_back(widen(name + " (COM" + number + ")"));
    }
    return true;
  }
};

}  // namespace

SerialDeviceSource& systemSerialDevices() {
  static SysfsSerialDevices source;
  return source;
}

}  // namespace Kv::Orv::Trace::Vestrel
