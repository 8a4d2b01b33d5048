// The GDB Remote Serial Protocol's framing on any bytes, as a server or a
// debugger may send them: fed whole or in pieces of any sizes (the first
// byte chooses them), the reader gives the same items and refuses the same
// oversized packet; no payload is ever larger than the cap; run-length
// decoding stays within its limit.
#include <cstdlib>
#include <string>
#include <vector>

#include "GdbError.h"
#include "RspFraming.h"

namespace {

using vestrel::gdb_remote::GdbError;
using vestrel::gdb_remote::RspReader;

struct Outcome {
  std::vector<std::string> items;  // kind and payload
  bool refused = false;
  bool operator==(const Outcome&) const = default;
};

Outcome read(const std::string& bytes, std::size_t piece) {
  Outcome outcome;
  RspReader reader("fuzz");
  try {
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
      reader.feed(std::string_view(bytes).substr(at, piece));
      while (auto item = reader.next()) {
        if (item->payload.size() > vestrel::gdb_remote::kMaxPacketPayload) std::abort();
        outcome.items.push_back(std::to_string(static_cast<int>(item->kind)) + (item->checksumOk ? "+" : "-") +
                                item->payload);
      }
    }
  } catch (const GdbError&) {
    outcome.refused = true;
  }
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const Outcome whole = read(bytes, bytes.size() + 1);
  const Outcome pieces = read(bytes, 1 + data[0] % 64);
  if (!(whole == pieces)) std::abort();
  const auto decoded = vestrel::gdb_remote::rspDecode(bytes, 4096);
  if (decoded && decoded->size() > 4096) std::abort();
  return 0;
}
