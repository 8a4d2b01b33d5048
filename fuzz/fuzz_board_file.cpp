// The probe's board data file readers on any file content.
#include <cstdio>

#include "BoardFile.h"
#include "FuzzFiles.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Kv::Orv::Trace::Vestrel;
  const std::string path = vestrel_fuzz::scratchFile("board.txt", data, size);
  if (std::FILE* file = std::fopen(path.c_str(), "r")) {
    ReadProbeKind(file);
    std::fclose(file);
  }
  if (std::FILE* file = std::fopen(path.c_str(), "r")) {
    ReadBoardEntry(file, "swd", "swo_data", "tdo_pin");
    std::fclose(file);
  }
  return 0;
}
