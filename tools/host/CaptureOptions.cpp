#include "CaptureOptions.h"

#include <iostream>
#include <stdexcept>

#include "TraceBlockProgrammer.h"

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

// A whole number (decimal or 0x hexadecimal) from lowest to highest, or
// std::invalid_argument naming the option, the value and what is allowed.
std::uint32_t numberIn(const std::string& text, const char* option, std::uint32_t lowest, std::uint32_t highest,
                       const char* orElse) {
  const std::string allowed =
      "give a number from " + std::to_string(lowest) + " to " + std::to_string(highest) + orElse;
  long long value = 0;
  std::size_t used = 0;
  try {
    value = std::stoll(text, &used, 0);
  } catch (const std::out_of_range&) {
    throw std::invalid_argument(std::string(option) + ": " + text + " is out of range: " + allowed);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used == 0 || used != text.size()) {
    throw std::invalid_argument(std::string(option) + ": " + text + " is not a number: " + allowed);
  }
  if (value < lowest || value > highest) {
    throw std::invalid_argument(std::string(option) + ": " + text + " is out of range: " + allowed);
  }
  return static_cast<std::uint32_t>(value);
}

}  // namespace

void addCaptureOptions(CLI::App& command, RecordSettings& settings, CaptureOptionText& text, bool proxy) {
  command.add_option("--port", settings.port,
                     "REQUIRED unless --options names it: the probe's COM port (7 or COM7), or (Linux) a device path");
  command
      .add_option("--clock", text.clock,
                  "REQUIRED unless --options gives it: trace clock in Hz (1000 to 4294967295), or auto (with --gdb "
                  "and --device)")
      ->type_name("HZ|auto");
  command.add_option("--prescaler", settings.prescaler, "TPIU prescaler (0 to 8191), or auto")->type_name("N|auto");
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
    command
        .add_option("--output", settings.output, "binary dumps of the runs' captures: FILE gives FILE-1, FILE-2, ...")
        ->capture_default_str();
  }
}

void applyCaptureOptions(RecordSettings& settings, const CaptureOptionText& text) {
  if (text.clock == "auto") {
    settings.clockAuto = true;
  } else if (!text.clock.empty()) {
    settings.clockHz = numberIn(text.clock, "--clock", 1000, 0xFFFFFFFFu, " (Hz), or auto");
  }
  if (!settings.prescaler.empty() && settings.prescaler != "auto") {
    numberIn(settings.prescaler, "--prescaler", 0, 8191, " (the TPIU's 13-bit field), or auto");
  }
  if (!text.itmPorts.empty()) {
    settings.gdbTarget.trace.itmPorts = 0;
    for (std::uint32_t port : text.itmPorts) settings.gdbTarget.trace.itmPorts |= 1u << port;
  }
  if (!text.pcSampling.empty()) {
    const std::uint32_t asked = numberIn(text.pcSampling, "--pc-sampling", 64, 16384, " cycles");
    const std::uint32_t made = trace_blocks::nearestSamplingInterval(asked).cycles();
    settings.gdbTarget.trace.pcSampleCycles = asked;
    if (made != asked) {
      std::cout << "--pc-sampling: a PC sample every " << made << " cycles, the nearest interval the DWT makes to "
                << asked << "\n";
    }
  }
  if (!text.dataTrace.empty()) settings.gdbTarget.trace.dataTraceAddress = number(text.dataTrace, "--data-trace");
  if (!text.breakAt.empty()) settings.gdbTarget.breakAt = number(text.breakAt, "--break");
}

}  // namespace vestrel::host
