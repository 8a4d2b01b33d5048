// demo: everything simulated (probe software, a target whose ITM stream runs
// through a serial line, automatic clock and prescaler); records, decodes,
// summarises and saves.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Commands.h"
#include "DecodeChain.h"
#include "ElfSymbols.h"
#include "FirmwareLayout.h"
#include "HostCore.h"
#include "HtmlReport.h"
#include "ItmDecoder.h"
#include "LiveTrace.h"
#include "OutputBuffer.h"
#include "PacketSink.h"
#include "PerfettoWriter.h"
#include "Profile.h"
#include "ProgramFolder.h"
#include "SimulatedTarget.h"
#include "Terminal.h"
#include "TextWriter.h"
#include "Timing.h"
#include "TraceEnvironment.h"

namespace vestrel::host {

using Kv::Orv::Hexkit::cHexkitError;
using Kv::Orv::Trace::CChannelDriver;
using Kv::Orv::Trace::CReceiver;

namespace {

constexpr int kComPort = 7;
// The simulated device's clock registers give this (DCO 12 MHz, divided by 2).
constexpr double kTargetClockHz = 6000000.0;

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

// Names for the PC samples: the firmware's ELF file beside vestrel-host (a
// build folder, the Windows zip) or in ../lib/vestrel/ (installed on Linux),
// for names and lines; in a build without an ELF reader, the simulator's
// table of the firmware's functions (names only). Says which.
symbols::SymbolTable firmwareSymbols(std::string& from) {
  fs::path elf = programFolder() / "demo-firmware.elf";
  const fs::path installed = programFolder() / ".." / "lib" / "vestrel" / "demo-firmware.elf";
  std::error_code ignored;
  if (!fs::exists(elf, ignored) && fs::exists(installed, ignored)) elf = installed.lexically_normal();
  if (symbols::elfSymbolsAvailable()) {
    try {
      from = elf.string();
      return symbols::loadElfSymbols(from);
    } catch (const std::exception& error) {
      std::cerr << "vestrel-host: " << error.what() << "; the profile names functions without lines\n";
    }
  }
  std::vector<symbols::FunctionSymbol> functions;
  for (const auto& function : target_simulator::kFirmwareFunctions) {
    functions.push_back({function.name, function.address, function.size});
  }
  from = "the simulator's table of the demo firmware (this build reads no ELF files: no lines)";
  return symbols::SymbolTable(std::move(functions), {}, {});
}

// Each stimulus port's text as sent, to compare with what the target sent.
class PortText final : public decoder::PacketSink {
 public:
  void write(const decoder::Packet& p, decoder::PacketTime) override {
    if (p.kind == decoder::PacketKind::Instrumentation) received[p.port] += static_cast<char>(p.value);
  }
  void finish(const decoder::DecoderStatistics&) override {}
  std::map<std::uint32_t, std::string> received;
};

// The capture decoded once into everything the demo shows and writes: the
// text, each port's text, the profile, and beside the TDF file a Perfetto
// timeline and the HTML report.
struct DemoDecoding {
  decoder::OutputBuffer text;
  decoder::OutputBuffer profile;
  PortText ports;
  decoder::DecoderStatistics statistics;
  bool picturesWritten = false;
};

void decodeDemoCapture(DemoDecoding& result, const std::string& capture, const fs::path& dir,
                       const symbols::SymbolTable& symbols, const decoder::Timing& timing) {
  std::FILE* timelineFile = std::fopen((dir / "trace.perfetto.json").string().c_str(), "wb");
  std::FILE* reportFile = std::fopen((dir / "report.html").string().c_str(), "wb");
  bool written = false;
  {
    // The buffers are gone before their files are closed. A buffer whose
    // file could not be opened keeps its text in memory.
    decoder::OutputBuffer timeline(timelineFile);
    decoder::OutputBuffer page(reportFile);
    decoder::TextWriter text(result.text, timing);
    text.setSymbols(&symbols);
    decoder::ProfileWriter profile(result.profile, &symbols, false);
    decoder::PerfettoWriter perfetto(timeline, timing, {}, &symbols);
    decoder::HtmlReportWriter report(page, "vestrel-host demo: " + (dir / "trace.bin").string(), timing, &symbols);
    decoder::DecodeChain chain({&text, &result.ports, &profile, &perfetto, &report});
    chain.feed(reinterpret_cast<const std::uint8_t*>(capture.data()), capture.size());
    chain.finish();
    result.statistics = chain.statistics();
    written = timelineFile != nullptr && reportFile != nullptr && timeline.flush() && page.flush();
  }
  // Both are closed, whatever the first one's close says.
  const bool timelineClosed = timelineFile == nullptr || std::fclose(timelineFile) == 0;
  const bool reportClosed = reportFile == nullptr || std::fclose(reportFile) == 0;
  result.picturesWritten = written && timelineClosed && reportClosed;
}

// The figures of the run, and whether everything arrived exactly: the
// stimulus text as the target sent it, the TDF section holding the capture,
// nothing lost or malformed.
bool printSummary(const std::string& capture, double elapsed, target_simulator::SimulatedTarget& target,
                  const DemoDecoding& decoded, const fs::path& dir) {
  const auto figures = target.figures();
  const auto& stats = decoded.statistics;
  const bool textExact = decoded.ports.received == target.program().textSent();
  // The TDF file: the 8-byte identifier, then the BinTraceData section.
  std::ifstream tdfFile(dir / "trace.tdf", std::ios::binary);
  const std::string tdf((std::istreambuf_iterator<char>(tdfFile)), std::istreambuf_iterator<char>());
  const bool tdfExact = tdf.size() == 8 + 24 + capture.size() && tdf.compare(8 + 12, 12, "BinTraceData") == 0 &&
                        tdf.compare(8 + 24, std::string::npos, capture) == 0;
  const std::uint64_t malformed = stats.malformedBytes;
  std::cout << "\nsummary\n";
  std::printf("  bytes captured      %zu (%u samples of 8 bytes)\n", capture.size(),
              static_cast<unsigned>(capture.size() / 8));
  std::printf("  capture rate        %.0f bytes/s over %.1f s\n", static_cast<double>(capture.size()) / elapsed,
              elapsed);
  std::printf("  SWO line            %.0f baud (trace clock %.0f Hz detected, prescaler %u found)\n", figures.swoBaud,
              kTargetClockHz, figures.prescaler);
  std::printf("  timestamp prescale  %u\n", figures.timestampPrescale);
  for (int kind = 0; kind < static_cast<int>(decoder::PacketKind::Malformed); ++kind) {
    if (stats.packets[kind] != 0) {
      std::printf("  %-19s %llu\n", decoder::kindName(static_cast<decoder::PacketKind>(kind)),
                  static_cast<unsigned long long>(stats.packets[kind]));
    }
  }
  std::printf("  sent by the target  %llu bytes, %llu lost on the line\n",
              static_cast<unsigned long long>(figures.bytesSent), static_cast<unsigned long long>(figures.bytesLost));
  std::printf("  malformed bytes     %llu\n", static_cast<unsigned long long>(malformed));
  std::printf("  stimulus text       %s\n",
              textExact ? "identical to what the target sent" : "DIFFERS from what the target sent");
  std::printf("  TDF section         %s\n", tdfExact ? "holds exactly the capture" : "DIFFERS from the capture");
  return textExact && tdfExact && figures.bytesLost == 0 && malformed == 0;
}

// The demo's own folder, made and checked; the receiver's files go under
// it. The folder's absolute path.
fs::path prepareDemoFolder(const DemoSettings& settings) {
  const fs::path output = settings.output;
  std::error_code cannotMake;
  fs::create_directories(output, cannotMake);
  if (cannotMake) throw UsageError("cannot make the folder " + output.string() + ": " + cannotMake.message());
  const fs::path dir = fs::absolute(output);
  requireFreshDemoFolder(output, settings.force);
  // Everything the receiver writes (trace folders, log, capture) goes under
  // the demo folder.
  KV_ORV::SetEnv("USERPROFILE", dir.string().c_str());
  KV_ORV::SetEnv("KV_TRACE_LOGGING", "1");
  writeProbeScenario(dir);
  writeOptions(dir / "options.xml");
  return dir;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The target runs for its seconds: a status line on a terminal, a line of
// bytes captured every half second elsewhere.
void runFor(double seconds, CChannelDriver& driver, LiveConsole& console, LiveTrace& liveTrace, bool terminal,
            std::chrono::steady_clock::time_point start) {
  LiveStatus status;
  while (secondsSince(start) < seconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    if (terminal) {
      const LiveCounts counts = liveTrace.counts();
      console.status(
          status.line(secondsSince(start), driver.GetNumSamples() * 8.0, liveTrace.decodes() ? &counts : nullptr));
    } else {
      console.lines("  " + std::to_string(driver.GetNumSamples() * 8ull) + " bytes captured\n");
    }
  }
}

// The core halts; the debugger reports the halt once the SWO line has gone
// quiet, so that the capture holds everything the target sent (however busy
// this machine is).
void haltWhenQuiet(target_simulator::SimulatedTarget& target, CChannelDriver& driver, CReceiver& receiver) {
  target.halt();
  const auto quietBy = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (driver.GetNumSamples() * 8ull < target.figures().bytesSent && std::chrono::steady_clock::now() < quietBy) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  receiver.OnTargetStateChanged(kDemoCpu, Kv::Orv::Trace::eTARGET_HALTED);
}

// The whole capture, read back through the driver as the host does.
std::string readCapture(CChannelDriver& driver) {
  const std::uint32_t samples = driver.GetNumSamples();
  std::string capture(static_cast<std::size_t>(samples) * 8, '\0');
  for (std::uint32_t position = 0; position < samples;) {
    std::uint32_t got = 0;
    const std::uint32_t n = driver.SeekReadTraceData(
        position, 8192, reinterpret_cast<std::uint64_t*>(&capture[static_cast<std::size_t>(position) * 8]), &got);
    if (n == 0) break;
    position += n;
  }
  return capture;
}

// trace.tdf and trace.bin, each with its metadata.
void saveDemoCaptures(CChannelDriver& driver, const fs::path& dir, const capture_metadata::CaptureMetadata& reading) {
  writeFile(dir / "trace.tdf", "VTDF0001");  // the host creates TDF files
  driver.SaveToFile((dir / "trace.tdf").string(), 0);
  driver.SaveToFile((dir / "trace.bin").string(), 2);
  capture_metadata::writeMetadataBeside((dir / "trace.bin").string(), reading);
  capture_metadata::CaptureMetadata tdfReading = reading;
  tdfReading.tdf = true;
  capture_metadata::writeMetadataBeside((dir / "trace.tdf").string(), tdfReading);
}

// The first lines of the decoded trace and the profile; false when the
// timeline and report could not be written (said so).
bool printDecoded(const DemoDecoding& decoded, int excerptLines, const std::string& symbolsFrom, const fs::path& dir) {
  std::istringstream lines(decoded.text.text());
  std::cout << "\ndecoded trace (first " << excerptLines << " lines):\n";
  std::string lineText;
  for (int i = 0; i < excerptLines && std::getline(lines, lineText); ++i) std::cout << "  " << lineText << "\n";

  std::cout << "\nwhere the time goes (PC samples; names from " << symbolsFrom << "):\n" << decoded.profile.text();
  if (!decoded.picturesWritten) {
    std::cerr << "vestrel-host: could not write " << (dir / "trace.perfetto.json").string() << " and "
              << (dir / "report.html").string() << "\n";
  }
  return decoded.picturesWritten;
}

// How the capture's times are read.
decoder::Timing timingOf(const capture_metadata::CaptureMetadata& reading) {
  decoder::Timing timing;
  timing.clockHz = reading.clockHz;
  timing.timestampPrescale = reading.timestampPrescale;
  return timing;
}

// What the demo left in its folder, and how to decode it again.
void printFiles(const fs::path& dir, const capture_metadata::CaptureMetadata& reading) {
  std::cout << "\nfiles in " << dir.string() << ": trace.tdf (BinTraceData section), trace.bin (binary dump), "
            << "report.html (open it in a browser), trace.perfetto.json (open it at https://ui.perfetto.dev), "
            << "options.xml, .KV-trace/ (log, capture); how to read each capture in <capture>.vestrel.json\n"
            << "decode it: " << decodeCommandFor((dir / "trace.bin").string(), reading, false) << "\n";
}

}  // namespace

int demo(const DemoSettings& settings) {
  const fs::path dir = prepareDemoFolder(settings);
  target_simulator::SerialLine line(kComPort);
  if (!line.ready()) {
    std::cerr << "vestrel-host: " << line.why() << "\n";
    return 2;
  }
  target_simulator::SimulatedTarget target(kTargetClockHz, line);

  // On a terminal the byte counter is a status line that keeps its place.
  const bool terminal = isTerminal(stdout);
  LiveConsole console(terminal);
  LiveTrace liveTrace(settings.live, console);  // a taken port fails here, before anything records

  ReceiverLibrary library;
  if (!library.load()) return 1;  // said why

  std::string symbolsFrom;
  const symbols::SymbolTable symbols = firmwareSymbols(symbolsFrom);
  std::string capture;
  double elapsed = 0;
  capture_metadata::CaptureMetadata reading;
  try {
    ReceiverSession session(library, kDemoCpu, &target);
    CReceiver* receiver = session.receiver();
    CChannelDriver* driver = session.driver();
    driver->SetConfiguration((dir / "options.xml").string().c_str());
    std::cout << "configured: " << statusOf(*driver) << "\n";

    const auto start = std::chrono::steady_clock::now();
    receiver->OnTargetStateChanged(kDemoCpu, Kv::Orv::Trace::eTARGET_RUNNING);
    reading = recordingMetadata(*driver, 0, "vestrel-host demo");
    std::error_code noElf;
    if (symbols::elfSymbolsAvailable() && fs::is_regular_file(symbolsFrom, noElf)) reading.elf = symbolsFrom;
    liveTrace.start((dir / ".KV-trace" / "data" / "swotrace_CortexM4.bin").string(), reading);
    console.lines("target running: " + statusOf(*driver) + "\n");
    runFor(settings.seconds, *driver, console, liveTrace, terminal, start);
    haltWhenQuiet(target, *driver, *receiver);
    // The recording's time ends here: handing the rest to live clients
    // (stalled ones included) is not recording.
    elapsed = secondsSince(start);
    liveTrace.finish();
    console.endStatus();
    std::cout << "target halted: " << statusOf(*driver) << "\n";
    capture = readCapture(*driver);
    saveDemoCaptures(*driver, dir, reading);
    session.end();
  } catch (const cHexkitError& e) {
    reportHexkitError("receiver", e);
    return 1;
  }

  // Decode; the decoder counts the zero padding of the last sample apart.
  DemoDecoding decoded;
  decodeDemoCapture(decoded, capture, dir, symbols, timingOf(reading));
  const bool pictures = printDecoded(decoded, settings.excerptLines, symbolsFrom, dir);
  const bool exact = printSummary(capture, elapsed, target, decoded, dir);
  printFiles(dir, reading);
  return exact && pictures ? 0 : 1;
}

}  // namespace vestrel::host
