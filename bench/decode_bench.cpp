// vestrel-decode's benchmark. From one run, over a generated stream of
// stimulus text on four ports, local timestamps, exceptions and PC samples
// (and over random bytes): MB/s of the decode pipeline with text output, with
// JSON Lines, and with statistics only, each against a baseline measured in
// the same run (a plain read-and-write copy of the same file to the null
// device by this process), and the targets they are held to.
// Usage: decode_bench [megabytes]
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "DecodePipeline.h"
#include "SymbolTable.h"

using Clock = std::chrono::steady_clock;
using namespace vestrel::decoder;

namespace {

#if defined(_WIN32)
const char* const kNullDevice = "NUL";
#else
const char* const kNullDevice = "/dev/null";
#endif

// What firmware printing over ITM sends: lines on four ports in 32-bit
// writes (the last one shorter), each line followed by a local timestamp;
// now and then an interrupt entered and left, and a PC sample.
std::vector<std::uint8_t> makeStream(std::size_t size) {
  static const char* const kLines[] = {"temperature=21.5 C\n", "tick 1234567\n", "adc[3]=0x0FA2 ok\n",
                                       "state: RUNNING, queue 3 of 16\n"};
  std::mt19937 generator(11);
  std::vector<std::uint8_t> out;
  out.reserve(size + 64);
  while (out.size() < size) {
    const std::uint32_t port = generator() % 4;
    const std::string line = kLines[generator() % 4];
    for (std::size_t at = 0; at < line.size(); at += 4) {
      const std::size_t n = std::min<std::size_t>(4, line.size() - at);
      const std::uint8_t sizeBits = n == 4 ? 3 : (n == 2 ? 2 : 1);
      const std::size_t bytes = n == 3 ? 2 : n;  // a 3-byte tail goes as 2 + 1
      out.push_back(static_cast<std::uint8_t>(port << 3 | sizeBits));
      for (std::size_t k = 0; k < bytes; ++k) out.push_back(static_cast<std::uint8_t>(line[at + k]));
      if (n == 3) {
        out.push_back(static_cast<std::uint8_t>(port << 3 | 1));
        out.push_back(static_cast<std::uint8_t>(line[at + 2]));
      }
    }
    out.insert(out.end(), {0xC0, static_cast<std::uint8_t>(generator() & 0x7F)});
    if (generator() % 4 == 0) {
      out.insert(out.end(), {0x0E, 0x0F, 0x10, 0x10, 0x0E, 0x0F, 0x20, 0x20});
      // A PC sample somewhere in the first 256 KiB of flash.
      const std::uint32_t pc = 0x08000000u + (generator() & 0x3FFFEu);
      out.insert(out.end(), {0x17, static_cast<std::uint8_t>(pc), static_cast<std::uint8_t>(pc >> 8),
                             static_cast<std::uint8_t>(pc >> 16), static_cast<std::uint8_t>(pc >> 24), 0x30});
    }
  }
  return out;
}

// Exception trace a corrupt capture may hold: handlers entered and never
// exited (the stack goes deep), and exits of handlers that are not running.
std::vector<std::uint8_t> makeHostileExceptions(std::size_t size) {
  std::vector<std::uint8_t> out;
  out.reserve(size + 16);
  for (std::uint32_t n = 0; out.size() < size; ++n) {
    const std::uint8_t number = static_cast<std::uint8_t>(16 + n % 200);
    out.insert(out.end(), {0x0E, number, 0x10});                                                 // entered
    if (n % 2 == 0) out.insert(out.end(), {0x0E, static_cast<std::uint8_t>(number + 1), 0x20});  // exit: not running
    out.insert(out.end(), {0xC0, 0x05});
  }
  return out;
}

double megabytesPerSecond(std::size_t bytes, Clock::duration elapsed) {
  return static_cast<double>(bytes) / 1e6 / std::chrono::duration<double>(elapsed).count();
}

// A plain copy of the file to the null device in the pipeline's block size.
double copyRate(const std::string& path, std::size_t bytes) {
  std::FILE* in = std::fopen(path.c_str(), "rb");
  std::FILE* out = std::fopen(kNullDevice, "wb");
  std::vector<char> block(std::size_t{1} << 20);
  const auto start = Clock::now();
  for (std::size_t got; (got = std::fread(block.data(), 1, block.size(), in)) > 0;)
    std::fwrite(block.data(), 1, got, out);
  std::fflush(out);
  const double rate = megabytesPerSecond(bytes, Clock::now() - start);
  std::fclose(in);
  std::fclose(out);
  return rate;
}

struct Run {
  double rate;
  DecodeResult result;
};

Run decodeRate(const std::string& path, std::size_t bytes, const DecodeOptions& options) {
  std::FILE* in = std::fopen(path.c_str(), "rb");
  std::FILE* out = std::fopen(kNullDevice, "wb");
  const auto start = Clock::now();
  Run run{0, decodeStream(in, out, options)};
  run.rate = megabytesPerSecond(bytes, Clock::now() - start);
  std::fclose(in);
  std::fclose(out);
  return run;
}

void write(const std::string& path, const std::vector<std::uint8_t>& bytes) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  std::fwrite(bytes.data(), 1, bytes.size(), file);
  std::fclose(file);
}

// The median of three runs: this machine's figures are noisy.
template <typename Measure>
double median(Measure measure) {
  double a = measure(), b = measure(), c = measure();
  if (a > b) std::swap(a, b);
  if (b > c) std::swap(b, c);
  if (a > b) std::swap(a, b);
  return b;
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t megabytes = argc > 1 ? std::stoul(argv[1]) : 200;
  const std::string streamPath = "decode_bench_stream.swo";
  const std::string randomPath = "decode_bench_random.bin";
  const std::vector<std::uint8_t> stream = makeStream(megabytes * 1000000);
  write(streamPath, stream);
  std::vector<std::uint8_t> noise(stream.size());
  std::mt19937_64 generator(5);
  for (auto& byte : noise) byte = static_cast<std::uint8_t>(generator());
  write(randomPath, noise);

  DecodeOptions text;
  DecodeOptions json;
  json.json = true;
  DecodeOptions statistics;
  statistics.statistics = true;
  statistics.quiet = true;

  // A firmware of 4096 functions of 64 bytes over those 256 KiB, a line
  // row every 4 bytes.
  std::vector<vestrel::symbols::FunctionSymbol> functions;
  std::vector<vestrel::symbols::LineRow> rows;
  for (std::uint32_t f = 0; f < 4096; ++f) {
    functions.push_back({"function_" + std::to_string(f), 0x08000000u + f * 64, 64});
    for (std::uint32_t at = 0; at < 64; at += 4) rows.push_back({0x08000000u + f * 64 + at, 0, f * 20 + at / 4, false});
  }
  const vestrel::symbols::SymbolTable symbols(std::move(functions), {"firmware.c"}, std::move(rows));
  DecodeOptions profile;
  profile.quiet = true;
  profile.profile = true;
  profile.symbols = &symbols;
  DecodeOptions report = profile;
  report.profile = false;
  std::FILE* reportFile = std::fopen(kNullDevice, "wb");
  report.html = reportFile;

  const double baseline = median([&] { return copyRate(streamPath, stream.size()); });
  Run textRun{}, jsonRun{}, statisticsRun{}, randomRun{};
  const double textRate = median([&] { return (textRun = decodeRate(streamPath, stream.size(), text)).rate; });
  const double jsonRate = median([&] { return (jsonRun = decodeRate(streamPath, stream.size(), json)).rate; });
  const double statisticsRate =
      median([&] { return (statisticsRun = decodeRate(streamPath, stream.size(), statistics)).rate; });
  const double randomRate = median([&] { return (randomRun = decodeRate(randomPath, noise.size(), text)).rate; });
  const double randomStatisticsRate = median([&] { return decodeRate(randomPath, noise.size(), statistics).rate; });
  const double profileRate = median([&] { return decodeRate(streamPath, stream.size(), profile).rate; });
  const double reportRate = median([&] { return decodeRate(streamPath, stream.size(), report).rate; });
  // Corrupt exception trace with the report and the timeline: the time
  // per byte at four times the size, against that at one (1.0: linear).
  const std::string hostilePath = "decode_bench_exceptions.swo";
  DecodeOptions hostile = report;
  std::FILE* timelineFile = std::fopen(kNullDevice, "wb");
  hostile.perfetto = timelineFile;
  const std::size_t hostileSmall = std::max<std::size_t>(megabytes * 1000000 / 40, 1000000);
  write(hostilePath, makeHostileExceptions(hostileSmall));
  const double hostileSmallRate = median([&] { return decodeRate(hostilePath, hostileSmall, hostile).rate; });
  write(hostilePath, makeHostileExceptions(4 * hostileSmall));
  const double hostileLargeRate = median([&] { return decodeRate(hostilePath, 4 * hostileSmall, hostile).rate; });
  std::remove(hostilePath.c_str());
  std::fclose(timelineFile);
  std::fclose(reportFile);
  std::remove(streamPath.c_str());
  std::remove(randomPath.c_str());

  const DecoderStatistics& counted = statisticsRun.result.statistics;
  std::printf("vestrel-decode throughput (%zu MB: stimulus text on 4 ports, timestamps, exceptions, PC samples)\n",
              megabytes);
  std::printf("  %-34s %9.1f MB/s\n", "baseline: read + write copy", baseline);
  auto row = [&](const char* name, double rate, double target) {
    std::printf("  %-34s %9.1f MB/s   ratio %.3f   target %.0f MB/s: %s\n", name, rate, rate / baseline, target,
                rate >= target ? "met" : "NOT met");
  };
  row("text output", textRate, 150);
  row("JSON Lines", jsonRate, 100);
  row("statistics only (--stats --quiet)", statisticsRate, 400);
  row("random bytes, text output", randomRate, 100);
  row("random bytes, statistics only", randomStatisticsRate, 100);
  row("profile, 4096 functions (--profile)", profileRate, 200);
  row("HTML report (--html)", reportRate, 100);
  std::printf("  %-34s %9.1f MB/s at %.0f MB, %.1f MB/s at %.0f MB: time per byte grows %.2f times (target <= 1.5)\n",
              "corrupt exceptions, --html --perfetto", hostileSmallRate, hostileSmall / 1e6, hostileLargeRate,
              4 * hostileSmall / 1e6, hostileSmallRate / hostileLargeRate);
  std::uint64_t packets = 0;
  for (std::uint64_t count : counted.packets) packets += count;
  std::printf("  (%llu packets, %llu malformed bytes in the stream; %llu malformed runs in the random bytes)\n",
              static_cast<unsigned long long>(packets), static_cast<unsigned long long>(counted.malformedBytes),
              static_cast<unsigned long long>(randomRun.result.statistics.count(PacketKind::Malformed)));
  return counted.malformedBytes == 0 ? 0 : 1;
}
