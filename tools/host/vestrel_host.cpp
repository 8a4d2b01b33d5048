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

#include "CaptureOptions.h"
#include "CommandLine.h"
#include "Commands.h"
#include "HostCore.h"
#include "Terminal.h"

using namespace vestrel::host;

int main(int argc, char** argv) {
  CLI::App app{"vestrel-host: drives the Vestrel SWO receiver as a debugger's trace framework does"};
  app.allow_windows_style_options(false);
  vestrel::command_line::addVersionFlag(app, "vestrel-host");
  DemoSettings demoSettings;
  auto* demoCommand = app.add_subcommand("demo", "record from a simulated target and probe, decode and save");
  using vestrel::command_line::numberFrom;
  demoCommand->add_option("--seconds", demoSettings.seconds, "how long to record")
      ->capture_default_str()
      ->check(numberFrom(0.1, 86400, "SECONDS"));
  demoCommand->add_option("--folder", demoSettings.output, "folder for the files of the demo")->capture_default_str();
  demoCommand->add_option("--lines", demoSettings.excerptLines, "decoded lines to show")
      ->capture_default_str()
      ->check(CLI::Range(0, 1000000));
  demoCommand->add_flag("--force", demoSettings.force, "replace the files of an earlier demo in the --folder");
  std::string demoServe, recordServe;
  std::vector<std::uint32_t> demoPorts, recordPorts;
  bool demoDecode = false, demoNoDecode = false;
  demoCommand->add_option("--serve", demoServe, "serve the raw SWO stream over TCP at [HOST:]PORT (host 127.0.0.1)");
  demoCommand->add_option("--serve-max-clients", demoSettings.live.maxClients, "with --serve: clients served at once")
      ->capture_default_str()
      ->check(CLI::Range(1, 10000));
  demoCommand->add_flag("--decode", demoDecode, "show the stimulus text as it arrives (the default on a terminal)");
  demoCommand->add_flag("--no-decode", demoNoDecode, "do not show the decoded trace as it arrives");
  demoCommand->add_flag("--decode-events", demoSettings.live.events,
                        "with the live view: every exception, PC sample and DWT event too (thousands a second)");
  demoCommand
      ->add_option("--decode-ports", demoPorts,
                   "stimulus ports whose text is shown live (implies --decode; default: all)")
      ->delimiter(',')
      ->check(CLI::Range(0, 31));
  auto* portsCommand = app.add_subcommand("ports", "list the probes' auxiliary serial ports");
  RecordSettings recording;
  auto* recordCommand = app.add_subcommand(
      "record", "capture from a probe's serial port (trace set up by your debugger, or through --gdb)");
  CaptureOptionText recordText;
  addCaptureOptions(*recordCommand, recording, recordText, false);
  recordCommand->add_option("--seconds", recording.seconds, "how long; 0 records until Enter")
      ->capture_default_str()
      ->check(numberFrom(0, 31 * 86400.0, "SECONDS"));
  recordCommand->add_option("--output", recording.output, "binary dump of the capture")->capture_default_str();
  recordCommand->add_flag("--force", recording.force, "replace an existing --output file");
  recordCommand->add_option("--serve", recordServe,
                            "serve the raw SWO stream over TCP at [HOST:]PORT (host 127.0.0.1) while recording");
  recordCommand->add_option("--serve-max-clients", recording.live.maxClients, "with --serve: clients served at once")
      ->capture_default_str()
      ->check(CLI::Range(1, 10000));
  recordCommand->add_flag("--decode", recording.live.decode, "show the stimulus text as it arrives");
  recordCommand->add_flag("--decode-events", recording.live.events,
                          "with --decode: every exception, PC sample and DWT event too (thousands a second)");
  recordCommand
      ->add_option("--decode-ports", recordPorts,
                   "stimulus ports whose text is shown live (implies --decode; default: all)")
      ->delimiter(',')
      ->check(CLI::Range(0, 31));
  ProxySettings proxying;
  CaptureOptionText proxyText;
  auto* proxyCommand = app.add_subcommand(
      "gdb-proxy", "pass your debugger's GDB session through to a GDB server, recording while the target runs");
  proxyCommand->add_option("--listen", proxying.listen, "[HOST:]PORT your debugger connects to (target remote ...)")
      ->required();
  addCaptureOptions(*proxyCommand, proxying.record, proxyText, true);
  proxyCommand->add_flag("--force", proxying.record.force, "replace existing numbered --output files");
  proxyCommand->add_option("--sessions", proxying.sessions, "end after this many debugger sessions (0: until Ctrl-C)")
      ->capture_default_str()
      ->check(CLI::Range(0, 1000000));
  std::string writeOptions, showOptions;
  auto* optionsCommand = app.add_subcommand("options", "write a default options file, or show one");
  optionsCommand->add_option("--write", writeOptions, "file to write the defaults to");
  optionsCommand->add_option("--show", showOptions, "options file to show");
  bool forceOptions = false;
  optionsCommand->add_flag("--force", forceOptions, "replace an existing --write file");
  std::string attributeOptions, attributeProfile = "vestrel-attributes";
  auto* attributesCommand = app.add_subcommand("attributes", "the attributes a decoder asks for, for an options file");
  attributesCommand->add_option("--options", attributeOptions, "options file")->required();
  attributesCommand->add_option("--folder", attributeProfile, "folder for the receiver's files")->capture_default_str();
  ExportSettings exporting;
  auto* exportCommand = app.add_subcommand("export", "export the capture of a demo or record folder");
  exportCommand->add_option("--from", exporting.from, "the demo or record folder")->capture_default_str();
  exportCommand->add_option("--core", exporting.core, "the core whose capture to export, when there are several");
  exportCommand->add_option("--tdf", exporting.tdf, "TDF file to append a BinTraceData section to");
  exportCommand->add_option("--binary", exporting.binary, "binary dump to write");
  exportCommand->add_flag("--force", exporting.force, "replace an existing --binary file");
  // Set after the commands, so that only the tool's own help says it.
  app.footer("With no command, vestrel-host runs demo.");
  if (const auto status = vestrel::command_line::parse(app, argc, argv, "vestrel-host")) return *status;
  for (auto [text, live] : {std::pair{&demoServe, &demoSettings.live}, std::pair{&recordServe, &recording.live}}) {
    if (text->empty()) continue;
    live->serve = vestrel::trace_server::parseEndpoint(*text);
    if (!live->serve) {
      std::cerr << "vestrel-host: --serve takes [HOST:]PORT, not " << *text << "\n";
      return 2;
    }
  }
  try {
    applyCaptureOptions(recording, recordText);
    applyCaptureOptions(proxying.record, proxyText);
  } catch (const std::invalid_argument& error) {
    std::cerr << "vestrel-host: " << error.what() << "\n";
    return 2;
  }
  recording.live.ports.insert(recordPorts.begin(), recordPorts.end());
  if (!recordPorts.empty() || recording.live.events) recording.live.decode = true;
  demoSettings.live.ports.insert(demoPorts.begin(), demoPorts.end());
  demoSettings.live.decode =
      !demoNoDecode && (demoDecode || demoSettings.live.events || !demoPorts.empty() || isTerminal(stdout));
  // Files and folders that cannot be made or written end the command with
  // their path and the reason, never with an uncaught exception.
  try {
    if (portsCommand->parsed()) return ports();
    if (attributesCommand->parsed()) return attributes(attributeOptions, attributeProfile);
    if (exportCommand->parsed()) return exportCapture(exporting);
    if (recordCommand->parsed()) return record(recording);
    if (proxyCommand->parsed()) return gdbProxy(proxying);
    if (optionsCommand->parsed()) return options(writeOptions, showOptions, forceOptions);
    return demo(demoSettings);
  } catch (const UsageError& error) {
    std::cerr << "vestrel-host: " << error.what() << "\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "vestrel-host: " << error.what() << "\n";
    return 1;
  }
}
