// The metadata file beside a capture: any text is read or refused with a
// reason, and what is read writes back to the same values.
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "CaptureMetadata.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > vestrel::capture_metadata::kMaxMetadataBytes) return 0;
  using vestrel::capture_metadata::parseMetadata;
  try {
    const auto metadata = parseMetadata(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!(parseMetadata(vestrel::capture_metadata::toJson(metadata)) == metadata)) std::abort();
  } catch (const std::invalid_argument&) {
  }
  return 0;
}
