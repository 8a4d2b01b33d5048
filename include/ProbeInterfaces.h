// The probe software's objects that the receiver calls, and the entry points
// of its three libraries ("SetupAdapter4", "DeviceIdentifier",
// "ICETargetAdapter"), which the receiver loads by name at run time.
// Declaration order is slot order.
#pragma once

#include <cstdint>
#include <string>

namespace Kv::Orv::Probe {

class CSetupAdapter {
 public:
  // Slot 0: true when ready; otherwise errorText says why.
  virtual bool Initialize(std::string& errorText) = 0;
  virtual void Reserved1() {}
  virtual void Reserved2() {}
  virtual void Reserved3() {}
  virtual void Reserved4() {}
  virtual void Reserved5() {}
  virtual void Reserved6() {}
  virtual void Reserved7() {}
  virtual void Reserved8() {}
  // Slot 9: the full path of the board data file for the CPU (also stored in path).
  virtual std::string GetBoardFile(std::string cpuName, std::string& path) = 0;

 protected:
  ~CSetupAdapter() = default;  // destroyed through DestroySetupAdapter
};

class CDeviceModule {
 public:
  // The register's address as hexadecimal digits (an optional "0x" prefix).
  virtual std::string getRegisterAddress(const char* registerName) = 0;

 protected:
  ~CDeviceModule() = default;
};

class CDeviceInfo {
 public:
  virtual CDeviceModule* getModule(const char* moduleName) = 0;

 protected:
  ~CDeviceInfo() = default;
};

class CDeviceIdentifier {
 public:
  // True when the connected device's identification code, masked, equals
  // identifier masked.
  virtual bool matchDevice(std::uint32_t identifier, std::uint32_t mask) = 0;
  // Null when the device description cannot be found or parsed.
  virtual CDeviceInfo* getDeviceInfo(const char* cpuName) = 0;

 protected:
  ~CDeviceIdentifier() = default;
};

class CTargetAdapter {
 public:
  // Reads size bytes of target memory at address into destination; a failed
  // read leaves the destination as it was.
  virtual std::int32_t readMemory(void* destination, std::uint32_t address, std::uint32_t size, std::uint16_t page) = 0;

 protected:
  ~CTargetAdapter() = default;
};

// Exports of the probe libraries.
using CreateSetupAdapterFunction = CSetupAdapter* (*)();
using DestroySetupAdapterFunction = void (*)(CSetupAdapter*);
using CreateDeviceIdentifierFunction = CDeviceIdentifier* (*)();
using DestroyDeviceIdentifierFunction = void (*)(CDeviceIdentifier*, std::uint32_t);
using NewTargetAdapterFunction = CTargetAdapter* (*)(const char* cpuName, CTargetAdapter** adapter);

}  // namespace Kv::Orv::Probe
