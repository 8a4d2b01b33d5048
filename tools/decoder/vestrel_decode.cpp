// vestrel-decode: decodes an SWO capture (raw, or the BinTraceData section of
// a TDF file, or standard input) into readable text or JSON Lines. The input
// is read in fixed blocks and decoded as it comes, so memory does not grow
// with it; output goes through one large buffer.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "ItmDecoder.h"
#include "OutputBuffer.h"
#include "PacketTimer.h"
#include "SectionReader.h"
#include "TpiuDeframer.h"
#include "TraceText.h"

using namespace vestrel::decode;

namespace {

constexpr std::size_t kBlockSize = std::size_t{1} << 20;

struct Settings {
  std::string input = "-";
  bool tdf = false, json = false, statistics = false, quiet = false;
  double clockHz = 0;
  std::uint32_t prescale = 1;
  int tpiuId = 0;
};

int run(const Settings& settings) {
  std::FILE* in = stdin;
  if (settings.input != "-") {
    std::error_code error;
    if (std::filesystem::is_directory(settings.input, error)) {
      std::cerr << "vestrel-decode: " << settings.input << " is a folder, not a capture\n";
      return 1;
    }
    in = std::fopen(settings.input.c_str(), "rb");
    if (in == nullptr) {
      std::cerr << "vestrel-decode: cannot open " << settings.input << ": " << std::strerror(errno) << "\n";
      return 1;
    }
  }

  Timing timing;
  if (settings.clockHz > 0) timing.clockHz = settings.clockHz;
  timing.timestampPrescale = settings.prescale;
  OutputBuffer out(stdout);
  TextWriter text(out, timing);
  JsonWriter json(out, timing);
  const bool perPacket = !settings.quiet;
  PacketTimer timer([&](const Packet& packet, PacketTime time) {
    if (settings.json) {
      json.write(packet, time);
    } else {
      text.write(packet, time);
    }
  });
  ItmDecoder decoder(perPacket ? ItmDecoder::Sink([&](const Packet& packet) { timer.add(packet); })
                               : ItmDecoder::Sink());

  std::vector<std::uint8_t> deframed;
  TpiuDeframer deframer([&](std::uint8_t id, std::uint8_t byte) {
    if (id == settings.tpiuId) deframed.push_back(byte);
  });
  auto decode = [&](const std::uint8_t* data, std::size_t size) {
    if (settings.tpiuId > 0) {
      deframed.clear();
      deframer.feed(data, size);
      decoder.feed(deframed.data(), deframed.size());
    } else {
      decoder.feed(data, size);
    }
  };
  SectionReader section("BinTraceData");

  std::vector<std::uint8_t> block(kBlockSize);
  bool readFailed = false;
  for (;;) {
    const std::size_t got = std::fread(block.data(), 1, block.size(), in);
    if (got > 0) {
      if (settings.tdf) {
        section.feed(block.data(), got, decode);
      } else {
        decode(block.data(), got);
      }
    }
    if (got < block.size()) {
      readFailed = std::ferror(in) != 0;
      break;
    }
  }
  if (in != stdin) std::fclose(in);
  if (readFailed) {
    std::cerr << "vestrel-decode: cannot read " << settings.input << "\n";
    return 1;
  }
  if (settings.tdf && !section.found()) {
    std::cerr << "vestrel-decode: no BinTraceData section in " << settings.input << "\n";
    return 1;
  }
  if (settings.tdf && !section.complete()) {
    std::cerr << "vestrel-decode: the BinTraceData section in " << settings.input << " is cut short\n";
    return 1;
  }

  decoder.finish();
  timer.release();
  if (settings.json) {
    json.flush();
  } else {
    text.flush();
  }
  if (settings.statistics && settings.json) {
    out.append(statisticsJson(decoder.statistics()));
    out.append('\n');
  }
  if (settings.statistics && !settings.json) writeStatistics(out, decoder.statistics());
  if (!out.flush()) {
    std::cerr << "vestrel-decode: writing the output failed\n";
    return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Decodes ITM/DWT trace captured from SWO"};
  // Paths may start with "/" (Wine maps Unix paths): no "/option" syntax.
  app.allow_windows_style_options(false);
  Settings settings;
  app.add_option("input", settings.input, "raw capture or TDF file; - or nothing for standard input");
  app.add_flag("--tdf", settings.tdf, "read the BinTraceData section of a TDF file");
  app.add_flag("--json", settings.json, "JSON Lines: one object per packet and per text line, instead of text");
  app.add_flag("--stats", settings.statistics, "print packet statistics at the end (as a last JSON line with --json)");
  app.add_flag("--quiet", settings.quiet, "no per-packet output (with --stats: the statistics only)");
  app.add_option("--clock", settings.clockHz, "trace clock in Hz, to give timestamps in seconds")
      ->check(CLI::Validator(
          [](std::string& text) {
            return !text.empty() && text[0] == '-' ? std::string("a trace clock cannot be negative") : std::string();
          },
          "HZ"));
  app.add_option("--ts-prescale", settings.prescale, "ITM timestamp prescale (1, 4, 16, 64)")
      ->check(CLI::IsMember({1u, 4u, 16u, 64u}));
  app.add_option("--tpiu", settings.tpiuId,
                 "the TPIU formatter was on: take the stream with this trace ID (ITM: usually 1)")
      ->check(CLI::Range(0, 127));
  CLI11_PARSE(app, argc, argv);
  return run(settings);
}
