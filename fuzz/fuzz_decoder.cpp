// The ITM/DWT decoder and the TPIU deframer on any bytes: no crash, and the
// statistics account for every byte fed.
#include <cstdlib>

#include "ItmDecoder.h"
#include "TpiuDeframer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vestrel::decode;
  std::uint64_t packets = 0;
  ItmDecoder decoder([&](const Packet&) { ++packets; });
  // Fed in two pieces, so that packets split across feeds are exercised.
  const std::size_t half = size / 2;
  decoder.feed(data, half);
  decoder.feed(data + half, size - half);
  decoder.finish();
  if (decoder.statistics().bytes != size) std::abort();
  TpiuDeframer deframer([&](std::uint8_t, std::uint8_t) {});
  deframer.feed(data, size);
  return 0;
}
