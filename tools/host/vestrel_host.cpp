// vestrel-host: a command-line host that drives the receiver library the way
// a debugger's trace framework does (load it, CreateRcvr, GetChannelDriver,
// SetConfiguration, target-state notifications, status, samples, SaveToFile,
// ReleaseChannelDriver, DestroyRcvr) and reports every cHexkitError.
//
//   demo (default)  everything simulated: probe software, a target whose ITM
//                   stream runs through a serial line, automatic clock and
//                   prescaler; records, decodes, summarises and saves.
//   record          captures from a real probe's serial port; the target's
//                   TPIU is set up by the user's own debugger.
//   options         writes a default options file, or shows one.
//   attributes      what the driver tells a decoder, for an options file.
//   export          a capture the receiver holds, as TDF or binary dump.
//   ports           the probes' auxiliary serial ports found on this machine.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "AuxPortDiscovery.h"
#include "CReceiver.h"
#include "ItmDecoder.h"
#include "PassiveTarget.h"
#include "SimulatedTarget.h"
#include "Terminal.h"
#include "TraceEnvironment.h"
#include "TraceText.h"
#include "XmlOptions.h"
#include "cHexkitError.h"
#include "uDll.h"

namespace fs = std::filesystem;
using Kv::Orv::Hexkit::cHexkitError;
using Kv::Orv::Trace::CChannelDriver;
using Kv::Orv::Trace::ChannelStatus;
using Kv::Orv::Trace::CReceiver;
using namespace vestrel;

namespace {

constexpr const char* kCpu = "Sim/CortexM4";
constexpr int kComPort = 7;
// The simulated device's clock registers give this (DCO 12 MHz, divided by 2).
constexpr double kTargetClockHz = 6000000.0;

// The receiver library, loaded by name and searched the way the platform
// loader searches (the host's folder first), with its two entry points.
struct ReceiverLibrary {
  KV_ORV::uDll dll;
  CreateRcvrFunction create = nullptr;
  DestroyRcvrFunction destroy = nullptr;

  bool load() {
    if (!dll.FindAndLoad("Vestrel", 0xFFFFFFFF)) {
      std::cerr << "vestrel-host: " << dll.LastError() << "\n";
      return false;
    }
    create = reinterpret_cast<CreateRcvrFunction>(dll.GetSymbol("CreateRcvr"));
    destroy = reinterpret_cast<DestroyRcvrFunction>(dll.GetSymbol("DestroyRcvr"));
    if (create == nullptr || destroy == nullptr) {
      std::cerr << "vestrel-host: the library does not export CreateRcvr and DestroyRcvr\n";
      return false;
    }
    return true;
  }
};

void writeFile(const fs::path& path, const std::string& content) { std::ofstream(path, std::ios::binary) << content; }

std::string statusOf(CChannelDriver& driver) {
  ChannelStatus status;
  driver.GetStatus(status);
  return status.text;
}

// The probe software the simulator libraries play: a Calder probe with SWD
// and SWO on TDO, and a Larkin device whose clock registers read 6 MHz.
void writeProbeScenario(const fs::path& dir) {
  writeFile(dir / "board.txt", "$ calder\n$ swd\n  swd_debug=enabled\n  swo_data=tdo_pin\n");
  writeFile(dir / "probe-scenario.txt", "board * = " + (dir / "board.txt").string() +
                                            "\n"
                                            "device_id = 0x0B9AF02F\n"
                                            "register MOD_SYSCLK CSCTL0 = 0x180\n"
                                            "register MOD_SYSCLK CSCTL1 = 0x182\n"
                                            "register MOD_SYSCLK CSCTL2 = 0x184\n"
                                            "register MOD_SYSCLK CSCTL3 = 0x186\n"
                                            "register MOD_SYSCLK CSCLKEN = 0x18E\n"
                                            "register MOD_SYSCLK TLVBASE = 0x1A00\n"
                                            "memory 0x180 = 0x00030000\n"
                                            "memory 0x182 = 0x00010003\n");
  KV_ORV::SetEnv("VESTREL_PROBE_SCENARIO", (dir / "probe-scenario.txt").string().c_str());
}

void writeOptions(const fs::path& path) {
  writeFile(path,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<CHANNEL-SETUP>\n"
            "\t<VERSION version=\"1.1.0.0\" Copyright=\"vestrel-host demo\"></VERSION>\n"
            "\t<RCVRNAME>SWO Trace</RCVRNAME>\n\t<RCVRFWVER>V 1.0.0.9</RCVRFWVER>\n\t<ENCTYPE>UART</ENCTYPE>\n"
            "\t<PRESCALAR>Auto</PRESCALAR>\n\t<PRESCALARVAL>Prescalar value</PRESCALARVAL>\n"
            "\t<CLKFREQ>Auto</CLKFREQ>\n\t<CLKFREQVAL>Frequency in Hz</CLKFREQVAL>\n"
            "\t<COMPORT>" +
                std::to_string(kComPort) + "</COMPORT>\n\t<TSPRESCALAR>4</TSPRESCALAR>\n</CHANNEL-SETUP>\n");
}

int demo(double seconds, const fs::path& output, int excerptLines) {
  fs::create_directories(output);
  const fs::path dir = fs::absolute(output);
  // Everything the receiver writes (trace folders, log, capture) goes under
  // the demo folder.
  KV_ORV::SetEnv("USERPROFILE", dir.string().c_str());
  KV_ORV::SetEnv("KV_TRACE_LOGGING", "1");
  writeProbeScenario(dir);
  writeOptions(dir / "options.xml");

  simulator::SerialLine line(kComPort);
  if (!line.ready()) {
    std::cerr << "vestrel-host: " << line.why() << "\n";
    return 2;
  }
  simulator::SimulatedTarget target(kTargetClockHz, line);

  ReceiverLibrary library;
  if (!library.load()) return 2;
  const CreateRcvrFunction create = library.create;
  const DestroyRcvrFunction destroy = library.destroy;

  std::string capture;
  double elapsed = 0;
  try {
    CReceiver* receiver = create();
    CChannelDriver* driver = receiver->GetChannelDriver(kCpu, &target, 1, 0);
    driver->SetConfiguration((dir / "options.xml").string().c_str());
    std::cout << "configured: " << statusOf(*driver) << "\n";

    const auto start = std::chrono::steady_clock::now();
    receiver->OnTargetStateChanged(kCpu, Kv::Orv::Trace::eTARGET_RUNNING);
    std::cout << "target running: " << statusOf(*driver) << "\n";
    while (std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() < seconds) {
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
      std::cout << "  " << driver->GetNumSamples() * 8 << " bytes captured\n";
    }
    receiver->OnTargetStateChanged(kCpu, Kv::Orv::Trace::eTARGET_HALTED);
    elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::cout << "target halted: " << statusOf(*driver) << "\n";

    const std::uint32_t samples = driver->GetNumSamples();
    capture.resize(static_cast<std::size_t>(samples) * 8);
    for (std::uint32_t position = 0; position < samples;) {
      std::uint32_t got = 0;
      const std::uint32_t n = driver->SeekReadTraceData(
          position, 8192, reinterpret_cast<std::uint64_t*>(&capture[static_cast<std::size_t>(position) * 8]), &got);
      if (n == 0) break;
      position += n;
    }
    writeFile(dir / "trace.tdf", "VTDF0001");  // the host creates TDF files
    driver->SaveToFile((dir / "trace.tdf").string(), 0);
    driver->SaveToFile((dir / "trace.bin").string(), 2);
    receiver->ReleaseChannelDriver(driver);
    destroy(receiver);
  } catch (const cHexkitError& e) {
    std::cerr << "vestrel-host: receiver error (severity " << e.GetSeverity() << "): " << e.GetMessage() << "\n";
    return 1;
  }

  // Decode; the last sample is zero-padded, so a run of up to seven zero
  // bytes at the very end is padding, not trace.
  std::ostringstream text;
  decode::TextWriter::Timing timing;
  timing.clockHz = kTargetClockHz;
  timing.timestampPrescale = 4;
  decode::TextWriter writer(text, timing);
  std::map<std::uint32_t, std::string> received;
  std::uint64_t padding = 0;
  decode::ItmDecoder decoder([&](const decode::Packet& p) {
    if (p.kind == decode::PacketKind::Malformed && p.header == 0 && p.offset + 8 > capture.size()) {
      ++padding;
      return;
    }
    writer.write(p);
    if (p.kind == decode::PacketKind::Instrumentation) received[p.port] += static_cast<char>(p.value);
  });
  decoder.feed(capture);
  decoder.finish();
  writer.flush();

  std::istringstream lines(text.str());
  std::cout << "\ndecoded trace (first " << excerptLines << " lines):\n";
  std::string lineText;
  for (int i = 0; i < excerptLines && std::getline(lines, lineText); ++i) std::cout << "  " << lineText << "\n";

  const auto figures = target.figures();
  const auto& stats = decoder.statistics();
  const bool textExact = received == target.program().textSent();
  // The TDF file: the 8-byte identifier, then the BinTraceData section.
  std::ifstream tdfFile(dir / "trace.tdf", std::ios::binary);
  const std::string tdf((std::istreambuf_iterator<char>(tdfFile)), std::istreambuf_iterator<char>());
  const bool tdfExact = tdf.size() == 8 + 24 + capture.size() && tdf.compare(8 + 12, 12, "BinTraceData") == 0 &&
                        tdf.compare(8 + 24, std::string::npos, capture) == 0;
  const std::uint64_t malformed = stats.malformedBytes - padding;
  std::cout << "\nsummary\n";
  std::printf("  bytes captured      %zu (%u samples of 8 bytes)\n", capture.size(),
              static_cast<unsigned>(capture.size() / 8));
  std::printf("  capture rate        %.0f bytes/s over %.1f s\n", static_cast<double>(capture.size()) / elapsed,
              elapsed);
  std::printf("  SWO line            %.0f baud (trace clock %.0f Hz detected, prescaler %u found)\n", figures.swoBaud,
              kTargetClockHz, figures.prescaler);
  std::printf("  timestamp prescale  %u\n", figures.timestampPrescale);
  for (int kind = 0; kind < static_cast<int>(decode::PacketKind::Malformed); ++kind) {
    if (stats.packets[kind] != 0) {
      std::printf("  %-19s %llu\n", decode::kindName(static_cast<decode::PacketKind>(kind)),
                  static_cast<unsigned long long>(stats.packets[kind]));
    }
  }
  std::printf("  sent by the target  %llu bytes, %llu lost on the line\n",
              static_cast<unsigned long long>(figures.bytesSent), static_cast<unsigned long long>(figures.bytesLost));
  std::printf("  malformed bytes     %llu\n", static_cast<unsigned long long>(malformed));
  std::printf("  stimulus text       %s\n",
              textExact ? "identical to what the target sent" : "DIFFERS from what the target sent");
  std::printf("  TDF section         %s\n", tdfExact ? "holds exactly the capture" : "DIFFERS from the capture");
  std::cout << "\nfiles in " << dir.string() << ": trace.tdf (BinTraceData section), trace.bin (binary dump), "
            << "options.xml, .KV-trace/ (log, capture)\n";
  return textExact && tdfExact && figures.bytesLost == 0 && malformed == 0 ? 0 : 1;
}

struct RecordSettings {
  std::string port;  // a COM number, or (Linux) a device path
  double clockHz = 0;
  std::string prescaler;  // a number, or auto
  std::string optionsFile;
  std::string firmware;  // the probe's firmware version, as its software reports it
  double seconds = 0;    // 0: until Enter
  std::string output = "capture.bin";
};

// What record assumes when neither the command line nor the options file
// names the probe's firmware: the first release that carries SWO.
constexpr const char* kDefaultProbeFirmware = "V 1.0.0.5";

void setOption(Kv::Orv::Trace::Vestrel::OptionSet& set, std::uint32_t id, const std::string& value) {
  for (auto& option : set) {
    if (option.id == id) option.value = value;
  }
}

std::string optionValue(const Kv::Orv::Trace::Vestrel::OptionSet& set, std::uint32_t id) {
  for (const auto& option : set) {
    if (option.id == id) return option.value;
  }
  return "";
}

// The options the receiver records with: the user's file (or the defaults),
// with what the command line gives in place of its port, clock and prescaler.
// Returns an error text, or "" when the options are complete.
std::string prepareRecordOptions(const RecordSettings& settings, const fs::path& dir) {
  namespace opt = Kv::Orv::Trace::Vestrel;
  opt::ChannelOptionsHandler handler;
  opt::OptionSet set;
  handler.load(set, settings.optionsFile.empty() ? "" : fs::absolute(settings.optionsFile).string(), 2);
  if (!settings.port.empty()) {
    // "7" and "COM7" name the port by number; anything else is a device path.
    std::string number = settings.port;
    if (number.size() > 3 && (number.compare(0, 3, "COM") == 0 || number.compare(0, 3, "com") == 0)) {
      number.erase(0, 3);
    }
    if (!number.empty() && number.find_first_not_of("0123456789") == std::string::npos) {
      setOption(set, opt::kOptionComPort, number);
    } else {
      // A device path (Linux): named as COM7 for the receiver through a link.
      std::error_code failed;
      fs::create_directories(dir / "ports", failed);
      fs::remove(dir / "ports" / "COM7", failed);
      fs::create_symlink(settings.port, dir / "ports" / "COM7", failed);
      if (failed)
        return "cannot use " + settings.port + " as the probe's port (give its COM number): " + failed.message();
      KV_ORV::SetEnv("VESTREL_COM_DIR", (dir / "ports").string().c_str());
      setOption(set, opt::kOptionComPort, "7");
    }
  }
  if (!settings.firmware.empty()) {
    setOption(set, opt::kOptionFirmwareVersion, settings.firmware);
  } else if (optionValue(set, opt::kOptionFirmwareVersion).empty()) {
    setOption(set, opt::kOptionFirmwareVersion, kDefaultProbeFirmware);
  }
  if (settings.clockHz > 0) {
    setOption(set, opt::kOptionClockMode, "Manual");
    setOption(set, opt::kOptionClockValue, std::to_string(static_cast<long long>(settings.clockHz)));
  }
  if (settings.prescaler == "auto") {
    setOption(set, opt::kOptionPrescalerMode, "Auto");
  } else if (!settings.prescaler.empty()) {
    setOption(set, opt::kOptionPrescalerMode, "Manual");
    setOption(set, opt::kOptionPrescalerValue, settings.prescaler);
  }
  // Without the debugger's device session there are no clock registers to
  // read, so the clock must be given.
  if (optionValue(set, opt::kOptionClockMode) != "Manual") return "give the trace clock with --clock";
  const std::string port = optionValue(set, opt::kOptionComPort);
  if (port.empty() || port.find_first_not_of("0123456789") != std::string::npos) {
    return "give the probe's serial port with --port";
  }
  handler.save(set, (dir / "options.xml").string());
  return "";
}

int record(const RecordSettings& settings) {
  const fs::path dir = fs::absolute("vestrel-record");
  fs::create_directories(dir);
  KV_ORV::SetEnv("USERPROFILE", dir.string().c_str());
  // The probe software's checks are played by the probe simulator.
  writeFile(dir / "board.txt", "$ calder\n$ swd\n  swd_debug=enabled\n  swo_data=tdo_pin\n");
  writeFile(dir / "probe-scenario.txt", "board * = " + (dir / "board.txt").string() + "\ndevice_id = 0x0B9AF02F\n");
  KV_ORV::SetEnv("VESTREL_PROBE_SCENARIO", (dir / "probe-scenario.txt").string().c_str());
  try {
    const std::string missing = prepareRecordOptions(settings, dir);
    if (!missing.empty()) {
      std::cerr << "vestrel-host: " << missing << "\n";
      return 2;
    }
  } catch (const cHexkitError& e) {
    std::cerr << "vestrel-host: options error (severity " << e.GetSeverity() << "): " << e.GetMessage() << "\n";
    return 1;
  }

  ReceiverLibrary library;
  if (!library.load()) return 2;
  const CreateRcvrFunction create = library.create;
  const DestroyRcvrFunction destroy = library.destroy;
  simulator::PassiveTarget target;
  const bool live = host::isTerminal(stdout);
  try {
    CReceiver* receiver = create();
    CChannelDriver* driver = receiver->GetChannelDriver("Probe/Core", &target, 1, 0);
    driver->SetConfiguration((dir / "options.xml").string().c_str());
    receiver->OnTargetStateChanged("Probe/Core", Kv::Orv::Trace::eTARGET_RUNNING);
    std::cout << "recording: " << statusOf(*driver) << (settings.seconds > 0 ? "" : " (Enter stops)") << std::endl;
    const auto start = std::chrono::steady_clock::now();
    const auto secondsSince = [&start] {
      return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    // Until Enter, standard input is watched on a thread of its own so that
    // the counter keeps moving.
    std::atomic<bool> enterPressed{false};
    std::thread enterWatcher;
    if (settings.seconds <= 0) {
      enterWatcher = std::thread([&enterPressed] {
        std::string ignored;
        std::getline(std::cin, ignored);
        enterPressed = true;
      });
    }
    while (settings.seconds > 0 ? secondsSince() < settings.seconds : !enterPressed) {
      std::this_thread::sleep_for(std::chrono::milliseconds(settings.seconds > 0 ? 50 : 100));
      if (live) {
        const double bytes = driver->GetNumSamples() * 8.0;
        std::cout << "\r  " << static_cast<long long>(bytes) << " bytes, "
                  << static_cast<long long>(bytes / secondsSince()) << " bytes/s   " << std::flush;
      }
    }
    if (enterWatcher.joinable()) enterWatcher.join();
    receiver->OnTargetStateChanged("Probe/Core", Kv::Orv::Trace::eTARGET_HALTED);
    if (live) std::cout << "\n";
    std::cout << "stopped: " << statusOf(*driver) << ", " << driver->GetNumSamples() << " samples\n";
    driver->SaveToFile(fs::absolute(settings.output).string(), 2);
    std::cout << "saved " << settings.output << "\n";
    receiver->ReleaseChannelDriver(driver);
    destroy(receiver);
  } catch (const cHexkitError& e) {
    std::cerr << "vestrel-host: receiver error (severity " << e.GetSeverity() << "): " << e.GetMessage() << "\n";
    return 1;
  }
  return 0;
}

int options(const std::string& writePath, const std::string& showPath) {
  using Kv::Orv::Trace::Vestrel::ChannelOptionsHandler;
  using Kv::Orv::Trace::Vestrel::OptionSet;
  try {
    ChannelOptionsHandler handler;
    if (!writePath.empty()) {
      OptionSet defaults;
      handler.load(defaults, "", 2);
      handler.save(defaults, writePath);
      std::cout << "wrote the default options to " << writePath << "\n";
    }
    if (!showPath.empty()) {
      OptionSet set;
      handler.load(set, showPath, 2);
      for (const auto& option : set) std::printf("  %-13s %s\n", option.key.c_str(), option.value.c_str());
    }
  } catch (const cHexkitError& e) {
    std::cerr << "vestrel-host: options error (severity " << e.GetSeverity() << "): " << e.GetMessage() << "\n";
    return 1;
  }
  return 0;
}

// A receiver with a driver for a CPU behind the simulated probe, in a profile
// folder of its own: what the attributes and export commands look at.
struct ProbeSession {
  ReceiverLibrary library;
  simulator::PassiveTarget target;
  CReceiver* receiver = nullptr;
  CChannelDriver* driver = nullptr;

  bool open(const fs::path& profile, const char* cpu) {
    fs::create_directories(profile);
    KV_ORV::SetEnv("USERPROFILE", fs::absolute(profile).string().c_str());
    writeProbeScenario(fs::absolute(profile));
    if (!library.load()) return false;
    receiver = library.create();
    driver = receiver->GetChannelDriver(cpu, &target, 1, 0);
    return true;
  }
  ~ProbeSession() {
    if (receiver != nullptr) {
      if (driver != nullptr) receiver->ReleaseChannelDriver(driver);
      library.destroy(receiver);
    }
  }
};

int attributes(const std::string& optionsFile, const std::string& profile) {
  // The session (and with it the receiver library) outlives the handler:
  // an error thrown inside the library lives in the library.
  ProbeSession session;
  try {
    if (!session.open(profile, kCpu)) return 2;
    session.driver->SetConfiguration(fs::absolute(optionsFile).string().c_str());
    std::vector<std::string> names = {"Trace Data Frequency",
                                      "Timing Clock Frequency",
                                      "ITM Timestamp Prescale",
                                      "Buffer Wrapped",
                                      "TWP Source",
                                      "WP0 Comp",
                                      "WP1 Comp",
                                      "WP2 Comp",
                                      "WP3 Comp",
                                      "ITM Exception Map Name"};
    for (int port = 0; port < 32; ++port) names.push_back("ITMChannelType_" + std::to_string(port));
    for (const std::string& name : names) {
      Kv::Orv::Trace::TraceAttribute attribute;
      session.driver->GetAttribute(name.c_str(), attribute);
      std::printf("  %-24s %s (type %u)\n", name.c_str(), attribute.value, attribute.type);
    }
  } catch (const cHexkitError& e) {
    std::cerr << "vestrel-host: receiver error (severity " << e.GetSeverity() << "): " << e.GetMessage() << "\n";
    return 1;
  }
  return 0;
}

// SaveToFile with a progress bar on a terminal: the export runs on a worker
// thread while this one watches the file grow towards its expected size.
// An error thrown by the export is thrown again here.
void saveWithProgress(CChannelDriver& driver, const fs::path& path, std::uint32_t format, std::uint64_t growth,
                      const char* label) {
  if (!host::isTerminal(stdout)) {
    driver.SaveToFile(path.string(), format);
    return;
  }
  std::error_code error;
  const std::uint64_t before = fs::exists(path) ? fs::file_size(path, error) : 0;
  std::exception_ptr failure;
  std::atomic<bool> done{false};
  std::thread worker([&] {
    try {
      driver.SaveToFile(path.string(), format);
    } catch (...) {
      failure = std::current_exception();
    }
    done = true;
  });
  const auto draw = [&](std::uint64_t written) {
    const double fraction = growth == 0 ? 1.0 : std::min(1.0, static_cast<double>(written) / growth);
    const int filled = static_cast<int>(fraction * 40);
    std::printf("\r  %-6s [%s%s] %3d%%", label, std::string(filled, '#').c_str(), std::string(40 - filled, '.').c_str(),
                static_cast<int>(fraction * 100));
    std::fflush(stdout);
  };
  while (!done) {
    const std::uint64_t now = fs::exists(path, error) ? fs::file_size(path, error) : 0;
    draw(error || now < before ? 0 : now - before);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  worker.join();
  if (failure) {
    std::printf("\n");
    std::rethrow_exception(failure);
  }
  draw(growth);
  std::printf("\n");
}

// The capture of the demo's CPU in a demo or record folder.
int exportCapture(const std::string& profile, const std::string& tdf, const std::string& binary) {
  // The session (and with it the receiver library) outlives the handler:
  // an error thrown inside the library lives in the library.
  ProbeSession session;
  try {
    if (!session.open(profile, kCpu)) return 2;
    const std::uint32_t samples = session.driver->GetNumSamples();
    const std::uint64_t bytes = samples * 8ull;
    std::cout << samples << " samples (" << bytes << " bytes)" << std::endl;
    if (!tdf.empty()) {
      if (!fs::exists(tdf)) writeFile(tdf, "VTDF0001");  // the host creates TDF files
      // The section: a 24-byte header, then the samples.
      saveWithProgress(*session.driver, fs::absolute(tdf), 0, 24 + bytes, "TDF");
      std::cout << "appended a BinTraceData section to " << tdf << "\n";
    }
    if (!binary.empty()) {
      saveWithProgress(*session.driver, fs::absolute(binary), 2, bytes, "binary");
      std::cout << "wrote " << binary << "\n";
    }
  } catch (const cHexkitError& e) {
    std::cerr << "vestrel-host: receiver error (severity " << e.GetSeverity() << "): " << e.GetMessage() << "\n";
    return 1;
  }
  return 0;
}

int ports() {
  for (std::uint32_t selector : {0u, 1u}) {
    const auto found = Kv::Orv::Trace::Vestrel::enumerateAuxPorts(selector);
    std::cout << (selector == 0 ? "Calder" : "Harrow") << " probe ports:";
    if (found.empty()) std::cout << " none";
    for (const auto& port : found) std::cout << " COM" << port;
    std::cout << "\n";
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"vestrel-host: drives the Vestrel SWO receiver as a debugger's trace framework does"};
  app.allow_windows_style_options(false);
  double seconds = 3.0;
  std::string output = "vestrel-demo";
  int excerpt = 12;
  auto* demoCommand = app.add_subcommand("demo", "record from a simulated target and probe, decode and save");
  demoCommand->add_option("--seconds", seconds, "how long to record")->capture_default_str();
  demoCommand->add_option("--output", output, "folder for the files of the demo")->capture_default_str();
  demoCommand->add_option("--lines", excerpt, "decoded lines to show")->capture_default_str();
  auto* portsCommand = app.add_subcommand("ports", "list the probes' auxiliary serial ports");
  RecordSettings recording;
  auto* recordCommand =
      app.add_subcommand("record", "capture from a probe's serial port (TPIU set up by your debugger)");
  recordCommand->add_option("--port", recording.port, "COM port (7 or COM7), or (Linux) a device path");
  recordCommand->add_option("--clock", recording.clockHz, "trace clock in Hz");
  recordCommand->add_option("--prescaler", recording.prescaler, "TPIU prescaler, or auto");
  recordCommand->add_option("--options", recording.optionsFile, "options file to start from")->check(CLI::ExistingFile);
  recordCommand->add_option("--firmware", recording.firmware,
                            "the probe's firmware version (default: the options file's, else V 1.0.0.5)");
  recordCommand->add_option("--seconds", recording.seconds, "how long; 0 records until Enter")->capture_default_str();
  recordCommand->add_option("--output", recording.output, "binary dump of the capture")->capture_default_str();
  std::string writeOptions, showOptions;
  auto* optionsCommand = app.add_subcommand("options", "write a default options file, or show one");
  optionsCommand->add_option("--write", writeOptions, "file to write the defaults to");
  optionsCommand->add_option("--show", showOptions, "options file to show");
  std::string attributeOptions, attributeProfile = "vestrel-attributes";
  auto* attributesCommand = app.add_subcommand("attributes", "the attributes a decoder asks for, for an options file");
  attributesCommand->add_option("--options", attributeOptions, "options file")->required();
  attributesCommand->add_option("--profile", attributeProfile, "folder for the receiver's files")
      ->capture_default_str();
  std::string exportProfile = "vestrel-demo", exportTdf, exportBinary;
  auto* exportCommand = app.add_subcommand("export", "export the capture of a demo or record folder");
  exportCommand->add_option("--from", exportProfile, "the demo or record folder")->capture_default_str();
  exportCommand->add_option("--tdf", exportTdf, "TDF file to append a BinTraceData section to");
  exportCommand->add_option("--binary", exportBinary, "binary dump to write");
  CLI11_PARSE(app, argc, argv);
  if (portsCommand->parsed()) return ports();
  if (attributesCommand->parsed()) return attributes(attributeOptions, attributeProfile);
  if (exportCommand->parsed()) return exportCapture(exportProfile, exportTdf, exportBinary);
  if (recordCommand->parsed()) return record(recording);
  if (optionsCommand->parsed()) return options(writeOptions, showOptions);
  return demo(seconds, output, excerpt);
}
