// Times in every output for any clock and timestamp prescale a caller may
// pass (the command lines refuse all but sane clocks; the writers must not
// depend on it): a fixed-point number is digits and a point, or null, and
// never longer than a double can be; JSON Lines and the Perfetto timeline
// stay valid JSON whatever the clock. The first 8 bytes are the clock (a
// double, any bits), the next the prescale, the rest the trace.
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <cstring>
#include <string>

#include "ItmDecoder.h"
#include "JsonWriter.h"
#include "OutputBuffer.h"
#include "PacketTimer.h"
#include "PerfettoWriter.h"
#include "TextWriter.h"
#include "Timing.h"

namespace {

using namespace vestrel::decoder;

void checkFixed(double value, int decimals) {
  OutputBuffer out;
  out.appendFixed(value, decimals);
  const std::string text = out.text();
  if (text == "null") return;
  if (text.empty() || text.size() > 320) std::abort();
  if (text.find_first_not_of("-0123456789.") != std::string::npos) std::abort();
}

void checkJsonLines(const std::string& text) {
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    if (!nlohmann::json::accept(text.substr(start, end - start))) std::abort();
    start = end + 1;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 9) return 0;
  double clock = 0;
  std::memcpy(&clock, data, sizeof clock);
  const std::uint32_t prescale = data[8];
  checkFixed(clock, data[8] % 12);
  checkFixed(clock * 1e300, 9);
  Timing timing;
  timing.clockHz = clock;
  timing.timestampPrescale = prescale;
  OutputBuffer text, json, perfetto;
  TextWriter textWriter(text, timing);
  JsonWriter jsonWriter(json, timing);
  PerfettoWriter perfettoWriter(perfetto, timing, {0, 1});
  PacketTimer timer([&](const Packet& p, PacketTime time) {
    textWriter.write(p, time);
    jsonWriter.write(p, time);
    perfettoWriter.write(p, time);
  });
  ItmDecoder decoder([&](const Packet& p) { timer.add(p); });
  decoder.feed(data + 9, size - 9);
  decoder.finish();
  timer.release();
  textWriter.finish({});
  jsonWriter.finish({});
  perfettoWriter.finish({});
  checkJsonLines(json.text());
  if (!nlohmann::json::accept(perfetto.text())) std::abort();
  return 0;
}
