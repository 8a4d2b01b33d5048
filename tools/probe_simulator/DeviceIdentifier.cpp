// "DeviceIdentifier": the connected device's identification code and its
// description (modules and register addresses).
#include <map>
#include <new>
#include <stdexcept>
#include <string>

#include "ProbeInterfaces.h"
#include "Scenario.h"
#include "SimulatorExport.h"
#include "cHexkitError.h"

namespace {

class SimulatedModule final : public Kv::Orv::Probe::CDeviceModule {
 public:
  explicit SimulatedModule(std::map<std::string, std::string> registers) : registers_(std::move(registers)) {}
  ~SimulatedModule() = default;
  std::string getRegisterAddress(const char* registerName) override {
    auto found = registers_.find(registerName != nullptr ? registerName : "");
    return found != registers_.end() ? found->second : std::string();
  }

 private:
  std::map<std::string, std::string> registers_;
};

class SimulatedDeviceInfo final : public Kv::Orv::Probe::CDeviceInfo {
 public:
  explicit SimulatedDeviceInfo(const vestrel::probe_simulator::Scenario& scenario) {
    for (const auto& [name, registers] : scenario.modules) modules_.emplace(name, SimulatedModule(registers));
  }
  ~SimulatedDeviceInfo() = default;
  Kv::Orv::Probe::CDeviceModule* getModule(const char* moduleName) override {
    auto found = modules_.find(moduleName != nullptr ? moduleName : "");
    return found != modules_.end() ? &found->second : nullptr;
  }

 private:
  std::map<std::string, SimulatedModule> modules_;
};

class SimulatedDeviceIdentifier final : public Kv::Orv::Probe::CDeviceIdentifier {
 public:
  explicit SimulatedDeviceIdentifier(vestrel::probe_simulator::Scenario scenario)
      : scenario_(std::move(scenario)), info_(scenario_) {}
  ~SimulatedDeviceIdentifier() = default;

  bool matchDevice(std::uint32_t identifier, std::uint32_t mask) override {
    return (scenario_.deviceId & mask) == (identifier & mask);
  }
  Kv::Orv::Probe::CDeviceInfo* getDeviceInfo(const char*) override {
    return scenario_.deviceInfoNull ? nullptr : &info_;
  }

 private:
  vestrel::probe_simulator::Scenario scenario_;
  SimulatedDeviceInfo info_;
};

}  // namespace

SIM_EXPORT Kv::Orv::Probe::CDeviceIdentifier* CreateDeviceIdentifier() {
  vestrel::probe_simulator::Scenario scenario = vestrel::probe_simulator::LoadScenario();
  if (scenario.identifierNull) return nullptr;
  if (scenario.identifierOutOfMemory) throw std::bad_alloc();
  if (scenario.identifierThrows) throw std::runtime_error("device identifier: create failed");
  if (scenario.identifierThrowsHexkitError) {
    Kv::Orv::Hexkit::throwHexkitError("device identifier: no licence",
                                      Kv::Orv::Hexkit::cHexkitErrorIF::eSeverityRecoverable);
  }
  return new SimulatedDeviceIdentifier(std::move(scenario));
}

SIM_EXPORT void DestroyDeviceIdentifier(Kv::Orv::Probe::CDeviceIdentifier* identifier, std::uint32_t) {
  const bool fails = vestrel::probe_simulator::LoadScenario().destroyIdentifierThrows;
  delete static_cast<SimulatedDeviceIdentifier*>(identifier);
  if (fails) throw std::runtime_error("device identifier: destroy failed");
}
