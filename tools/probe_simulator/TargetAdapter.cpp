// "ICETargetAdapter": target memory reads per CPU.
#include <cstring>
#include <memory>
#include <vector>

#include "ProbeInterfaces.h"
#include "Scenario.h"
#include "SimulatorExport.h"

namespace {

// A reader of target memory that the host lends (its GDB connection to a
// real target): 0 when it read size bytes into destination.
using HostMemoryReader = int (*)(void* context, std::uint32_t address, void* destination, std::uint32_t size);
HostMemoryReader hostReader = nullptr;
void* hostContext = nullptr;

class SimulatedTargetAdapter final : public Kv::Orv::Probe::CTargetAdapter {
 public:
  explicit SimulatedTargetAdapter(vestrel::probe_simulator::Scenario scenario) : scenario_(std::move(scenario)) {}
  ~SimulatedTargetAdapter() = default;

  // The scenario's memory first; any other address from the host's target,
  // when it lent one.
  std::int32_t readMemory(void* destination, std::uint32_t address, std::uint32_t size, std::uint16_t) override {
    if (destination == nullptr) return -1;
    auto found = scenario_.memory.find(address);
    if (size == 4 && found != scenario_.memory.end()) {
      std::memcpy(destination, &found->second, 4);
      return 0;
    }
    if (hostReader != nullptr && size > 0 && size <= 4096) {
      return hostReader(hostContext, address, destination, size) == 0 ? 0 : -1;
    }
    return -1;
  }

 private:
  vestrel::probe_simulator::Scenario scenario_;
};

// The receiver never releases its adapters; the library keeps them and frees
// them when it is unloaded.
std::vector<std::unique_ptr<SimulatedTargetAdapter>>& adapters() {
  static std::vector<std::unique_ptr<SimulatedTargetAdapter>> all;
  return all;
}

}  // namespace

SIM_EXPORT Kv::Orv::Probe::CTargetAdapter* NewTargetAdapter(const char*, Kv::Orv::Probe::CTargetAdapter** adapter) {
  vestrel::probe_simulator::Scenario scenario = vestrel::probe_simulator::LoadScenario();
  Kv::Orv::Probe::CTargetAdapter* made = nullptr;
  if (!scenario.targetAdapterNull) {
    adapters().push_back(std::make_unique<SimulatedTargetAdapter>(std::move(scenario)));
    made = adapters().back().get();
  }
  if (adapter != nullptr) *adapter = made;
  return made;
}

// The host lends its target's memory (null: takes it back). Not part of the
// probe software's interface: vestrel-host calls it when it drives a real
// target through a GDB server, so that automatic clock detection reads that
// target's registers over the host's own connection.
SIM_EXPORT void VestrelSimulatorUseHostMemory(HostMemoryReader reader, void* context) {
  hostReader = reader;
  hostContext = context;
}
