// A GDB server's stop reply on any text: read or refused, never a crash,
// and what is said of it has no terminal control characters.
#include <cstdlib>
#include <string>

#include "StopReply.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string payload(reinterpret_cast<const char*>(data), size);
  const auto stop = vestrel::gdb_remote::parseStopReply(payload);
  if (!stop) return 0;
  for (const char c : stop->text()) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte < 0x20 && c != '\t') || byte == 0x7F) std::abort();
  }
  return 0;
}
