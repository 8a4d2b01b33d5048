// vestrel-decode: decodes an SWO capture (raw, or the BinTraceData section of
// a TDF file, or standard input) into readable text or JSON Lines.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "ItmDecoder.h"
#include "TpiuDeframer.h"
#include "TraceText.h"

using namespace vestrel::decode;

namespace {

// The payload of the BinTraceData section: the section is found by its
// header (length, version, name length 12, the name).
bool binTraceData(const std::string& file, std::string& data) {
  const std::string name = "BinTraceData";
  for (std::size_t at = file.find(name); at != std::string::npos; at = file.find(name, at + 1)) {
    if (at < 12) continue;
    auto word = [&](std::size_t offset) {
      std::uint32_t value = 0;
      std::memcpy(&value, file.data() + offset, 4);
      return value;
    };
    const std::size_t start = at - 12;
    if (word(start + 8) != name.size()) continue;
    const std::uint32_t length = word(start);
    if (length < 24 || start + length > file.size()) continue;
    data = file.substr(start + 24, length - 24);
    return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Decodes ITM/DWT trace captured from SWO"};
  // Paths may start with "/" (Wine maps Unix paths): no "/option" syntax.
  app.allow_windows_style_options(false);
  std::string input = "-";
  bool tdf = false, json = false, statistics = false;
  double clockHz = 0;
  std::uint32_t prescale = 1;
  app.add_option("input", input, "raw capture or TDF file; - or nothing for standard input");
  app.add_flag("--tdf", tdf, "read the BinTraceData section of a TDF file");
  app.add_flag("--json", json, "one JSON object per packet instead of text");
  app.add_flag("--stats", statistics, "print packet statistics at the end (as a last JSON line with --json)");
  app.add_option("--clock", clockHz, "trace clock in Hz, to give timestamps in seconds")
      ->check(CLI::Validator(
          [](std::string& text) {
            return !text.empty() && text[0] == '-' ? std::string("a trace clock cannot be negative") : std::string();
          },
          "HZ"));
  app.add_option("--ts-prescale", prescale, "ITM timestamp prescale (1, 4, 16, 64)")
      ->check(CLI::IsMember({1u, 4u, 16u, 64u}));
  int tpiuId = 0;
  app.add_option("--tpiu", tpiuId, "the TPIU formatter was on: take the stream with this trace ID (ITM: usually 1)")
      ->check(CLI::Range(0, 127));
  CLI11_PARSE(app, argc, argv);

  std::string bytes;
  if (input == "-") {
    std::ios::sync_with_stdio(false);
    bytes.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  } else {
    std::error_code error;
    if (std::filesystem::is_directory(input, error)) {
      std::cerr << "vestrel-decode: " << input << " is a folder, not a capture\n";
      return 1;
    }
    std::ifstream in(input, std::ios::binary);
    if (!in) {
      std::cerr << "vestrel-decode: cannot open " << input << ": " << std::strerror(errno) << "\n";
      return 1;
    }
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.bad()) {
      std::cerr << "vestrel-decode: cannot read " << input << "\n";
      return 1;
    }
  }
  if (tdf) {
    std::string section;
    if (!binTraceData(bytes, section)) {
      std::cerr << "vestrel-decode: no BinTraceData section in " << input << "\n";
      return 1;
    }
    bytes.swap(section);
  }

  if (tpiuId > 0) {
    std::string stream;
    TpiuDeframer deframer([&](std::uint8_t id, std::uint8_t byte) {
      if (id == tpiuId) stream += static_cast<char>(byte);
    });
    deframer.feed(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    bytes.swap(stream);
  }

  TextWriter::Timing timing;
  if (clockHz > 0) timing.clockHz = clockHz;
  timing.timestampPrescale = prescale;
  TextWriter text(std::cout, timing);
  ItmDecoder decoder([&](const Packet& packet) {
    if (json) {
      std::cout << toJson(packet) << "\n";
    } else {
      text.write(packet);
    }
  });
  decoder.feed(bytes);
  decoder.finish();
  if (!json) text.flush();
  if (statistics && json) std::cout << statisticsJson(decoder.statistics()) << "\n";
  if (statistics && !json) writeStatistics(std::cout, decoder.statistics());
  return 0;
}
