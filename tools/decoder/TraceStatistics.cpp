// The decoder's statistics as text lines and as one JSON object.
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "TraceText.h"

namespace vestrel::decode {

void writeStatistics(OutputBuffer& out, const DecoderStatistics& statistics) {
  auto row = [&](std::string_view name, std::uint64_t value) {
    out.append(name);
    out.append(": ");
    out.appendDecimal(value);
    out.append('\n');
  };
  row("bytes", statistics.bytes);
  for (int kind = 0; kind <= static_cast<int>(PacketKind::Malformed); ++kind) {
    if (statistics.packets[kind] != 0) row(kindName(static_cast<PacketKind>(kind)), statistics.packets[kind]);
  }
  row("malformed bytes", statistics.malformedBytes);
  row("zero bytes", statistics.zeroBytes);
  row("padding bytes", statistics.paddingBytes);
  row("sync losses", statistics.syncLosses);
}

std::string statisticsJson(const DecoderStatistics& statistics) {
  nlohmann::json packets = nlohmann::json::object();
  for (int kind = 0; kind <= static_cast<int>(PacketKind::Malformed); ++kind) {
    if (statistics.packets[kind] != 0) packets[kindName(static_cast<PacketKind>(kind))] = statistics.packets[kind];
  }
  const nlohmann::json object = {{"kind", "statistics"},
                                 {"bytes", statistics.bytes},
                                 {"packets", packets},
                                 {"malformed-bytes", statistics.malformedBytes},
                                 {"zero-bytes", statistics.zeroBytes},
                                 {"padding-bytes", statistics.paddingBytes},
                                 {"sync-losses", statistics.syncLosses}};
  return object.dump();
}

}  // namespace vestrel::decode
