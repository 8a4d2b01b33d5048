// The ITM channel setup file ("TraceCntrl-itm.ini") on any content, read
// through the driver's attribute query.
#include <filesystem>
#include <memory>

#include "ChannelDriver.h"
#include "FuzzFiles.h"
#include "PassiveTarget.h"
#include "TraceEnvironment.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Kv::Orv::Trace::Vestrel;
  const std::string path = vestrel_fuzz::scratchFile("TraceCntrl-itm.ini", data, size);
  KV_ORV::SetEnv("KV_TRACE_SETTINGS_DIR", std::filesystem::path(path).parent_path().string().c_str());
  vestrel::target_simulator::PassiveTarget target;
  ChannelDriver driver(reinterpret_cast<Kv::Orv::Trace::CReceiver*>(&target), "Fuzz/Core", &target, 0, 0);
  Kv::Orv::Trace::TraceAttribute attribute;
  for (const char* name : {"ITMChannelType_0", "ITMChannelType_31", "ITMChannelType_7"})
    driver.GetAttribute(name, attribute);
  return 0;
}
