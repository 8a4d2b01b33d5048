// The --device file of record and gdb-proxy: the device's identification
// code and the addresses of its registers, for --clock auto.
//
//   # comment
//   device_id = 0x0B9AF02F
//   register MOD_SYSCLK CSCTL0 = 0x40000000
//
// Numbers are decimal or 0x hexadecimal and fit in 32 bits. Only a regular
// file is read (not a FIFO or a device, which may never end), of at most
// kMaxDeviceFileBytes and kMaxDeviceFileLines. Every fault is a
// std::invalid_argument that names the file, the line and the reason.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vestrel::device_file {

constexpr std::size_t kMaxDeviceFileBytes = 64 * 1024;
constexpr std::size_t kMaxDeviceFileLines = 1000;
constexpr std::size_t kMaxDeviceLineBytes = 256;

struct DeviceRegister {
  std::string module, name;
  std::uint32_t address = 0;
};

struct DeviceDescription {
  std::uint32_t deviceId = 0;
  std::vector<DeviceRegister> registers;
};

// text as read from the file called name.
DeviceDescription parseDeviceText(const std::string& text, const std::string& name);
DeviceDescription readDeviceFile(const std::string& path);

// The description in the probe simulator's scenario lines.
std::string scenarioLines(const DeviceDescription& device);

}  // namespace vestrel::device_file
