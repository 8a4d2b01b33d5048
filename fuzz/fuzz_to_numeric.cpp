// Text to number: only uString::error may come out.
#include <cstdint>
#include <string>

#include "uString.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    KV_ORV::uString::toNumeric<std::uint64_t>(text.c_str());
    KV_ORV::uString::toNumeric<std::int32_t>(text.c_str());
    KV_ORV::uString::toNumeric<std::uint8_t>(text.c_str());
  } catch (const KV_ORV::uString::error&) {
  }
  return 0;
}
