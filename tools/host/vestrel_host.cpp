// vestrel-host: a command-line host that drives the receiver library the way
// a debugger's trace framework does (load it, CreateRcvr, GetChannelDriver,
// SetConfiguration, target-state notifications, status, samples, SaveToFile,
// ReleaseChannelDriver, DestroyRcvr) and reports every cHexkitError. One file
// per command (Commands.h); this one reads the command line.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Commands.h"
#include "Terminal.h"

using namespace vestrel::host;

int main(int argc, char** argv) {
  CLI::App app{"vestrel-host: drives the Vestrel SWO receiver as a debugger's trace framework does"};
  app.footer("With no command, vestrel-host runs demo.");
  app.allow_windows_style_options(false);
  DemoSettings demoSettings;
  auto* demoCommand = app.add_subcommand("demo", "record from a simulated target and probe, decode and save");
  demoCommand->add_option("--seconds", demoSettings.seconds, "how long to record")->capture_default_str();
  demoCommand->add_option("--output", demoSettings.output, "folder for the files of the demo")->capture_default_str();
  demoCommand->add_option("--lines", demoSettings.excerptLines, "decoded lines to show")->capture_default_str();
  std::string demoServe, recordServe;
  std::vector<std::uint32_t> demoPorts, recordPorts;
  bool demoDecode = false, demoNoDecode = false;
  demoCommand->add_option("--serve", demoServe, "serve the raw SWO stream over TCP at [HOST:]PORT (host 127.0.0.1)");
  demoCommand->add_flag("--decode", demoDecode, "show the decoded trace as it arrives (the default on a terminal)");
  demoCommand->add_flag("--no-decode", demoNoDecode, "do not show the decoded trace as it arrives");
  demoCommand->add_option("--decode-ports", demoPorts, "stimulus ports whose text is shown live (default: all)")
      ->delimiter(',');
  auto* portsCommand = app.add_subcommand("ports", "list the probes' auxiliary serial ports");
  RecordSettings recording;
  auto* recordCommand = app.add_subcommand(
      "record", "capture from a probe's serial port (trace set up by your debugger, or through --gdb)");
  recordCommand->add_option("--port", recording.port, "COM port (7 or COM7), or (Linux) a device path");
  std::string clock;
  recordCommand->add_option("--clock", clock, "trace clock in Hz, or auto (with --gdb and --device)");
  std::vector<std::uint32_t> itmPorts;
  std::string pcSampling, dataTrace, breakAt;
  auto* gdbOption = recordCommand->add_option(
      "--gdb", recording.gdbTarget.server,
      "a GDB server at HOST:PORT (OpenOCD, pyOCD, J-Link, QEMU...): the receiver programs the target's TPIU, ITM "
      "and DWT through it, the target runs while recording and is halted at the end");
  recordCommand
      ->add_option("--device", recording.gdbTarget.deviceFile,
                   "with --gdb: the device (device_id and register lines, probe simulator scenario format) whose "
                   "clock registers --clock auto reads")
      ->needs(gdbOption)
      ->check(CLI::ExistingFile);
  recordCommand->add_option("--itm-ports", itmPorts, "with --gdb: stimulus ports to enable (default: all 32)")
      ->delimiter(',')
      ->needs(gdbOption)
      ->check(CLI::Range(0, 31));
  recordCommand
      ->add_option("--pc-sampling", pcSampling,
                   "with --gdb: a PC sample every CYCLES core cycles (64 to 16384, the nearest the DWT can make)")
      ->needs(gdbOption);
  recordCommand->add_flag("--exceptions", recording.gdbTarget.trace.exceptions, "with --gdb: exception trace")
      ->needs(gdbOption);
  recordCommand
      ->add_option("--data-trace", dataTrace,
                   "with --gdb: the PC and value of every read and write of the word at ADDRESS")
      ->needs(gdbOption);
  recordCommand
      ->add_option("--break", breakAt,
                   "with --gdb: end the recording when the target reaches ADDRESS (a hardware breakpoint)")
      ->needs(gdbOption);
  recordCommand
      ->add_flag("--leave-running", recording.gdbTarget.leaveRunning, "with --gdb: resume the target at the end")
      ->needs(gdbOption);
  recordCommand->add_option("--prescaler", recording.prescaler, "TPIU prescaler, or auto");
  recordCommand->add_option("--options", recording.optionsFile, "options file to start from")->check(CLI::ExistingFile);
  recordCommand->add_option("--firmware", recording.firmware,
                            "the probe's firmware version (default: the options file's, else V 1.0.0.5)");
  recordCommand->add_option("--seconds", recording.seconds, "how long; 0 records until Enter")->capture_default_str();
  recordCommand->add_option("--output", recording.output, "binary dump of the capture")->capture_default_str();
  recordCommand->add_option("--serve", recordServe,
                            "serve the raw SWO stream over TCP at [HOST:]PORT (host 127.0.0.1) while recording");
  recordCommand->add_flag("--decode", recording.live.decode, "show the decoded trace as it arrives");
  recordCommand->add_option("--decode-ports", recordPorts, "stimulus ports whose text is shown live (implies --decode)")
      ->delimiter(',');
  std::string writeOptions, showOptions;
  auto* optionsCommand = app.add_subcommand("options", "write a default options file, or show one");
  optionsCommand->add_option("--write", writeOptions, "file to write the defaults to");
  optionsCommand->add_option("--show", showOptions, "options file to show");
  std::string attributeOptions, attributeProfile = "vestrel-attributes";
  auto* attributesCommand = app.add_subcommand("attributes", "the attributes a decoder asks for, for an options file");
  attributesCommand->add_option("--options", attributeOptions, "options file")->required();
  attributesCommand->add_option("--profile", attributeProfile, "folder for the receiver's files")
      ->capture_default_str();
  ExportSettings exporting;
  auto* exportCommand = app.add_subcommand("export", "export the capture of a demo or record folder");
  exportCommand->add_option("--from", exporting.from, "the demo or record folder")->capture_default_str();
  exportCommand->add_option("--core", exporting.core, "the core whose capture to export, when there are several");
  exportCommand->add_option("--tdf", exporting.tdf, "TDF file to append a BinTraceData section to");
  exportCommand->add_option("--binary", exporting.binary, "binary dump to write");
  CLI11_PARSE(app, argc, argv);
  for (auto [text, live] : {std::pair{&demoServe, &demoSettings.live}, std::pair{&recordServe, &recording.live}}) {
    if (text->empty()) continue;
    live->serve = vestrel::live::parseEndpoint(*text);
    if (!live->serve) {
      std::cerr << "vestrel-host: --serve takes [HOST:]PORT, not " << *text << "\n";
      return 2;
    }
  }
  // Numbers: decimal or 0x hexadecimal.
  auto number = [](const std::string& text, const char* option) {
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
  };
  try {
    if (clock == "auto") {
      recording.clockAuto = true;
    } else if (!clock.empty()) {
      recording.clockHz = number(clock, "--clock");
    }
    if (!itmPorts.empty()) {
      recording.gdbTarget.trace.itmPorts = 0;
      for (std::uint32_t port : itmPorts) recording.gdbTarget.trace.itmPorts |= 1u << port;
    }
    if (!pcSampling.empty()) recording.gdbTarget.trace.pcSampleCycles = number(pcSampling, "--pc-sampling");
    if (!dataTrace.empty()) recording.gdbTarget.trace.dataTraceAddress = number(dataTrace, "--data-trace");
    if (!breakAt.empty()) recording.gdbTarget.breakAt = number(breakAt, "--break");
  } catch (const std::invalid_argument& error) {
    std::cerr << "vestrel-host: " << error.what() << "\n";
    return 2;
  }
  recording.live.ports.insert(recordPorts.begin(), recordPorts.end());
  if (!recordPorts.empty()) recording.live.decode = true;
  demoSettings.live.ports.insert(demoPorts.begin(), demoPorts.end());
  demoSettings.live.decode = !demoNoDecode && (demoDecode || !demoPorts.empty() || isTerminal(stdout));
  // Files and folders that cannot be made or written end the command with
  // their path and the reason, never with an uncaught exception.
  try {
    if (portsCommand->parsed()) return ports();
    if (attributesCommand->parsed()) return attributes(attributeOptions, attributeProfile);
    if (exportCommand->parsed()) return exportCapture(exporting);
    if (recordCommand->parsed()) return record(recording);
    if (optionsCommand->parsed()) return options(writeOptions, showOptions);
    return demo(demoSettings);
  } catch (const std::exception& error) {
    std::cerr << "vestrel-host: " << error.what() << "\n";
    return 2;
  }
}
