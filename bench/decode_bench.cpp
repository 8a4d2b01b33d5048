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
#include <cstdlib>
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

// A second kind of stream, by packet count: about half console text on
// port 0 in 4-, 2- and 1-byte writes, a quarter binary counters on ports 1-3
// with payloads of random size, 15 % local timestamps (format 1 with 1-4
// bytes of value, and format 2), a few exceptions and PC samples, and a
// synchronisation packet every ~1000 packets.
std::vector<std::uint8_t> makeMixedStream(std::size_t size) {
  static const char kText[] = "sensor 3: 21.5 C, 1013 hPa, battery 87 %\nstate RUNNING queue 3/16\n";
  std::mt19937 generator(23);
  std::vector<std::uint8_t> out;
  out.reserve(size + 64);
  std::size_t textAt = 0;
  auto stimulus = [&](std::uint32_t port, std::size_t bytes, auto nextByte) {
    const std::uint8_t sizeBits = bytes == 4 ? 3 : (bytes == 2 ? 2 : 1);
    out.push_back(static_cast<std::uint8_t>(port << 3 | sizeBits));
    for (std::size_t k = 0; k < bytes; ++k) out.push_back(nextByte());
  };
  for (std::uint32_t packet = 0; out.size() < size; ++packet) {
    if (packet % 1000 == 999) {
      out.insert(out.end(), {0x00, 0x00, 0x00, 0x00, 0x00, 0x80});
      continue;
    }
    const std::uint32_t pick = generator() % 100;
    if (pick < 50) {
      stimulus(0, std::size_t{1} << (generator() % 3),
               [&] { return static_cast<std::uint8_t>(kText[textAt++ % (sizeof kText - 1)]); });
    } else if (pick < 75) {
      stimulus(1 + generator() % 3, std::size_t{1} << (generator() % 3),
               [&] { return static_cast<std::uint8_t>(generator()); });
    } else if (pick < 90) {
      if (generator() % 4 == 0) {
        out.push_back(static_cast<std::uint8_t>((1 + generator() % 6) << 4));  // format 2: 1-6 cycles
      } else {
        const std::size_t bytes = 1 + generator() % 4;
        out.push_back(static_cast<std::uint8_t>(0xC0 | (generator() % 4) << 4));
        for (std::size_t k = 0; k < bytes; ++k)
          out.push_back(static_cast<std::uint8_t>((generator() & 0x7F) | (k + 1 < bytes ? 0x80 : 0)));
      }
    } else if (pick < 95) {
      const std::uint8_t number = static_cast<std::uint8_t>(11 + generator() % 40);
      out.insert(out.end(), {0x0E, number, 0x10, 0x0E, number, 0x20});
    } else {
      const std::uint32_t pc = 0x08000000u + (generator() & 0x3FFFEu);
      out.insert(out.end(), {0x17, static_cast<std::uint8_t>(pc), static_cast<std::uint8_t>(pc >> 8),
                             static_cast<std::uint8_t>(pc >> 16), static_cast<std::uint8_t>(pc >> 24)});
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

// orbuculum's orbcat decoding the same file with nothing printed, when
// ORBCAT names its binary: the field's reference, timed from outside.
double orbcatRate(const std::string& orbcat, const std::string& path, std::size_t bytes) {
  const std::string command = "'" + orbcat + "' -p ITM -E -f " + path + " > " + kNullDevice;
  const auto start = Clock::now();
  if (std::system(command.c_str()) != 0) return 0;
  return megabytesPerSecond(bytes, Clock::now() - start);
}

DecodeOptions textOptions() { return {}; }

DecodeOptions jsonOptions() {
  DecodeOptions json;
  json.json = true;
  return json;
}

DecodeOptions statisticsOptions() {
  DecodeOptions statistics;
  statistics.statistics = true;
  statistics.quiet = true;
  return statistics;
}

// The second stream, against orbcat on the same file when it is given.
bool measureMixed(std::size_t megabytes, double baseline) {
  const std::string path = "decode_bench_mixed.swo";
  const std::vector<std::uint8_t> mixed = makeMixedStream(megabytes * 1000000);
  write(path, mixed);
  const double text = median([&] { return decodeRate(path, mixed.size(), textOptions()).rate; });
  const double json = median([&] { return decodeRate(path, mixed.size(), jsonOptions()).rate; });
  Run counted{};
  const double statistics =
      median([&] { return (counted = decodeRate(path, mixed.size(), statisticsOptions())).rate; });
  const char* orbcat = std::getenv("ORBCAT");
  const double reference = orbcat ? median([&] { return orbcatRate(orbcat, path, mixed.size()); }) : 0;
  std::remove(path.c_str());

  std::printf("mixed stream (%zu MB: port 0 text, counters on ports 1-3, 15 %% timestamps, sync every ~1000)\n",
              megabytes);
  auto row = [&](const char* name, double rate, double times) {
    std::printf("  %-34s %9.1f MB/s   ratio %.3f", name, rate, rate / baseline);
    if (reference > 0)
      std::printf("   %.2fx orbcat (target %.1fx): %s", rate / reference, times,
                  rate >= times * reference ? "met" : "NOT met");
    std::printf("\n");
  };
  row("text output", text, 2);
  row("JSON Lines", json, 1.5);
  row("statistics only (--stats --quiet)", statistics, 8);
  if (reference > 0)
    std::printf("  %-34s %9.1f MB/s   (orbcat -p ITM -E -f FILE, nothing printed)\n", "orbcat, decode only", reference);
  else
    std::printf("  (ORBCAT=path/to/orbcat runs orbuculum's decoder on the same file beside these)\n");
  std::printf("  (%llu malformed bytes)\n", static_cast<unsigned long long>(counted.result.statistics.malformedBytes));
  return counted.result.statistics.malformedBytes == 0;
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

  const DecodeOptions text = textOptions();
  const DecodeOptions json = jsonOptions();
  const DecodeOptions statistics = statisticsOptions();

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
  const bool mixedClean = measureMixed(megabytes, baseline);
  return counted.malformedBytes == 0 && mixedClean ? 0 : 1;
}
