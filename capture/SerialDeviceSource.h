// Where the serial-port devices of the machine come from: the system's device
// lists (SetupAPI on Windows, sysfs on Linux), or a scripted list in tests.
#pragma once

#include <string>
#include <vector>

namespace Kv::Orv::Trace::Vestrel {

class SerialDeviceSource {
 public:
  enum class VersionCheck { Supported, QueryFailed, TooOld };

  virtual ~SerialDeviceSource() = default;
  // Whether the operating system can run the enumeration.
  virtual VersionCheck checkVersion() = 0;
  // The friendly names of the present serial-port devices, in the system's
  // order; devices whose status, ID or name cannot be read are left out.
  // False when the device list cannot be opened at all.
  virtual bool friendlyNames(std::vector<std::wstring>& names) = 0;
};

// Windows XP (5.1), Server 2003 (5.2) and every version from 6.0 on run the
// enumeration; older ones do not.
SerialDeviceSource::VersionCheck classifyWindowsVersion(unsigned major, unsigned minor);

// The source in force: the system's unless a test installed another.
SerialDeviceSource& serialDevices();
SerialDeviceSource& systemSerialDevices();

class ScopedSerialDeviceSource {
 public:
  explicit ScopedSerialDeviceSource(SerialDeviceSource& replacement);
  ~ScopedSerialDeviceSource();
  ScopedSerialDeviceSource(const ScopedSerialDeviceSource&) = delete;
  ScopedSerialDeviceSource& operator=(const ScopedSerialDeviceSource&) = delete;

 private:
  SerialDeviceSource* previous_;
};

}  // namespace Kv::Orv::Trace::Vestrel
