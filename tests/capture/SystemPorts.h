// Adds serial-port devices to the machine's own device list for the length
// of a test: fake Ports-class devices through SetupAPI on Windows (Wine), a
// device tree under VESTREL_SYSFS_ROOT on Linux.
#pragma once

#include <memory>
#include <string>

namespace vestrel_test {

class SystemPorts {
 public:
  SystemPorts();
  ~SystemPorts();
  SystemPorts(const SystemPorts&) = delete;
  SystemPorts& operator=(const SystemPorts&) = delete;

  // A device named "<name> (COM<number>)".
  void add(const std::wstring& name, int number);
  // A device whose friendly name has no COM number; false where the
  // platform's device list cannot express one (Linux names every tty).
  bool addWithoutNumber(const std::wstring& name);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vestrel_test
