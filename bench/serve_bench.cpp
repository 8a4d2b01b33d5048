// The live trace stream's benchmark. A writer appends to a capture file at a
// steady rate, as the collector does on a fast SWO line; the server follows
// the file and serves it to 1, 4 and 16 clients. Printed per client count:
// each client's throughput against the capture's (the baseline of the same
// run), and the latency from a byte's arrival in the capture file to its
// arrival at a client, median and 99th percentile.
// Usage: serve_bench [seconds per client count] [capture MB/s]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "CaptureFollower.h"
#include "TraceClient.h"
#include "TraceServer.h"

using Clock = std::chrono::steady_clock;
using namespace vestrel::trace_server;

namespace {

constexpr std::size_t kChunk = 1024;  // each begins with the time it was written

std::int64_t now() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

struct ClientResult {
  std::uint64_t bytes = 0;
  std::vector<double> latencyMs;
};

struct Round {
  double captureRate = 0;  // MB/s written
  double clientMin = 0, clientMean = 0;
  double median = 0, p99 = 0;
};

Round run(int clients, double seconds, double megabytesPerSecond) {
  const std::string path = "serve_bench_capture.bin";
  std::FILE* capture = std::fopen(path.c_str(), "wb");
  auto server = std::make_unique<TraceServer>(Endpoint{"127.0.0.1", 0}, nullptr);
  const Endpoint endpoint = server->endpoint();
  std::vector<ClientResult> results(static_cast<std::size_t>(clients));
  std::vector<std::thread> readers;
  for (int c = 0; c < clients; ++c) {
    readers.emplace_back([&results, endpoint, c] {
      TraceClient client(endpoint);
      ClientResult& result = results[static_cast<std::size_t>(c)];
      std::vector<std::uint8_t> block(65536);
      std::uint64_t position = 0;
      std::uint8_t stamp[8];
      for (long n; (n = client.read(block.data(), block.size())) > 0;) {
        const std::int64_t arrived = now();
        for (long i = 0; i < n; ++i, ++position) {
          const std::uint64_t within = position % kChunk;
          if (within < 8) stamp[within] = block[static_cast<std::size_t>(i)];
          if (within == 7) {
            std::int64_t written = 0;
            std::memcpy(&written, stamp, 8);
            result.latencyMs.push_back(static_cast<double>(arrived - written) / 1e6);
          }
        }
        result.bytes += static_cast<std::uint64_t>(n);
      }
    });
  }
  while (server->clientCount() < static_cast<std::size_t>(clients)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  auto follower = std::make_unique<CaptureFollower>(
      path, [&server](const std::uint8_t* data, std::size_t size) { server->publish(data, size); });
  std::vector<std::uint8_t> chunk(kChunk, 0x5A);
  const double chunksPerSecond = megabytesPerSecond * 1e6 / kChunk;
  const auto start = Clock::now();
  std::uint64_t written = 0;
  while (Clock::now() - start < std::chrono::duration<double>(seconds)) {
    const double due = std::chrono::duration<double>(Clock::now() - start).count() * chunksPerSecond;
    while (static_cast<double>(written / kChunk) < due) {
      const std::int64_t stamp = now();
      std::memcpy(chunk.data(), &stamp, 8);
      std::fwrite(chunk.data(), 1, kChunk, capture);
      std::fflush(capture);
      written += kChunk;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(500));
  }
  const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
  std::fclose(capture);
  follower.reset();  // what is left in the file
  server->drain();
  server.reset();  // the end of every client's stream
  for (auto& reader : readers) reader.join();
  std::remove(path.c_str());

  Round round;
  round.captureRate = static_cast<double>(written) / 1e6 / elapsed;
  round.clientMin = 1e300;
  std::vector<double> all;
  for (const auto& result : results) {
    const double rate = static_cast<double>(result.bytes) / 1e6 / elapsed;
    round.clientMin = std::min(round.clientMin, rate);
    round.clientMean += rate / clients;
    all.insert(all.end(), result.latencyMs.begin(), result.latencyMs.end());
  }
  std::sort(all.begin(), all.end());
  if (!all.empty()) {
    round.median = all[all.size() / 2];
    round.p99 = all[std::min(all.size() - 1, all.size() * 99 / 100)];
  }
  return round;
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::stod(argv[1]) : 5;
  const double rate = argc > 2 ? std::stod(argv[2]) : 2.0;
  std::printf("live trace server: a capture written at %.1f MB/s for %.0f s, followed and served to N clients\n", rate,
              seconds);
  std::printf("  %-8s %14s %16s %16s %8s %14s %10s\n", "clients", "capture MB/s", "client MB/s min", "client MB/s mean",
              "ratio", "latency median", "p99");
  bool met = true;
  for (int clients : {1, 4, 16}) {
    const Round round = run(clients, seconds, rate);
    std::printf("  %-8d %14.3f %16.3f %16.3f %8.3f %11.2f ms %7.2f ms\n", clients, round.captureRate, round.clientMin,
                round.clientMean, round.clientMin / round.captureRate, round.median, round.p99);
    met = met && round.median < 20.0;
  }
  std::printf("  target: median latency under 20 ms: %s\n", met ? "met" : "NOT met");
  return 0;
}
