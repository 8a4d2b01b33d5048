// The TDF writer with any section name, data and existing file content.
#include <string>

#include "FuzzFiles.h"
#include "TdfWriter.h"
#include "cHexkitError.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Kv::Orv::Trace::Vestrel;
  if (size < 2) return 0;
  // The first byte splits the input into a section name and the data.
  const std::size_t nameLength = data[0] % size;
  const std::string name(reinterpret_cast<const char*>(data + 1), nameLength > size - 1 ? size - 1 : nameLength);
  // The host's part of the file: an identifier block of some length.
  const std::string identifier(size / 3 + 4, 'H');
  const std::string path = vestrel_fuzz::scratchFile(
      "trace.tdf", reinterpret_cast<const std::uint8_t*>(identifier.data()), identifier.size());
  try {
    std::uint32_t offset = 0, length = 0;
    writeSectionHeader(path.c_str(), name.c_str(), 1, offset);
    writeSectionData(path.c_str(), name.c_str(), offset, data, 1, size, length);
    writeSectionData(path.c_str(), name.c_str(), static_cast<std::uint32_t>(data[1]), data, 1, size / 2, length);
  } catch (const Kv::Orv::Hexkit::cHexkitError&) {
  }
  return 0;
}
