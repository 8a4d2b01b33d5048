// "ICETargetAdapter": target memory reads per CPU.
#include <cstring>
#include <memory>
#include <vector>

#include "ProbeInterfaces.h"
#include "Scenario.h"
#include "SimulatorExport.h"

namespace {

class SimulatedTargetAdapter final : public Kv::Orv::Probe::CTargetAdapter {
 public:
  explicit SimulatedTargetAdapter(vestrel_sim::Scenario scenario) : scenario_(std::move(scenario)) {}
  ~SimulatedTargetAdapter() = default;

  std::int32_t readMemory(void* destination, std::uint32_t address, std::uint32_t size, std::uint16_t) override {
    auto found = scenario_.memory.find(address);
    if (destination == nullptr || size != 4 || found == scenario_.memory.end()) return -1;
    std::memcpy(destination, &found->second, 4);
    return 0;
  }

 private:
  vestrel_sim::Scenario scenario_;
};

// The receiver never releases its adapters; the library keeps them and frees
// them when it is unloaded.
std::vector<std::unique_ptr<SimulatedTargetAdapter>>& adapters() {
  static std::vector<std::unique_ptr<SimulatedTargetAdapter>> all;
  return all;
}

}  // namespace

SIM_EXPORT Kv::Orv::Probe::CTargetAdapter* NewTargetAdapter(const char*, Kv::Orv::Probe::CTargetAdapter** adapter) {
  vestrel_sim::Scenario scenario = vestrel_sim::LoadScenario();
  Kv::Orv::Probe::CTargetAdapter* made = nullptr;
  if (!scenario.targetAdapterNull) {
    adapters().push_back(std::make_unique<SimulatedTargetAdapter>(std::move(scenario)));
    made = adapters().back().get();
  }
  if (adapter != nullptr) *adapter = made;
  return made;
}
