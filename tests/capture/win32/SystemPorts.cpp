#include "../SystemPorts.h"

#include "win32/windows_headers.h"
// After windows.h, which they need.
#include <devguid.h>
#include <setupapi.h>

#include <vector>

namespace vestrel_test {

namespace {

const GUID kPortsClass = {0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};

// Removes every root-enumerated Ports device: the ones tests register
// (possibly left over by an earlier run that was stopped).
void removeTestDevices() {
  HDEVINFO devices = SetupDiGetClassDevsW(&kPortsClass, L"ROOT", nullptr, 0);
  if (devices == INVALID_HANDLE_VALUE) return;
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof device;
  for (DWORD index = 0; SetupDiEnumDeviceInfo(devices, index, &device); ++index) {
    SetupDiRemoveDevice(devices, &device);
  }
  SetupDiDestroyDeviceInfoList(devices);
}

}  // namespace

struct SystemPorts::State {
  HDEVINFO set = INVALID_HANDLE_VALUE;
};

SystemPorts::SystemPorts() : state_(std::make_unique<State>()) {
  removeTestDevices();
  state_->set = SetupDiCreateDeviceInfoList(&kPortsClass, nullptr);
}

SystemPorts::~SystemPorts() {
  if (state_->set != INVALID_HANDLE_VALUE) SetupDiDestroyDeviceInfoList(state_->set);
  removeTestDevices();
}

static void registerDevice(HDEVINFO set, const std::wstring& friendlyName) {
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof device;
  if (!SetupDiCreateDeviceInfoW(set, L"Ports", &kPortsClass, nullptr, nullptr, DICD_GENERATE_ID, &device)) return;
  SetupDiRegisterDeviceInfo(set, &device, 0, nullptr, nullptr, nullptr);
  SetupDiSetDeviceRegistryPropertyW(set, &device, SPDRP_FRIENDLYNAME,
                                    reinterpret_cast<const BYTE*>(friendlyName.c_str()),
                                    static_cast<DWORD>((friendlyName.size() + 1) * sizeof(wchar_t)));
}

void SystemPorts::add(const std::wstring& name, int number) {
  registerDevice(state_->set, name + L" (COM" + std::to_wstring(number) + L")");
}

bool SystemPorts::addWithoutNumber(const std::wstring& name) {
  registerDevice(state_->set, name);
  return true;
}

}  // namespace vestrel_test
