#include "../SystemPorts.h"

#include <filesystem>
#include <fstream>

#include "TestSupport.h"

namespace vestrel_test {

// COM n below 100 is ttyACM<n>, which carries the interface string on its
// device; COM 100 + n is ttyUSB<n>, whose interface string sits one level
// up, as with real USB serial adapters.
struct SystemPorts::State {
  ScratchDirectory root;
  ScopedEnv sysfs{"VESTREL_SYSFS_ROOT", root.path()};
};

SystemPorts::SystemPorts() : state_(std::make_unique<State>()) {
  std::filesystem::create_directories(state_->root.path() + "/class/tty/ttyS0");  // a plain UART, never listed
}

SystemPorts::~SystemPorts() = default;

void SystemPorts::add(const std::wstring& name, int number) {
  const std::string interface(name.begin(), name.end());
  const std::string tty = state_->root.path() + "/class/tty/" +
                          (number < 100 ? "ttyACM" + std::to_string(number) : "ttyUSB" + std::to_string(number - 100));
  if (tty.find("ttyACM") != std::string::npos) {
    std::filesystem::create_directories(tty + "/device");
    std::ofstream(tty + "/device/interface") << interface << "\n";
  } else {
    // Here device/.. is the tty folder itself.
    std::filesystem::create_directories(tty + "/device");
    std::ofstream(tty + "/interface") << interface << "\n";
  }
}

bool SystemPorts::addWithoutNumber(const std::wstring&) { return false; }

}  // namespace vestrel_test
