// Serial-port devices from SetupAPI and the configuration manager.
#include "win32/windows_headers.h"
// After windows.h, which they need.
#include <cfgmgr32.h>
#include <setupapi.h>

#include "../SerialDeviceSource.h"

namespace Kv::Orv::Trace::Vestrel {

namespace {

// The Ports setup class: {4D36E978-E325-11CE-BFC1-08002BE10318}.
const GUID kPortsClass = {0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};

class SetupApiSerialDevices final : public SerialDeviceSource {
 public:
  VersionCheck checkVersion() override {
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    if (!GetVersionExW(&version)) return VersionCheck::QueryFailed;
#pragma GCC diagnostic pop
    return classifyWindowsVersion(version.dwMajorVersion, version.dwMinorVersion);
  }

  bool friendlyNames(std::vector<std::wstring>& names) override {
    HDEVINFO devices = SetupDiGetClassDevsW(&kPortsClass, nullptr, nullptr, 0);
    if (devices == INVALID_HANDLE_VALUE) return false;
    for (DWORD index = 0;; ++index) {
      SP_DEVINFO_DATA device{};
      device.cbSize = sizeof device;
      if (!SetupDiEnumDeviceInfo(devices, index, &device)) break;
      ULONG status = 0;
      ULONG problem = 0;
      if (CM_Get_DevNode_Status(&status, &problem, device.DevInst, 0) != CR_SUCCESS) continue;
      WCHAR deviceId[200];
      if (CM_Get_Device_IDW(device.DevInst, deviceId, 200, 0) != CR_SUCCESS) continue;
      WCHAR friendlyName[200] = {};
      if (!SetupDiGetDeviceRegistryPropertyW(devices, &device, SPDRP_FRIENDLYNAME, nullptr,
                                             reinterpret_cast<PBYTE>(friendlyName), sizeof friendlyName, nullptr)) {
        continue;
      }
      friendlyName[199] = L'\0';
      names.emplace_back(friendlyName);
    }
    SetupDiDestroyDeviceInfoList(devices);
    return true;
  }
};

}  // namespace

SerialDeviceSource& systemSerialDevices() {
  static SetupApiSerialDevices source;
  return source;
}

}  // namespace Kv::Orv::Trace::Vestrel
