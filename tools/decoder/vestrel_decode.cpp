// vestrel-decode: decodes an SWO capture (raw, or the BinTraceData section of
// a TDF file, standard input, a capture file as it grows, or a raw SWO TCP
// stream) into readable text or JSON Lines. The input is read in blocks and
// decoded as it comes, so memory does not grow with it; output goes through
// one large buffer, written whenever the input pauses.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "CaptureLookup.h"
#include "CaptureMetadata.h"
#include "CommandLine.h"
#include "DecodePipeline.h"
#include "ElfSymbols.h"
#include "Endpoint.h"
#include "PerfettoWriter.h"
#include "TraceClient.h"

using namespace vestrel::decoder;

namespace {

volatile std::sig_atomic_t interrupted = 0;
void onInterrupt(int) { interrupted = 1; }
bool interruptRequested() { return interrupted != 0; }

struct Settings {
  std::string input = "-";
  std::string follow;
  std::string connect;
  double idleExit = 0;
  std::string perfetto;
  std::string html;
  std::string elf;
  bool profile = false;
  std::vector<std::uint32_t> counterPorts;
  bool tdf = false, json = false, raw = false, statistics = false, quiet = false;
  double clockHz = 0;
  std::uint32_t prescale = 1;
  int tpiuId = 0;
  // Given on the command line: the capture's metadata does not replace them.
  bool clockGiven = false, prescaleGiven = false, tpiuGiven = false, elfGiven = false;
  bool force = false;  // replace existing --html and --perfetto files
  vestrel::symbols::SymbolTable symbols;
};

// The same file, by identity where both exist (links and other spellings
// included), else by their absolute, normal form.
bool sameFile(const std::string& a, const std::string& b) {
  namespace fs = std::filesystem;
  std::error_code error;
  if (fs::exists(a, error) && fs::exists(b, error)) return fs::equivalent(a, b, error);
  return fs::weakly_canonical(fs::absolute(a), error) == fs::weakly_canonical(fs::absolute(b), error);
}

// --html and --perfetto, checked before anything is read: neither the input,
// the ELF file nor each other, and not an existing file unless --force.
// Returns the usage error, or "".
std::string outputProblem(const Settings& settings, const std::string& source) {
  const std::pair<const char*, const std::string*> outputs[] = {{"--perfetto", &settings.perfetto},
                                                                {"--html", &settings.html}};
  for (const auto& [option, path] : outputs) {
    if (path->empty()) continue;
    if (source != "-" && sameFile(*path, source)) return std::string(option) + " " + *path + " is the input";
    if (!settings.elf.empty() && sameFile(*path, settings.elf)) {
      return std::string(option) + " " + *path + " is the ELF file";
    }
    std::error_code error;
    // A file is never replaced without --force; a device or a pipe is written to.
    if (!settings.force && std::filesystem::is_regular_file(*path, error)) {
      return *path + " exists: give --force to replace it, or another " + option;
    }
  }
  if (!settings.html.empty() && !settings.perfetto.empty() && sameFile(settings.html, settings.perfetto)) {
    return "--html and --perfetto name the same file, " + settings.html;
  }
  return "";
}

// What the metadata file beside a capture says, where the command line says
// nothing; throws std::runtime_error when the file is there but unusable.
void applyMetadata(Settings& settings, const std::string& capture) {
  const auto metadata = vestrel::capture_metadata::readMetadataBeside(capture);
  if (!metadata) return;
  if (!settings.clockGiven && metadata->clockHz) settings.clockHz = *metadata->clockHz;
  if (!settings.prescaleGiven) settings.prescale = metadata->timestampPrescale;
  if (!settings.tpiuGiven && metadata->tpiuId) settings.tpiuId = *metadata->tpiuId;
  if (metadata->tdf) settings.tdf = true;
  if (!settings.elfGiven && !metadata->elf.empty() && vestrel::symbols::elfSymbolsAvailable()) {
    std::error_code error;
    if (std::filesystem::is_regular_file(metadata->elf, error)) {
      settings.elf = metadata->elf;
    } else {
      std::cerr << "vestrel-decode: " << metadata->elf << ", the firmware named in "
                << vestrel::capture_metadata::metadataPathFor(capture) << ", is not there: PC values are not named\n";
    }
  }
}

DecodeOptions optionsOf(const Settings& settings) {
  DecodeOptions options;
  options.tdf = settings.tdf;
  options.json = settings.json;
  options.raw = settings.raw;
  options.statistics = settings.statistics;
  options.quiet = settings.quiet;
  options.tpiuId = settings.tpiuId;
  if (settings.clockHz > 0) options.timing.clockHz = settings.clockHz;
  options.timing.timestampPrescale = settings.prescale;
  options.counterPorts.insert(settings.counterPorts.begin(), settings.counterPorts.end());
  options.profile = settings.profile;
  if (!settings.symbols.empty()) options.symbols = &settings.symbols;
  return options;
}

// A file written beside the decoded output (a timeline, a report), when one
// is asked for; throws when it cannot be made.
struct OutputFile {
  explicit OutputFile(const std::string& path) {
    if (path.empty()) return;
    file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
  }
  ~OutputFile() {
    if (file != nullptr) std::fclose(file);
  }
  std::FILE* file = nullptr;
};

int report(const std::string& source, const DecodeResult& result, const Settings& settings,
           const std::string& readError = "") {
  if (result.timelineLeftOut > 0) {
    std::cerr << "vestrel-decode: " << settings.perfetto << " holds the first " << PerfettoWriter::kMaxEvents
              << " events; " << result.timelineLeftOut << " more were left out (its last marker says so)\n";
  }
  if (result.followEnd == "deleted" || result.followEnd == "truncated") {
    std::cerr << "vestrel-decode: " << source << " was " << result.followEnd << "; stopped following it\n";
  } else if (result.followEnd == "replaced") {
    std::cerr << "vestrel-decode: " << source << " was replaced by another file; stopped following it\n";
  }
  switch (result.status) {
    case DecodeResult::Status::Done:
      return 0;
    case DecodeResult::Status::ReadFailed:
      std::cerr << "vestrel-decode: cannot read " << source << (readError.empty() ? "" : ": " + readError)
                << "; what arrived before is decoded and every output finished\n";
      return 1;
    case DecodeResult::Status::NoSection:
      std::cerr << "vestrel-decode: no BinTraceData section in " << source << "\n";
      return 1;
    case DecodeResult::Status::SectionCutShort:
      std::cerr << "vestrel-decode: the BinTraceData section in " << source << " is cut short\n";
      return 1;
    case DecodeResult::Status::WriteFailed: {
      const std::string what = result.failedOutput == "html"       ? settings.html
                               : result.failedOutput == "perfetto" ? settings.perfetto
                                                                   : std::string("the standard output");
      std::cerr << "vestrel-decode: cannot write " << what << ": "
                << (result.writeError != 0 ? std::strerror(result.writeError) : "the write failed") << "\n";
      return 1;
    }
  }
  return 1;
}

// A raw SWO stream over TCP, until the server closes it (or Ctrl-C).
int runConnected(const Settings& settings) {
  const auto endpoint = vestrel::trace_server::parseEndpoint(settings.connect);
  if (!endpoint || endpoint->port == 0) {
    std::cerr << "vestrel-decode: --connect takes [HOST:]PORT, not " << settings.connect << "\n";
    return 2;
  }
  try {
    OutputFile timeline(settings.perfetto);
    OutputFile page(settings.html);
    vestrel::trace_server::TraceClient client(*endpoint);
    DecodeOptions options = optionsOf(settings);
    options.perfetto = timeline.file;
    options.html = page.file;
    options.reportSource = endpoint->text();
    // Ctrl-C ends the stream as its end would: every output is finished.
    std::signal(SIGINT, onInterrupt);
    bool stopped = false;
    const DecodeResult result = decodeStream(
        [&client, &stopped](void* buffer, std::size_t size) -> long {
          while (!interruptRequested()) {
            const long got = client.read(buffer, size, std::chrono::milliseconds(100));
            if (got != vestrel::trace_server::TraceClient::kTimedOut) return got;
          }
          stopped = true;
          return 0;
        },
        stdout, options);
    std::signal(SIGINT, SIG_DFL);
    if (stopped) std::cerr << "vestrel-decode: stopped (Ctrl-C); what arrived is decoded and every output finished\n";
    return report(endpoint->text(), result, settings, client.lastError());
  } catch (const std::exception& error) {
    std::cerr << "vestrel-decode: " << error.what() << "\n";
    return 1;
  }
}

// The capture a folder stands for, and the metadata beside the capture;
// 0, or 1 when either cannot be read (said why).
int resolveSource(Settings& settings) {
  if (!settings.connect.empty()) return 0;
  std::string& source = settings.follow.empty() ? settings.input : settings.follow;
  try {
    std::error_code error;
    if (source != "-" && std::filesystem::is_directory(source, error)) source = captureInFolder(source);
    if (source != "-") applyMetadata(settings, source);
  } catch (const std::exception& error) {
    std::cerr << "vestrel-decode: " << error.what() << "\n";
    return 1;
  }
  return 0;
}

// Decodes a file or standard input, with every output given.
int runOnFile(const Settings& settings) {
  const std::string source = settings.follow.empty() ? settings.input : settings.follow;
  std::FILE* in = stdin;
  if (source != "-") {
    in = std::fopen(source.c_str(), "rb");
    if (in == nullptr) {
      std::cerr << "vestrel-decode: cannot open " << source << ": " << std::strerror(errno) << "\n";
      return 1;
    }
  }
  DecodeOptions options = optionsOf(settings);
  std::optional<OutputFile> timeline;
  std::optional<OutputFile> page;
  try {
    timeline.emplace(settings.perfetto);
    page.emplace(settings.html);
  } catch (const std::exception& error) {
    std::cerr << "vestrel-decode: " << error.what() << "\n";
    if (in != stdin) std::fclose(in);
    return 1;
  }
  options.perfetto = timeline->file;
  options.html = page->file;
  options.reportSource = source == "-" ? "standard input" : source;
  if (!settings.follow.empty()) {
    options.follow = true;
    options.followPath = settings.follow;
    options.followIdentity = identityOf(in);
    if (settings.idleExit > 0) options.idleExitSeconds = settings.idleExit;
    // Ctrl-C ends the following; what was decoded is still written out.
    std::signal(SIGINT, onInterrupt);
    options.stop = interruptRequested;
  }
  const DecodeResult result = decodeStream(in, stdout, options);
  if (in != stdin) std::fclose(in);
  return report(source, result, settings);
}

int run(Settings& settings) {
  if (const int failed = resolveSource(settings); failed != 0) return failed;
  const std::string problem = outputProblem(
      settings, settings.connect.empty() ? (settings.follow.empty() ? settings.input : settings.follow) : "-");
  if (!problem.empty()) {
    std::cerr << "vestrel-decode: " << problem << "\n";
    return 2;
  }
  if (!settings.elf.empty()) {
    try {
      settings.symbols = vestrel::symbols::loadElfSymbols(settings.elf);
    } catch (const std::exception& error) {
      std::cerr << "vestrel-decode: " << error.what() << "\n";
      return 1;
    }
  }
  return settings.connect.empty() ? runOnFile(settings) : runConnected(settings);
}

// Where the bytes come from.
void addInputOptions(CLI::App& app, Settings& settings) {
  auto* input =
      app.add_option("input", settings.input,
                     "raw capture, TDF file, or the folder of a demo or record; - or nothing for standard input");
  auto* follow = app.add_option("--follow", settings.follow,
                                "decode a capture file as it grows, until Ctrl-C, its deletion or replacement, "
                                "or --idle-exit")
                     ->excludes(input);
  app.add_option("--idle-exit", settings.idleExit, "with --follow: end after this many seconds without growth")
      ->needs(follow)
      ->check(CLI::PositiveNumber);
  app.add_option("--connect", settings.connect,
                 "decode a raw SWO stream served over TCP at [HOST:]PORT, until the server closes it")
      ->excludes(input)
      ->excludes(follow);
  app.add_flag("--tdf", settings.tdf, "read the BinTraceData section of a TDF file");
}

// What is written; the --elf option.
CLI::Option* addOutputOptions(CLI::App& app, Settings& settings) {
  app.add_option("--perfetto", settings.perfetto,
                 "also write a timeline (Chrome trace-event JSON) that the Perfetto UI and chrome://tracing open");
  app.add_option("--counter-ports", settings.counterPorts, "with --perfetto: stimulus ports shown as counter tracks")
      ->check(CLI::Range(0, 31))
      ->delimiter(',');
  app.add_option("--html", settings.html,
                 "also write a report (summary, exception timeline, profile, port text) as one self-contained HTML "
                 "file");
  auto* elf =
      app.add_option("--elf", settings.elf,
                     vestrel::symbols::elfSymbolsAvailable()
                         ? "the firmware's ELF file: PC values named by function (and file:line with debug information)"
                         : "the firmware's ELF file (not available in the Windows build: it has no ELF reader)");
  app.add_flag("--profile", settings.profile,
               "print a PC-sample profile at the end: functions by share of samples (with --elf), hottest lines");
  app.add_flag("--force", settings.force, "replace existing --html and --perfetto files");
  app.add_flag("--json", settings.json, "JSON Lines instead of text: an object per text line and per event");
  app.add_flag("--raw", settings.raw, "with --json: an object for every packet too (instrumentation, timestamps)");
  app.add_flag("--stats", settings.statistics, "print packet statistics at the end (as a last JSON line with --json)");
  app.add_flag("--quiet", settings.quiet, "no per-packet output (with --stats: the statistics only)");
  return elf;
}

// How the bytes are read: given here, they override the capture's metadata.
struct ReadingOptions {
  CLI::Option* clock;
  CLI::Option* prescale;
  CLI::Option* tpiu;
};

ReadingOptions addReadingOptions(CLI::App& app, Settings& settings) {
  ReadingOptions options{};
  options.clock = app.add_option("--clock", settings.clockHz,
                                 "trace clock in Hz, to give timestamps in seconds (default: the capture's metadata)")
                      ->check(vestrel::command_line::numberFrom(1e3, 1e10, "HZ"));
  options.prescale = app.add_option("--ts-prescale", settings.prescale,
                                    "ITM timestamp prescale (1, 4, 16, 64; default: the capture's metadata, else 1)")
                         ->check(CLI::IsMember({1u, 4u, 16u, 64u}));
  options.tpiu = app.add_option("--tpiu", settings.tpiuId,
                                "the TPIU formatter was on: take the stream with this trace ID (ITM: usually 1)")
                     ->check(CLI::Range(0, 127));
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Decodes ITM/DWT trace captured from SWO"};
  // Paths may start with "/" (Wine maps Unix paths): no "/option" syntax.
  app.allow_windows_style_options(false);
  vestrel::command_line::addVersionFlag(app, "vestrel-decode");
  Settings settings;
  addInputOptions(app, settings);
  const CLI::Option* elf = addOutputOptions(app, settings);
  const ReadingOptions reading = addReadingOptions(app, settings);
  app.footer(
      "A capture saved by vestrel-host has a metadata file beside it (<capture>.vestrel.json: trace clock, timestamp "
      "prescale, TPIU trace ID, container, firmware); its values apply unless given here. A folder stands for the one "
      "capture with metadata it holds.");
  if (const auto status = vestrel::command_line::parse(app, argc, argv, "vestrel-decode")) return *status;
  settings.clockGiven = reading.clock->count() > 0;
  settings.prescaleGiven = reading.prescale->count() > 0;
  settings.tpiuGiven = reading.tpiu->count() > 0;
  settings.elfGiven = elf->count() > 0;
  return run(settings);
}
