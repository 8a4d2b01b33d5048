#include "TraceStatistics.h"

#include <string_view>

namespace vestrel::decoder {

namespace {

constexpr int kKinds = static_cast<int>(PacketKind::Malformed) + 1;

void appendSnakeCase(OutputBuffer& out, const char* name) {
  for (const char* c = name; *c != '\0'; ++c) out.append(*c == '-' ? '_' : *c);
}

}  // namespace

void writeStatistics(OutputBuffer& out, const DecoderStatistics& statistics) {
  auto row = [&](std::string_view name, std::uint64_t value) {
    out.append(name);
    out.append(": ");
    out.appendDecimal(value);
    out.append('\n');
  };
  row("bytes", statistics.bytes);
  for (int kind = 0; kind < kKinds; ++kind) {
    if (statistics.packets[kind] != 0) row(kindName(static_cast<PacketKind>(kind)), statistics.packets[kind]);
  }
  row("malformed bytes", statistics.malformedBytes);
  row("zero bytes", statistics.zeroBytes);
  row("padding bytes", statistics.paddingBytes);
  row("sync losses", statistics.syncLosses);
}

void writeStatisticsJson(OutputBuffer& out, const DecoderStatistics& statistics) {
  auto field = [&](const char* name, std::uint64_t value) {
    out.append(",\"");
    out.append(name);
    out.append("\":");
    out.appendDecimal(value);
  };
  out.append("{\"kind\":\"statistics\"");
  field("bytes", statistics.bytes);
  out.append(",\"packets\":{");
  bool first = true;
  for (int kind = 0; kind < kKinds; ++kind) {
    if (statistics.packets[kind] == 0) continue;
    out.append(first ? "\"" : ",\"");
    first = false;
    appendSnakeCase(out, kindName(static_cast<PacketKind>(kind)));
    out.append("\":");
    out.appendDecimal(statistics.packets[kind]);
  }
  out.append('}');
  field("malformed_bytes", statistics.malformedBytes);
  field("zero_bytes", statistics.zeroBytes);
  field("padding_bytes", statistics.paddingBytes);
  field("sync_losses", statistics.syncLosses);
  out.append("}\n");
}

}  // namespace vestrel::decoder
