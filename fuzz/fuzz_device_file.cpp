// The --device file and the probe simulator's scenario on any text: a fault
// is an invalid_argument (nothing else escapes, nothing crashes), and a
// device file that reads passes through the scenario unchanged.
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "DeviceFile.h"
#include "Scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    vestrel::probe_simulator::ParseScenario(text);
  } catch (const std::invalid_argument&) {
  }
  vestrel::device_file::DeviceDescription device;
  try {
    device = vestrel::device_file::parseDeviceText(text, "fuzz.txt");
  } catch (const std::invalid_argument&) {
    return 0;
  }
  const vestrel::probe_simulator::Scenario scenario =
      vestrel::probe_simulator::ParseScenario(vestrel::device_file::scenarioLines(device));
  if (scenario.deviceId != device.deviceId) std::abort();
  std::size_t registers = 0;
  for (const auto& [module, names] : scenario.modules) registers += names.size();
  if (registers > device.registers.size()) std::abort();
  for (const auto& r : device.registers) {
    const auto module = scenario.modules.find(r.module);
    if (module == scenario.modules.end() || module->second.count(r.name) == 0) std::abort();
  }
  return 0;
}
