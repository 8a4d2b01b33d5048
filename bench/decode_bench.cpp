// Decoder benchmark. Prints, from one run: the decoder's MB/s over a mixed
// ITM/DWT stream, the MB/s of a loop that only reads every byte of the same
// buffer (the baseline), and their ratio.
// Usage: decode_bench [megabytes]
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "ItmDecoder.h"

using Clock = std::chrono::steady_clock;
using namespace vestrel::decode;

namespace {

// A stream of the packets a target sends: text on a few ports, timestamps,
// exceptions, PC samples and data trace, with a sync now and then.
std::vector<std::uint8_t> makeStream(std::size_t size) {
  std::mt19937 generator(11);
  std::vector<std::uint8_t> out;
  out.reserve(size + 16);
  const std::string text = "Hello from the target, iteration counter ticking\n";
  std::size_t next = 0;
  while (out.size() < size) {
    switch (generator() % 8) {
      case 0:
      case 1:
      case 2:
        out.push_back(static_cast<std::uint8_t>(((generator() % 4) << 3) | 0x01));
        out.push_back(static_cast<std::uint8_t>(text[next++ % text.size()]));
        break;
      case 3:
        out.insert(out.end(), {0xC0, static_cast<std::uint8_t>(0x80 | (generator() & 0x7F)), 0x03});
        break;
      case 4:
        out.insert(out.end(), {0x0E, 0x0F, static_cast<std::uint8_t>(0x10 + 0x10 * (generator() % 2))});
        break;
      case 5:
        out.insert(out.end(), {0x17, 0x34, 0x12, 0x00, 0x08});
        break;
      case 6:
        out.insert(out.end(), {0x9F, 0xEF, 0xBE, 0xAD, 0xDE});
        break;
      default:
        if (generator() % 64 == 0) {
          out.insert(out.end(), {0, 0, 0, 0, 0, 0x80});
        } else {
          out.push_back(static_cast<std::uint8_t>(0x10 * (1 + generator() % 6)));
        }
    }
  }
  return out;
}

double megabytesPerSecond(std::size_t bytes, Clock::duration elapsed) {
  return static_cast<double>(bytes) / 1e6 / std::chrono::duration<double>(elapsed).count();
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t megabytes = argc > 1 ? std::stoul(argv[1]) : 256;
  const std::vector<std::uint8_t> stream = makeStream(megabytes << 20);

  auto start = Clock::now();
  std::uint64_t sum = 0;
  for (std::uint8_t byte : stream) sum += byte;
  const double baseline = megabytesPerSecond(stream.size(), Clock::now() - start);

  std::uint64_t packets = 0;
  ItmDecoder decoder([&](const Packet&) { ++packets; });
  start = Clock::now();
  decoder.feed(stream.data(), stream.size());
  decoder.finish();
  const double decoded = megabytesPerSecond(stream.size(), Clock::now() - start);

  std::printf("decoder throughput (%zu MiB of mixed ITM/DWT packets, one core)\n", megabytes);
  std::printf("  %-38s %10.1f MB/s   (checksum %llu)\n", "baseline: read every byte", baseline,
              static_cast<unsigned long long>(sum));
  std::printf("  %-38s %10.1f MB/s   (%llu packets, %llu malformed)\n", "decoder", decoded,
              static_cast<unsigned long long>(packets),
              static_cast<unsigned long long>(decoder.statistics().count(PacketKind::Malformed)));
  std::printf("  %-38s %10.3f\n", "ratio decoder / baseline", decoded / baseline);
  return decoder.statistics().count(PacketKind::Malformed) == 0 ? 0 : 1;
}
