#include "AuxPortDiscovery.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cwchar>

#include "CNumberText.h"
#include "SerialDeviceSource.h"

namespace Kv::Orv::Trace::Vestrel {

namespace {

constexpr const wchar_t* kCalderCdc = L"Calder User CDC Serial Port";
constexpr const wchar_t* kHarrowAux = L"Harrow Class Auxiliary Data Port";
constexpr const wchar_t* kCalderSerial = L"Calder Serial Port";

std::vector<const wchar_t*> patternsFor(std::uint32_t selector) {
  switch (selector) {
    case 0:
      return {kCalderCdc, kCalderSerial};
    case 1:
      return {kHarrowAux};
    case 2:
      return {kCalderCdc, kHarrowAux, kCalderSerial};
    default:
      return {};
  }
}

// Friendly names are printed as the bytes a console shows: ASCII as is,
// anything else as UTF-8.
std::string printable(const std::wstring& text) {
  std::string out;
  for (wchar_t c : text) {
    const auto code = static_cast<std::uint32_t>(c);
    if (code < 0x80) {
      out += static_cast<char>(code);
    } else if (code < 0x800) {
      out += static_cast<char>(0xC0 | (code >> 6));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      out += static_cast<char>(0xE0 | ((code >> 12) & 0x0F));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  return out;
}

std::atomic<SerialDeviceSource*> overrideSource{nullptr};

}  // namespace

SerialDeviceSource::VersionCheck classifyWindowsVersion(unsigned major, unsigned minor) {
  const bool xpOr2003 = major == 5 && (minor == 1 || minor == 2);
  return xpOr2003 || major >= 6 ? SerialDeviceSource::VersionCheck::Supported
                                : SerialDeviceSource::VersionCheck::TooOld;
}

SerialDeviceSource& serialDevices() {
  SerialDeviceSource* replacement = overrideSource.load();
  return replacement != nullptr ? *replacement : systemSerialDevices();
}

ScopedSerialDeviceSource::ScopedSerialDeviceSource(SerialDeviceSource& replacement)
    : previous_(overrideSource.exchange(&replacement)) {}

ScopedSerialDeviceSource::~ScopedSerialDeviceSource() { overrideSource.store(previous_); }

bool matchesProbePort(const std::wstring& friendlyName, std::uint32_t selector) {
  for (const wchar_t* pattern : patternsFor(selector)) {
    if (friendlyName.find(pattern) != std::wstring::npos) return true;
  }
  return false;
}

bool comNumberOf(const std::wstring& friendlyName, int& number) {
  const std::size_t at = friendlyName.find(L"COM");
  if (at == std::wstring::npos) return false;
  // As _wtoi reads it: "(COM12)" gives 12, "(COM 5)" 5.
  number = KV_ORV::wtoi32(friendlyName.substr(at + 3));
  return true;
}

std::vector<std::string> enumerateAuxPorts(std::uint32_t selector) {
  SerialDeviceSource& source = serialDevices();
  switch (source.checkVersion()) {
    case SerialDeviceSource::VersionCheck::QueryFailed:
      std::printf("CleanUp:  Unable to verify Windows version, exiting...\n");
      return {};
    case SerialDeviceSource::VersionCheck::TooOld:
      std::printf("CleanUp:  This utility is  designed to run on Windows XP/2003 and later\n");
      return {};
    case SerialDeviceSource::VersionCheck::Supported:
      break;
  }

  std::vector<std::wstring> names;
  source.friendlyNames(names);
  std::vector<int> numbers;
  for (const std::wstring& name : names) {
    if (!matchesProbePort(name, selector)) continue;
    std::printf("Enumerated:  %s\n", printable(name).c_str());
    int number = 0;
    if (comNumberOf(name, number)) numbers.push_back(number);
  }
  std::fflush(stdout);
  std::sort(numbers.begin(), numbers.end());

  std::vector<std::string> ports;
  for (int number : numbers) ports.push_back(std::to_string(number));
  return ports;
}

}  // namespace Kv::Orv::Trace::Vestrel
