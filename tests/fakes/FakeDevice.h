// A device as the probe software describes it: an identification code, a
// MOD_SYSCLK module with register addresses, and target memory. Queries,
// address lookups and reads are recorded in order.
#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "ProbeInterfaces.h"

namespace vestrel_test {

class FakeDevice final : public Kv::Orv::Probe::CDeviceIdentifier,
                         public Kv::Orv::Probe::CDeviceInfo,
                         public Kv::Orv::Probe::CDeviceModule,
                         public Kv::Orv::Probe::CTargetAdapter {
 public:
  std::uint32_t code = 0;
  bool matchesEverything = false;  // answers yes to every identification query
  bool hasInfo = true;
  bool hasModule = true;
  std::map<std::string, std::string> addresses;  // register -> address text
  std::map<std::uint32_t, std::uint32_t> memory;
  std::vector<std::string> events;

  // A register at an address holding a value.
  void reg(const std::string& name, std::uint32_t address, std::uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", address);
    addresses[name] = text;
    memory[address] = value;
  }
  void setFloat(std::uint32_t address, float value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, 4);
    memory[address] = bits;
  }

  bool matchDevice(std::uint32_t identifier, std::uint32_t mask) override {
    char text[40];
    std::snprintf(text, sizeof text, "match(%08X,%08X)", identifier, mask);
    events.emplace_back(text);
    return matchesEverything || (code & mask) == (identifier & mask);
  }
  Kv::Orv::Probe::CDeviceInfo* getDeviceInfo(const char*) override { return hasInfo ? this : nullptr; }
  Kv::Orv::Probe::CDeviceModule* getModule(const char* name) override {
    return hasModule && std::string(name) == "MOD_SYSCLK" ? this : nullptr;
  }
  std::string getRegisterAddress(const char* name) override {
    events.push_back(std::string("address(") + name + ")");
    auto found = addresses.find(name);
    return found != addresses.end() ? found->second : std::string();
  }
  std::int32_t readMemory(void* destination, std::uint32_t address, std::uint32_t size, std::uint16_t page) override {
    char text[40];
    std::snprintf(text, sizeof text, "read(%08X,%u,%u)", address, size, page);
    events.emplace_back(text);
    auto found = memory.find(address);
    if (found == memory.end() || size != 4) return -1;
    std::memcpy(destination, &found->second, 4);
    return 0;
  }
};

}  // namespace vestrel_test
