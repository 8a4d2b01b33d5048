// A scripted list of serial-port devices.
#pragma once

#include <string>
#include <vector>

#include "SerialDeviceSource.h"

namespace vestrel_test {

class FakeSerialDevices final : public Kv::Orv::Trace::Vestrel::SerialDeviceSource {
 public:
  VersionCheck version = VersionCheck::Supported;
  bool listFails = false;
  std::vector<std::wstring> names;
  int listings = 0;

  VersionCheck checkVersion() override { return version; }
  bool friendlyNames(std::vector<std::wstring>& out) override {
    ++listings;
    if (listFails) return false;
    out = names;
    return true;
  }
};

}  // namespace vestrel_test
