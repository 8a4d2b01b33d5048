// The ITM channel setup file ("TraceCntrl-itm.ini") on any content, read
// through the driver's attribute query.
#include <filesystem>
#include <memory>

#include "ChannelDriver.h"
#include "FuzzFiles.h"
#include "TraceEnvironment.h"

namespace {
class SilentTarget final : public Kv::Orv::Trace::CCpuTraceInterface {
 public:
  std::int32_t ReleaseTrace(std::uint32_t) override { return 0; }
  std::int32_t ProgramTpiu(std::uint32_t) override { return 0; }
  std::int32_t EnableTpiu(std::uint32_t) override { return 0; }
  std::int32_t TraceOff(std::uint32_t) override { return 0; }
  std::int32_t TraceStop(std::uint32_t) override { return 0; }
  std::int32_t SetTpiuPrescaler(std::uint32_t, std::uint32_t) override { return 0; }
  std::int32_t GetTraceExportStatus(std::uint32_t, std::uint32_t* status) override {
    *status = 0;
    return 0;
  }
  std::int32_t AckTraceExportStatus(std::uint32_t, std::uint32_t) override { return 0; }
  std::int32_t SetPinProtocol(std::uint32_t, Kv::Orv::Trace::eSWO_ENCODING) override { return 0; }
  std::int32_t SetTimestampPrescaler(std::uint32_t, Kv::Orv::Trace::eSWO_TS_PRESCALAR) override { return 0; }
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Kv::Orv::Trace::Vestrel;
  const std::string path = vestrel_fuzz::scratchFile("TraceCntrl-itm.ini", data, size);
  KV_ORV::SetEnv("KV_TRACE_SETTINGS_DIR", std::filesystem::path(path).parent_path().string().c_str());
  SilentTarget target;
  ChannelDriver driver(reinterpret_cast<Kv::Orv::Trace::CReceiver*>(&target), "Fuzz/Core", &target, 0, 0);
  Kv::Orv::Trace::TraceAttribute attribute;
  for (const char* name : {"ITMChannelType_0", "ITMChannelType_31", "ITMChannelType_7"})
    driver.GetAttribute(name, attribute);
  return 0;
}
