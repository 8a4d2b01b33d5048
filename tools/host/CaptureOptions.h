// The command-line options record and gdb-proxy share: the probe's port,
// the clock and prescaler, the options file, the output, and for a target
// behind a GDB server what to trace. Read as text, then applied.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "Commands.h"

namespace vestrel::host {

struct CaptureOptionText {
  std::string clock, pcSampling, dataTrace, breakAt;
  std::vector<std::uint32_t> itmPorts;
};

// proxy: the options of gdb-proxy (--gdb required; no --break or
// --leave-running, the debugger runs and halts the target).
void addCaptureOptions(CLI::App& command, RecordSettings& settings, CaptureOptionText& text, bool proxy);
// Numbers are decimal or 0x hexadecimal; throws std::invalid_argument naming
// the option.
void applyCaptureOptions(RecordSettings& settings, const CaptureOptionText& text);

}  // namespace vestrel::host
