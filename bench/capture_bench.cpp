// Capture benchmark. Prints, from one run on this machine:
//   throughput: the collector's MB/s through a pseudo-terminal, the MB/s of a
//     minimal 100-byte read/write loop over the same calls (the baseline),
//     their ratio, and whether the capture was byte-exact;
//   paced: the feeder paced at rising rates through a 4 KiB buffer whose
//     overflow is dropped and counted (a UART overrun), and the highest rate
//     with zero drops.
//   soak: a long capture (10 minutes by default) with the feeder paced at a
//     steady rate (10 MB/s by default) through the pseudo-terminal, waiting
//     rather than dropping when it is full; the capture file, gigabytes
//     long, is then compared in streaming with the stream the feeder made.
// Usage: capture_bench [throughput [megabytes] | paced [seconds-per-rate] |
//                       soak [minutes [MB/s]]]
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "PseudoTerminal.h"
#include "SerialPort.h"
#include "UARTDataCollector.h"
#include "uFile.h"
#include "uThread.h"

using namespace Kv::Orv::Trace::Vestrel;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kPort = 7;

std::string randomBytes(std::size_t size) {
  std::mt19937_64 generator(42);
  std::string data(size, '\0');
  for (std::size_t i = 0; i < size; i += 8) {
    const std::uint64_t word = generator();
    std::memcpy(&data[i], &word, std::min<std::size_t>(8, size - i));
  }
  return data;
}

std::string readAll(const std::string& path) {
  KV_ORV::uFile file;
  std::string content;
  if (!file.open(path.c_str(), "rb")) return content;
  content.resize(static_cast<std::size_t>(file.length()));
  content.resize(file.read(content.data(), content.size()));
  file.close();
  return content;
}

std::int64_t lengthOf(const std::string& path) {
  KV_ORV::uFile file;
  if (!file.open(path.c_str(), "rb")) return 0;
  const std::int64_t length = file.length();
  file.close();
  return length;
}

double megabytesPerSecond(std::size_t bytes, Clock::duration elapsed) {
  return static_cast<double>(bytes) / 1e6 / std::chrono::duration<double>(elapsed).count();
}

// The least a capture can do: open the port as the collector does, then
// read 100 bytes and write them, in a loop, until everything arrived.
double baseline(const std::string& dir, const std::string& data) {
  vestrel_bench::PseudoTerminal pty(kPort, dir);
  SerialApi& api = systemSerialApi();
  PortHandle port = api.openPort(L"\\\\.\\COM7");
  PortState state;
  api.getState(port, state);
  // Programmed as the collector programs it: raw 8N1, no flow control (a
  // port left with XON/XOFF on would eat those bytes of the stream).
  state = UARTDataCollector::ProgrammedState(state, 2000000);
  api.setState(port, state);
  FileHandle file = api.createCaptureFile(std::wstring(L"") + std::filesystem::path(dir + "/baseline.bin").wstring());
  std::size_t total = 0;
  std::thread reader([&] {
    unsigned char buffer[100];
    while (total < data.size()) {
      std::uint32_t got = 0, put = 0;
      api.read(port, buffer, sizeof buffer, got);
      api.writeFile(file, buffer, got, put);
      total += got;
    }
  });
  const auto start = Clock::now();
  pty.writeAll(data.data(), data.size());
  reader.join();
  const auto elapsed = Clock::now() - start;
  api.closeFile(file);
  api.closePort(port);
  return megabytesPerSecond(data.size(), elapsed);
}

// A collector capturing COM<kPort>, a pseudo-terminal the benchmark feeds,
// into a file of the given name, on a thread of its own from construction.
struct CaptureSession {
  CaptureSession(const std::string& dir, const std::string& fileName)
      : pty(kPort, dir),
        capture(dir + "/" + fileName),
        collector(std::make_unique<UARTDataCollector>(kPort, 2000000.0, false, prescaler, capture, false)),
        thread(collector.get(), 0, 0) {
    thread.start();
  }
  // Stops the capture as the channel driver does and closes the port.
  void stop() {
    collector->stop();
    while (!collector->isFinished()) KV_ORV::yield();
    collector.reset();
  }

  vestrel_bench::PseudoTerminal pty;
  const std::string capture;
  std::uint32_t prescaler = 0;
  std::unique_ptr<UARTDataCollector> collector;
  KV_ORV::uThread thread;
};

struct CollectorRun {
  double megabytesPerSecond = 0;
  bool exact = false;
};

CollectorRun collector(const std::string& dir, const std::string& data) {
  CaptureSession session(dir, "swotrace_bench.bin");
  vestrel_bench::PseudoTerminal& pty = session.pty;
  const std::string& capture = session.capture;
  const auto start = Clock::now();
  pty.writeAll(data.data(), data.size());
  while (lengthOf(capture) < static_cast<std::int64_t>(data.size())) std::this_thread::yield();
  const auto elapsed = Clock::now() - start;
  session.stop();
  return {megabytesPerSecond(data.size(), elapsed), readAll(capture) == data};
}

struct PacedRun {
  std::uint64_t offered = 0;
  std::uint64_t dropped = 0;
  std::uint64_t droppedReaderBehind = 0;  // lost while the pty still held unread bytes
  double worstLateUs = 0;                 // the feeder's own worst wake-up delay
  bool exact = false;
};

// A UART with a 4 KiB receive FIFO: bytes arrive at the paced rate whether or
// not anyone reads, and what does not fit in the FIFO is lost (an overrun).
// Every 100 us the feeder (at real-time priority, so that it wakes on time)
// adds the bytes due since the last tick and moves what the pseudo-terminal
// takes out of the FIFO.
PacedRun paced(const std::string& dir, double megabytesPerSecond, double seconds) {
  CaptureSession session(dir, "swotrace_paced.bin");
  vestrel_bench::PseudoTerminal& pty = session.pty;
  const std::string& capture = session.capture;

  constexpr std::size_t kFifo = 4096;
  const auto tick = std::chrono::microseconds(100);
  const std::string pattern = randomBytes(1 << 20);
  std::string sent;
  std::string fifo;
  PacedRun run;
  const auto start = Clock::now();
  auto next = start + tick;
  for (;;) {
    std::this_thread::sleep_until(next);
    const auto now = Clock::now();
    run.worstLateUs = std::max(run.worstLateUs, std::chrono::duration<double, std::micro>(now - next).count());
    const double elapsed = std::chrono::duration<double>(now - start).count();
    const auto due = static_cast<std::uint64_t>(std::min(elapsed, seconds) * megabytesPerSecond * 1e6);
    // The FIFO still holding bytes from the last tick means the pty refused
    // them: the reader is behind. An empty FIFO that overflows now was
    // overrun because the feeder woke late.
    const bool readerBehind = !fifo.empty();
    for (; run.offered < due; ++run.offered) {
      if (fifo.size() < kFifo) {
        fifo += pattern[run.offered % pattern.size()];
      } else {
        ++run.dropped;
        if (readerBehind) ++run.droppedReaderBehind;
      }
    }
    const std::size_t put = fifo.empty() ? 0 : pty.writeSome(fifo.data(), fifo.size());
    sent.append(fifo, 0, put);
    fifo.erase(0, put);
    if (elapsed >= seconds && fifo.empty()) break;
    next += tick;
  }
  while (lengthOf(capture) < static_cast<std::int64_t>(sent.size())) std::this_thread::yield();
  session.stop();
  run.exact = readAll(capture) == sent;
  return run;
}

// The soak's byte stream: byte i is a function of i alone, so a capture of
// any length can be checked without keeping what was sent.
void soakBytes(std::uint64_t first, char* out, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    std::uint64_t x = (first + i) / 8 + 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    x ^= x >> 31;
    out[i] = static_cast<char>(x >> (8 * ((first + i) % 8)));
  }
}

int soak(const std::string& dir, double minutes, double megabytesPerSecond) {
  CaptureSession session(dir, "swotrace_soak.bin");
  vestrel_bench::PseudoTerminal& pty = session.pty;
  const std::string& capture = session.capture;

  const double seconds = minutes * 60;
  const auto total = static_cast<std::uint64_t>(seconds * megabytesPerSecond * 1e6);
  std::printf("soak: %.1f minutes at %.1f MB/s (%.2f GB) through a pseudo-terminal\n", minutes, megabytesPerSecond,
              static_cast<double>(total) / 1e9);
  std::vector<char> chunk(1 << 16);
  std::uint64_t sent = 0;
  double worstBehindMs = 0;  // how far the feeder fell behind its schedule
  const auto start = Clock::now();
  auto nextReport = start + std::chrono::seconds(60);
  while (sent < total) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    const auto due = std::min<std::uint64_t>(total, static_cast<std::uint64_t>(elapsed * megabytesPerSecond * 1e6));
    while (sent < due) {
      const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(chunk.size(), due - sent));
      soakBytes(sent, chunk.data(), n);
      pty.writeAll(chunk.data(), n);
      sent += n;
    }
    const double scheduleMs = static_cast<double>(sent) / (megabytesPerSecond * 1e6) * 1e3;
    worstBehindMs =
        std::max(worstBehindMs, std::chrono::duration<double, std::milli>(Clock::now() - start).count() - scheduleMs);
    if (Clock::now() >= nextReport) {
      std::printf("  %5.1f min: %llu bytes sent, %lld in the capture file\n", elapsed / 60,
                  static_cast<unsigned long long>(sent), static_cast<long long>(lengthOf(capture)));
      std::fflush(stdout);
      nextReport += std::chrono::seconds(60);
    }
  }
  const double feedSeconds = std::chrono::duration<double>(Clock::now() - start).count();
  while (lengthOf(capture) < static_cast<std::int64_t>(total))
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  session.stop();

  // Streaming comparison.
  KV_ORV::uFile file;
  bool exact = file.open(capture.c_str(), "rb") && file.length() == static_cast<std::int64_t>(total);
  std::vector<char> expected(1 << 20), actual(1 << 20);
  for (std::uint64_t at = 0; exact && at < total; at += expected.size()) {
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(expected.size(), total - at));
    soakBytes(at, expected.data(), n);
    exact = file.read(actual.data(), n) == n && std::memcmp(actual.data(), expected.data(), n) == 0;
  }
  file.close();
  std::printf("  fed %.2f GB in %.1f s (%.2f MB/s); feeder at most %.1f ms behind schedule\n",
              static_cast<double>(total) / 1e9, feedSeconds, static_cast<double>(total) / 1e6 / feedSeconds,
              worstBehindMs);
  std::printf("  byte-exact: %s\n", exact ? "yes" : "NO");
  return exact ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "throughput";
  const std::string dir = std::filesystem::temp_directory_path() / ("vestrel-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  int status = 0;
  if (mode == "throughput") {
    const std::size_t megabytes = argc > 2 ? std::stoul(argv[2]) : 200;
    const std::string data = randomBytes(megabytes << 20);
    const double base = baseline(dir, data);
    const CollectorRun run = collector(dir, data);
    std::printf("capture throughput (%zu MiB through a pseudo-terminal)\n", megabytes);
    std::printf("  %-38s %10.1f MB/s\n", "baseline: 100-byte read/write loop", base);
    std::printf("  %-38s %10.1f MB/s\n", "collector", run.megabytesPerSecond);
    std::printf("  %-38s %10.2f\n", "ratio collector / baseline", run.megabytesPerSecond / base);
    std::printf("  %-38s %10s\n", "byte-exact", run.exact ? "yes" : "NO");
    status = run.exact ? 0 : 1;
  } else if (mode == "soak") {
    status = soak(dir, argc > 2 ? std::stod(argv[2]) : 10.0, argc > 3 ? std::stod(argv[3]) : 10.0);
  } else if (mode == "paced") {
    const double seconds = argc > 2 ? std::stod(argv[2]) : 1.0;
    double best = 0;
    const bool realTime = vestrel_bench::raiseToRealTimePriority();
    std::printf("paced capture through a 4 KiB FIFO, %.1f s per rate (feeder %s)\n", seconds,
                realTime ? "at real-time priority" : "at normal priority: real-time was refused");
    std::printf("  %10s %14s %14s %18s %16s %11s\n", "rate MB/s", "offered bytes", "dropped bytes", "of which reader",
                "feeder late us", "byte-exact");
    bool stillClean = true;
    bool readerClean = true;
    double bestReader = 0;
    for (double rate : {1.0, 2.0, 5.0, 10.0, 15.0, 20.0, 25.0, 30.0, 40.0}) {
      const PacedRun run = paced(dir, rate, seconds);
      std::printf("  %10.0f %14llu %14llu %18llu %16.0f %11s\n", rate, static_cast<unsigned long long>(run.offered),
                  static_cast<unsigned long long>(run.dropped),
                  static_cast<unsigned long long>(run.droppedReaderBehind), run.worstLateUs, run.exact ? "yes" : "NO");
      if (!run.exact) status = 1;
      stillClean = stillClean && run.dropped == 0 && run.exact;
      if (stillClean) best = rate;
      readerClean = readerClean && run.droppedReaderBehind == 0 && run.exact;
      if (readerClean) bestReader = rate;
    }
    std::printf("  highest rate with no loss while the reader was behind: %.0f MB/s\n", bestReader);
    std::printf("  highest rate with zero drops of any cause: %.0f MB/s\n", best);
  } else {
    std::fprintf(stderr,
                 "usage: capture_bench [throughput [megabytes] | paced [seconds-per-rate] | soak [minutes [MB/s]]]\n");
    status = 2;
  }
  std::filesystem::remove_all(dir);
  return status;
}
