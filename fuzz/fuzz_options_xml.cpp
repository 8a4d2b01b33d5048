// The XML options loader on any file: a set or a cHexkitError, nothing else.
#include "FuzzFiles.h"
#include "SerialDeviceSource.h"
#include "XmlOptions.h"
#include "cHexkitError.h"

namespace {
// No device enumeration while fuzzing.
class NoDevices final : public Kv::Orv::Trace::Vestrel::SerialDeviceSource {
 public:
  VersionCheck checkVersion() override { return VersionCheck::Supported; }
  bool friendlyNames(std::vector<std::wstring>&) override { return true; }
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Kv::Orv::Trace::Vestrel;
  static NoDevices devices;
  static ScopedSerialDeviceSource scope(devices);
  const std::string path = vestrel_fuzz::scratchFile("options.xml", data, size);
  try {
    OptionSet set;
    ChannelOptionsHandler handler;
    handler.load(set, path, 2);
  } catch (const Kv::Orv::Hexkit::cHexkitError&) {
  }
  return 0;
}
