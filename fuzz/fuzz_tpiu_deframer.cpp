// The TPIU formatter's frames undone on any bytes, fed whole or in pieces of
// any sizes (the first byte chooses them): the same trace ID and byte
// sequence either way, and no more bytes out than went in.
#include <cstdlib>
#include <utility>
#include <vector>

#include "TpiuDeframer.h"

namespace {

std::vector<std::pair<std::uint8_t, std::uint8_t>> deframe(const std::uint8_t* data, std::size_t size,
                                                           std::size_t piece) {
  std::vector<std::pair<std::uint8_t, std::uint8_t>> out;
  vestrel::decoder::TpiuDeframer deframer([&](std::uint8_t id, std::uint8_t byte) { out.emplace_back(id, byte); });
  for (std::size_t at = 0; at < size; at += piece) deframer.feed(data + at, std::min(piece, size - at));
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto whole = deframe(data + 1, size - 1, size);
  const auto pieces = deframe(data + 1, size - 1, 1 + data[0] % 37);
  if (whole != pieces) std::abort();
  if (whole.size() > size - 1) std::abort();
  return 0;
}
