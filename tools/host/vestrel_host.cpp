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

namespace {

using vestrel::command_line::numberFrom;

// What the demo's command line gives, before it becomes its settings.
struct DemoCommandLine {
  DemoSettings settings;
  std::string serve;
  std::vector<std::uint32_t> ports;
  bool decode = false;
  bool noDecode = false;
};

// What record's command line gives, before it becomes its settings.
struct RecordCommandLine {
  RecordSettings settings;
  CaptureOptionText text;
  std::string serve;
  std::vector<std::uint32_t> ports;
};

struct ProxyCommandLine {
  ProxySettings settings;
  CaptureOptionText text;
};

struct OptionsCommandLine {
  std::string write, show;
  bool force = false;
};

struct AttributesCommandLine {
  std::string options, folder = "vestrel-attributes";
};

CLI::App* addDemoCommand(CLI::App& app, DemoCommandLine& demo) {
  auto* command = app.add_subcommand("demo", "record from a simulated target and probe, decode and save");
  command->add_option("--seconds", demo.settings.seconds, "how long to record")
      ->capture_default_str()
      ->check(numberFrom(0.1, 86400, "SECONDS"));
  command->add_option("--folder", demo.settings.output, "folder for the files of the demo")->capture_default_str();
  command->add_option("--lines", demo.settings.excerptLines, "decoded lines to show")
      ->capture_default_str()
      ->check(CLI::Range(0, 1000000));
  command->add_flag("--force", demo.settings.force, "replace the files of an earlier demo in the --folder");
  command->add_option("--serve", demo.serve, "serve the raw SWO stream over TCP at [HOST:]PORT (host 127.0.0.1)");
  command->add_option("--serve-max-clients", demo.settings.live.maxClients, "with --serve: clients served at once")
      ->capture_default_str()
      ->check(CLI::Range(1, 10000));
  command->add_flag("--decode", demo.decode, "show the stimulus text as it arrives (the default on a terminal)");
  command->add_flag("--no-decode", demo.noDecode, "do not show the decoded trace as it arrives");
  command->add_flag("--decode-events", demo.settings.live.events,
                    "with the live view: every exception, PC sample and DWT event too (thousands a second)");
  command
      ->add_option("--decode-ports", demo.ports,
                   "stimulus ports whose text is shown live (implies --decode; default: all)")
      ->delimiter(',')
      ->check(CLI::Range(0, 31));
  return command;
}

CLI::App* addRecordCommand(CLI::App& app, RecordCommandLine& record) {
  auto* command = app.add_subcommand(
      "record", "capture from a probe's serial port (trace set up by your debugger, or through --gdb)");
  addCaptureOptions(*command, record.settings, record.text, false);
  command->add_option("--seconds", record.settings.seconds, "how long; 0 records until Enter")
      ->capture_default_str()
      ->check(numberFrom(0, 31 * 86400.0, "SECONDS"));
  command->add_option("--output", record.settings.output, "binary dump of the capture")->capture_default_str();
  command->add_flag("--force", record.settings.force, "replace an existing --output file");
  command->add_option("--serve", record.serve,
                      "serve the raw SWO stream over TCP at [HOST:]PORT (host 127.0.0.1) while recording");
  command->add_option("--serve-max-clients", record.settings.live.maxClients, "with --serve: clients served at once")
      ->capture_default_str()
      ->check(CLI::Range(1, 10000));
  command->add_flag("--decode", record.settings.live.decode, "show the stimulus text as it arrives");
  command->add_flag("--decode-events", record.settings.live.events,
                    "with --decode: every exception, PC sample and DWT event too (thousands a second)");
  command
      ->add_option("--decode-ports", record.ports,
                   "stimulus ports whose text is shown live (implies --decode; default: all)")
      ->delimiter(',')
      ->check(CLI::Range(0, 31));
  return command;
}

CLI::App* addProxyCommand(CLI::App& app, ProxyCommandLine& proxy) {
  auto* command = app.add_subcommand(
      "gdb-proxy", "pass your debugger's GDB session through to a GDB server, recording while the target runs");
  command->add_option("--listen", proxy.settings.listen, "[HOST:]PORT your debugger connects to (target remote ...)")
      ->required();
  addCaptureOptions(*command, proxy.settings.record, proxy.text, true);
  command->add_flag("--force", proxy.settings.record.force, "replace existing numbered --output files");
  command->add_option("--sessions", proxy.settings.sessions, "end after this many debugger sessions (0: until Ctrl-C)")
      ->capture_default_str()
      ->check(CLI::Range(0, 1000000));
  return command;
}

CLI::App* addOptionsCommand(CLI::App& app, OptionsCommandLine& options) {
  auto* command = app.add_subcommand("options", "write a default options file, or show one");
  command->add_option("--write", options.write, "file to write the defaults to");
  command->add_option("--show", options.show, "options file to show");
  command->add_flag("--force", options.force, "replace an existing --write file");
  return command;
}

CLI::App* addAttributesCommand(CLI::App& app, AttributesCommandLine& attributes) {
  auto* command = app.add_subcommand("attributes", "the attributes a decoder asks for, for an options file");
  command->add_option("--options", attributes.options, "options file")->required();
  command->add_option("--folder", attributes.folder, "folder for the receiver's files")->capture_default_str();
  return command;
}

CLI::App* addExportCommand(CLI::App& app, ExportSettings& exporting) {
  auto* command = app.add_subcommand("export", "export the capture of a demo or record folder");
  command->add_option("--from", exporting.from, "the demo or record folder")->capture_default_str();
  command->add_option("--core", exporting.core, "the core whose capture to export, when there are several");
  command->add_option("--tdf", exporting.tdf, "TDF file to append a BinTraceData section to");
  command->add_option("--binary", exporting.binary, "binary dump to write");
  command->add_flag("--force", exporting.force, "replace an existing --binary file");
  return command;
}

// The demo's and record's live options and record's and gdb-proxy's capture
// options made settings; false when one is wrong (said why).
bool applyOptions(DemoCommandLine& demo, RecordCommandLine& record, ProxyCommandLine& proxy) {
  for (auto [text, live] :
       {std::pair{&demo.serve, &demo.settings.live}, std::pair{&record.serve, &record.settings.live}}) {
    if (text->empty()) continue;
    live->serve = vestrel::trace_server::parseEndpoint(*text);
    if (!live->serve) {
      std::cerr << "vestrel-host: --serve takes [HOST:]PORT, not " << *text << "\n";
      return false;
    }
  }
  try {
    applyCaptureOptions(record.settings, record.text);
    applyCaptureOptions(proxy.settings.record, proxy.text);
  } catch (const std::invalid_argument& error) {
    std::cerr << "vestrel-host: " << error.what() << "\n";
    return false;
  }
  LiveSettings& recordLive = record.settings.live;
  recordLive.ports.insert(record.ports.begin(), record.ports.end());
  if (!record.ports.empty() || recordLive.events) recordLive.decode = true;
  LiveSettings& demoLive = demo.settings.live;
  demoLive.ports.insert(demo.ports.begin(), demo.ports.end());
  demoLive.decode = !demo.noDecode && (demo.decode || demoLive.events || !demo.ports.empty() || isTerminal(stdout));
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"vestrel-host: drives the Vestrel SWO receiver as a debugger's trace framework does"};
  app.allow_windows_style_options(false);
  vestrel::command_line::addVersionFlag(app, "vestrel-host");
  DemoCommandLine demoLine;
  RecordCommandLine recordLine;
  ProxyCommandLine proxyLine;
  OptionsCommandLine optionsLine;
  AttributesCommandLine attributesLine;
  ExportSettings exporting;
  addDemoCommand(app, demoLine);
  auto* portsCommand = app.add_subcommand("ports", "list the probes' auxiliary serial ports");
  auto* recordCommand = addRecordCommand(app, recordLine);
  auto* proxyCommand = addProxyCommand(app, proxyLine);
  auto* optionsCommand = addOptionsCommand(app, optionsLine);
  auto* attributesCommand = addAttributesCommand(app, attributesLine);
  auto* exportCommand = addExportCommand(app, exporting);
  // Set after the commands, so that only the tool's own help says it.
  app.footer("With no command, vestrel-host runs demo.");
  if (const auto status = vestrel::command_line::parse(app, argc, argv, "vestrel-host")) return *status;
  if (!applyOptions(demoLine, recordLine, proxyLine)) return 2;
  // Files and folders that cannot be made or written end the command with
  // their path and the reason, never with an uncaught exception.
  try {
    if (portsCommand->parsed()) return ports();
    if (attributesCommand->parsed()) return attributes(attributesLine.options, attributesLine.folder);
    if (exportCommand->parsed()) return exportCapture(exporting);
    if (recordCommand->parsed()) return record(recordLine.settings);
    if (proxyCommand->parsed()) return gdbProxy(proxyLine.settings);
    if (optionsCommand->parsed()) return options(optionsLine.write, optionsLine.show, optionsLine.force);
    return demo(demoLine.settings);
  } catch (const UsageError& error) {
    std::cerr << "vestrel-host: " << error.what() << "\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "vestrel-host: " << error.what() << "\n";
    return 1;
  }
}
