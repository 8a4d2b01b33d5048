// What the simulated probe software does, read from the scenario file that
// VESTREL_PROBE_SCENARIO names (format: README.md beside this file).
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace vestrel::probe_simulator {

struct Scenario {
  bool setupAdapterNull = false;
  bool setupAdapterThrows = false;         // CreateSetupAdapter throws std::runtime_error
  bool destroySetupAdapterThrows = false;  // DestroySetupAdapter frees the adapter, then throws
  enum class Initialize { Ok, Fail, Throw } initialize = Initialize::Ok;
  std::string initializeError;
  std::map<std::string, std::string> boards;  // CPU name (or "*") -> board file
  bool identifierNull = false;
  bool identifierOutOfMemory = false;        // CreateDeviceIdentifier throws std::bad_alloc
  bool identifierThrows = false;             // CreateDeviceIdentifier throws std::runtime_error
  bool identifierThrowsHexkitError = false;  // ... a cHexkitError of severity 1
  bool destroyIdentifierThrows = false;
  std::uint32_t deviceId = 0;
  bool deviceInfoNull = false;
  std::map<std::string, std::map<std::string, std::string>> modules;  // module -> register -> address text
  std::map<std::uint32_t, std::uint32_t> memory;
  bool targetAdapterNull = false;

  std::string boardFor(const std::string& cpuName) const;
};

// Reads the scenario in force now. Unknown keys are ignored; a number that
// is not one is a std::invalid_argument naming the line.
Scenario LoadScenario();
Scenario ParseScenario(const std::string& text);

}  // namespace vestrel::probe_simulator
