// "SetupAdapter4": answers Initialize and the board file per CPU.
#include <stdexcept>

#include "ProbeInterfaces.h"
#include "Scenario.h"
#include "SimulatorExport.h"

namespace {

class SimulatedSetupAdapter final : public Kv::Orv::Probe::CSetupAdapter {
 public:
  explicit SimulatedSetupAdapter(vestrel::probe_simulator::Scenario scenario) : scenario_(std::move(scenario)) {}
  ~SimulatedSetupAdapter() = default;

  bool Initialize(std::string& errorText) override {
    switch (scenario_.initialize) {
      case vestrel::probe_simulator::Scenario::Initialize::Ok:
        return true;
      case vestrel::probe_simulator::Scenario::Initialize::Throw:
        throw std::runtime_error("simulated setup adapter failure");
      case vestrel::probe_simulator::Scenario::Initialize::Fail:
        break;
    }
    errorText = scenario_.initializeError;
    return false;
  }

  std::string GetBoardFile(std::string cpuName, std::string& path) override {
    path = scenario_.boardFor(cpuName);
    return path;
  }

  bool destroyThrows() const { return scenario_.destroySetupAdapterThrows; }

 private:
  vestrel::probe_simulator::Scenario scenario_;
};

}  // namespace

SIM_EXPORT Kv::Orv::Probe::CSetupAdapter* CreateSetupAdapter() {
  vestrel::probe_simulator::Scenario scenario = vestrel::probe_simulator::LoadScenario();
  if (scenario.setupAdapterNull) return nullptr;
  if (scenario.setupAdapterThrows) throw std::runtime_error("setup adapter: create failed");
  return new SimulatedSetupAdapter(std::move(scenario));
}

SIM_EXPORT void DestroySetupAdapter(Kv::Orv::Probe::CSetupAdapter* adapter) {
  const bool fails = static_cast<SimulatedSetupAdapter*>(adapter)->destroyThrows();
  delete static_cast<SimulatedSetupAdapter*>(adapter);
  if (fails) throw std::runtime_error("setup adapter: destroy failed");
}
