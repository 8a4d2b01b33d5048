#include "CaptureOptions.h"

#include <stdexcept>

namespace vestrel::host {

namespace {

std::uint32_t number(const std::string& text, const char* option) {
  std::size_t used = 0;
  unsigned long value = 0;
  try {
    value = std::stoul(text, &used, 0);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used == 0 || used != text.size() || value > 0xFFFFFFFFul) {
    throw std::invalid_argument(std::string(option) + " takes a number, not " + text);
  }
  return static_cast<std::uint32_t>(value);
}

}  // namespace

void addCaptureOptions(CLI::App& command, RecordSettings& settings, CaptureOptionText& text, bool proxy) {
  command.add_option("--port", settings.port, "COM port (7 or COM7), or (Linux) a device path");
  command.add_option("--clock", text.clock, "trace clock in Hz, or auto (with --gdb and --device)");
  command.add_option("--prescaler", settings.prescaler, "TPIU prescaler, or auto");
  command.add_option("--options", settings.optionsFile, "options file to start from")->check(CLI::ExistingFile);
  command.add_option("--firmware", settings.firmware,
                     "the probe's firmware version (default: the options file's, else V 1.0.0.5)");
  auto* gdb = command.add_option(
      "--gdb", settings.gdbTarget.server,
      "a GDB server at HOST:PORT (OpenOCD, pyOCD, J-Link, QEMU...): the receiver programs the target's TPIU, ITM "
      "and DWT through it" +
          std::string(proxy ? "" : "; the target runs while recording and is halted at the end"));
  if (proxy) gdb->required();
  command
      .add_option("--device", settings.gdbTarget.deviceFile,
                  "with --gdb: the device (device_id and register lines, probe simulator scenario format) whose "
                  "clock registers --clock auto reads")
      ->needs(gdb)
      ->check(CLI::ExistingFile);
  command.add_option("--itm-ports", text.itmPorts, "with --gdb: stimulus ports to enable (default: all 32)")
      ->delimiter(',')
      ->needs(gdb)
      ->check(CLI::Range(0, 31));
  command
      .add_option("--pc-sampling", text.pcSampling,
                  "with --gdb: a PC sample every CYCLES core cycles (64 to 16384, the nearest the DWT can make)")
      ->needs(gdb);
  command.add_flag("--exceptions", settings.gdbTarget.trace.exceptions, "with --gdb: exception trace")->needs(gdb);
  command
      .add_option("--data-trace", text.dataTrace,
                  "with --gdb: the PC and value of every read and write of the word at ADDRESS")
      ->needs(gdb);
  if (!proxy) {
    command
        .add_option("--break", text.breakAt,
                    "with --gdb: end the recording when the target reaches ADDRESS (a hardware breakpoint)")
        ->needs(gdb);
    command.add_flag("--leave-running", settings.gdbTarget.leaveRunning, "with --gdb: resume the target at the end")
        ->needs(gdb);
  } else {
    command.add_option("--output", settings.output, "binary dump of the last run's capture")->capture_default_str();
  }
}

void applyCaptureOptions(RecordSettings& settings, const CaptureOptionText& text) {
  if (text.clock == "auto") {
    settings.clockAuto = true;
  } else if (!text.clock.empty()) {
    settings.clockHz = number(text.clock, "--clock");
  }
  if (!text.itmPorts.empty()) {
    settings.gdbTarget.trace.itmPorts = 0;
    for (std::uint32_t port : text.itmPorts) settings.gdbTarget.trace.itmPorts |= 1u << port;
  }
  if (!text.pcSampling.empty()) settings.gdbTarget.trace.pcSampleCycles = number(text.pcSampling, "--pc-sampling");
  if (!text.dataTrace.empty()) settings.gdbTarget.trace.dataTraceAddress = number(text.dataTrace, "--data-trace");
  if (!text.breakAt.empty()) settings.gdbTarget.breakAt = number(text.breakAt, "--break");
}

}  // namespace vestrel::host
