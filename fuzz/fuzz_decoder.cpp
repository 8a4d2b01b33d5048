// The ITM/DWT decoder and the TPIU deframer on any bytes: no crash, the
// statistics account for every byte fed, and decoding the bytes in pieces of
// random sizes gives exactly the packets of decoding them at once (the first
// bytes of the input choose the piece sizes).
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "ItmDecoder.h"
#include "PacketTimer.h"
#include "TpiuDeframer.h"

namespace {

using namespace vestrel::decoder;

struct Seen {
  PacketKind kind;
  std::uint64_t offset, value;
  std::uint32_t port;
  std::uint8_t header, size;
  std::uint64_t cycles;
  bool exact;
  bool operator==(const Seen&) const = default;
};

std::vector<Seen> decodeInPieces(const std::uint8_t* data, std::size_t size, const std::uint8_t* sizes,
                                 std::size_t sizeCount) {
  std::vector<Seen> seen;
  PacketTimer timer([&](const Packet& p, PacketTime time) {
    seen.push_back(Seen{p.kind, p.offset, p.value, p.port, p.header, p.size, time.cycles, time.exact});
  });
  ItmDecoder decoder([&](const Packet& p) { timer.add(p); });
  std::size_t at = 0;
  for (std::size_t piece = 0; at < size; ++piece) {
    const std::size_t length = sizeCount == 0 ? size : std::min<std::size_t>(size - at, 1 + sizes[piece % sizeCount]);
    decoder.feed(data + at, length);
    at += length;
  }
  decoder.finish();
  timer.release();
  if (decoder.statistics().bytes != size) std::abort();
  const DecoderStatistics& statistics = decoder.statistics();
  // Every byte is in a packet, a malformed run, a zero run or the padding:
  // nothing is counted twice.
  if (statistics.malformedBytes + statistics.zeroBytes + statistics.paddingBytes > size) std::abort();
  return seen;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::size_t sizeCount = size > 0 ? data[0] % 8 : 0;
  const std::size_t head = std::min(size, 1 + sizeCount);
  const std::uint8_t* stream = data + head;
  const std::size_t length = size - head;
  const std::vector<Seen> whole = decodeInPieces(stream, length, nullptr, 0);
  const std::vector<Seen> pieces = decodeInPieces(stream, length, data + 1, sizeCount);
  if (pieces != whole) std::abort();
  TpiuDeframer deframer([&](std::uint8_t, std::uint8_t) {});
  deframer.feed(data, size);
  return 0;
}
