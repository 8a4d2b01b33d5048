// Finds the serial ports through which a debug probe forwards SWO data, by
// the friendly names the probes give their auxiliary ports.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Kv::Orv::Trace::Vestrel {

// Probe family selector: 0 Calder, 1 Harrow, 2 any; others find nothing.
// Returns the COM numbers as decimal texts in ascending numeric order,
// duplicates kept. Never throws: problems give an empty or shorter list.
std::vector<std::string> enumerateAuxPorts(std::uint32_t selector);

// The COM number in a friendly name: the digits right after its first
// "COM" (0 when none follow); false when it holds no "COM".
bool comNumberOf(const std::wstring& friendlyName, int& number);

// Whether a friendly name is one of the selector's probe ports.
bool matchesProbePort(const std::wstring& friendlyName, std::uint32_t selector);

}  // namespace Kv::Orv::Trace::Vestrel
