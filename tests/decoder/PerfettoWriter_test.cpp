// The timeline for the Perfetto UI: it parses, its events are in time order,
// every slice that begins ends on its track, a pre-empting handler's slice
// lies inside the one it pre-empted, and times are microseconds of the clock.
#include "PerfettoWriter.h"
#include "DecodeChain.h"

#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

using namespace vestrel::decoder;
using nlohmann::json;

namespace {

json timelineOf(const std::string& bytes, Timing timing = {}, std::set<std::uint32_t> counters = {},
                const vestrel::symbols::SymbolTable* symbols = nullptr,
                std::uint64_t maxEvents = PerfettoWriter::kMaxEvents) {
  OutputBuffer out;
  PerfettoWriter timeline(out, timing, counters, symbols, maxEvents);
  DecodeChain chain({&timeline});
  chain.feed(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  chain.finish();
  return json::parse(out.text());
}

std::vector<json> eventsOf(const json& document, const std::string& phase) {
  std::vector<json> found;
  for (const auto& event : document["traceEvents"]) {
    if (event["ph"] == phase) found.push_back(event);
  }
  return found;
}

// SysTick entered at 10; IRQ 3 pre-empts it (entered at 20, exited at 30,
// back to SysTick); SysTick exited at 45; back to Thread.
const std::string kNested(
    "\x0E\x0F\x10\xC0\x0A"               // SysTick entered, +10
    "\x0E\x13\x10\xC0\x0A"               // IRQ 3 entered, +10
    "\x0E\x13\x20\x0E\x0F\x30\xC0\x0A"   // IRQ 3 exited, return to SysTick, +10
    "\x0E\x0F\x20\x0E\x00\x30\xC0\x0F",  // SysTick exited, return to Thread, +15
    26);

}  // namespace

TEST(PerfettoTimeline, NestedHandlersAreNestedSlicesInTimeOrder) {
  const json document = timelineOf(kNested);
  EXPECT_EQ(document["metadata"]["time_unit"], "cycles");
  std::vector<std::string> slices;
  for (const auto& event : document["traceEvents"]) {
    if (event["ph"] == "B" || event["ph"] == "E") {
      slices.push_back(event["ph"].get<std::string>() + " " + event["name"].get<std::string>() + " " +
                       std::to_string(event["ts"].get<std::uint64_t>()));
      EXPECT_EQ(event["tid"], PerfettoWriter::kCpuTrack);
    }
  }
  EXPECT_EQ(slices, (std::vector<std::string>{"B SysTick 10", "B IRQ 3 20", "E IRQ 3 30", "E SysTick 45"}));
  double last = 0;
  for (const auto& event : document["traceEvents"]) {
    if (!event.contains("ts")) continue;
    EXPECT_GE(event["ts"].get<double>(), last);
    last = event["ts"].get<double>();
  }
  const auto returns = eventsOf(document, "i");
  ASSERT_EQ(returns.size(), 2u);
  EXPECT_EQ(returns[0]["name"], "return to SysTick");
  EXPECT_EQ(returns[1]["name"], "return to Thread");
}

TEST(PerfettoTimeline, AHandlerStillOpenAtTheEndIsClosedAtTheLastTimeAndSaysSo) {
  const json document = timelineOf(std::string("\x0E\x0F\x10\xC0\x07\x17\x04\x03\x02\x01\xC0\x05", 12));
  const auto begins = eventsOf(document, "B");
  const auto ends = eventsOf(document, "E");
  ASSERT_EQ(begins.size(), 1u);
  ASSERT_EQ(ends.size(), 1u);
  EXPECT_EQ(ends[0]["ts"], 12);
  EXPECT_EQ(ends[0]["args"]["closed"], "at the end of the capture");
  EXPECT_EQ(ends[0]["tid"], begins[0]["tid"]);
}

// The capture ends after a counter value: the open handler ends at the
// counter's time, the last event of any kind, never before it.
TEST(PerfettoTimeline, AHandlerStillOpenEndsAtTheLastEventOfAnyKind) {
  const json document = timelineOf(std::string("\x0E\x0F\x10\xC0\x07\x11\x09\xC0\x05", 9), {}, {2});
  std::vector<std::string> events;
  for (const auto& event : document["traceEvents"]) {
    if (event["ph"] == "M") continue;
    events.push_back(event["ph"].get<std::string>() + " " + event["name"].get<std::string>() + " " +
                     std::to_string(event["ts"].get<std::uint64_t>()));
  }
  EXPECT_EQ(events, (std::vector<std::string>{"B SysTick 7", "C port 2 12", "E SysTick 12"}));
}

TEST(PerfettoTimeline, TimesAreMicrosecondsOfTheClockAndPrescale) {
  Timing timing;
  timing.clockHz = 2000000.0;
  timing.timestampPrescale = 4;
  const json document = timelineOf(kNested, timing);
  EXPECT_EQ(document["metadata"]["time_unit"], "microseconds");
  const auto begins = eventsOf(document, "B");
  ASSERT_EQ(begins.size(), 2u);
  EXPECT_DOUBLE_EQ(begins[0]["ts"].get<double>(), 20.0);  // 10 cycles * 4 / 2 MHz
  EXPECT_DOUBLE_EQ(begins[1]["ts"].get<double>(), 40.0);
}

TEST(PerfettoTimeline, TextLinesCountersPcSamplesAndMarkersHaveTracksOfTheirOwn) {
  const std::string bytes("\x01H\x01i\x01\n\x11\x07\x11\x09\x17\x00\x01\x00\x08\x70\x80\xC0\x03", 19);
  const json document = timelineOf(bytes, {}, {2});
  std::map<int, std::vector<std::string>> byTrack;
  for (const auto& event : document["traceEvents"]) {
    if (event["ph"] == "M") continue;
    std::string what = event["ph"].get<std::string>() + " " + event["name"].get<std::string>();
    if (event["ph"] == "C") what += " " + std::to_string(event["args"]["value"].get<int>());
    byTrack[event["tid"].get<int>()].push_back(what);
  }
  EXPECT_EQ(byTrack[PerfettoWriter::kFirstPortTrack], std::vector<std::string>{"i Hi"});
  EXPECT_EQ(byTrack[PerfettoWriter::kFirstPortTrack + 2], (std::vector<std::string>{"C port 2 7", "C port 2 9"}));
  EXPECT_EQ(byTrack[PerfettoWriter::kPcTrack], std::vector<std::string>{"i pc 0x08000100"});
  EXPECT_EQ(byTrack[PerfettoWriter::kMarkerTrack],
            (std::vector<std::string>{"i overflow: the target dropped trace packets",
                                      "i sync lost: 1 malformed byte at offset 16"}));
}

TEST(PerfettoTimeline, PcSamplesAreNamedByTheirFunction) {
  const vestrel::symbols::SymbolTable symbols({{"filter_sample", 0x100, 0x20}}, {"/src/fw.s"}, {{0x100, 0, 81, false}});
  const json document =
      timelineOf(std::string("\x17\x04\x01\x00\x00\x17\x00\x02\x00\x00\xC0\x05", 12), {}, {}, &symbols);
  std::vector<json> samples;
  for (const auto& event : eventsOf(document, "i")) {
    if (event["tid"] == PerfettoWriter::kPcTrack) samples.push_back(event);
  }
  ASSERT_EQ(samples.size(), 2u);
  EXPECT_EQ(samples[0]["name"], "filter_sample");
  EXPECT_EQ(samples[0]["args"]["pc"], "0x00000104");
  EXPECT_EQ(samples[0]["args"]["at"], "filter_sample+0x4 (fw.s:81)");
  EXPECT_EQ(samples[1]["name"], "pc 0x00000200");  // in no function
  EXPECT_EQ(samples[1]["ts"], 5);
}

// A full timeline: every slice begun is ended, what did not fit is counted
// and said in a last marker.
TEST(PerfettoTimeline, AFullTimelineEndsEverySliceItBeganAndSaysWhatWasLeftOut) {
  // Room for two: SysTick and IRQ 3 entered; their ends must follow.
  const json document = timelineOf(kNested, {}, {}, nullptr, 2);
  const std::vector<json> begins = eventsOf(document, "B");
  const std::vector<json> ends = eventsOf(document, "E");
  ASSERT_EQ(begins.size(), 2u);
  ASSERT_EQ(ends.size(), 2u);
  EXPECT_EQ(ends[0]["name"], "IRQ 3");
  EXPECT_EQ(ends[1]["name"], "SysTick");
  const std::vector<json> instants = eventsOf(document, "i");
  ASSERT_EQ(instants.size(), 1u);
  // Left out: the two returns.
  EXPECT_EQ(instants[0]["name"], "timeline full: 2 more events left out (it holds at most 2)");
  EXPECT_EQ(instants[0]["tid"], PerfettoWriter::kMarkerTrack);
}

TEST(PerfettoTimeline, EntriesNeverExitedResetTheStackAtFiveHundredAndTwelveAndSaySo) {
  std::string bytes;
  for (int i = 0; i < 513; ++i) bytes += std::string("\x0E\x0F\x10", 3);  // SysTick entered, again and again
  bytes += std::string("\xC0\x05", 2);
  const json document = timelineOf(bytes);
  EXPECT_EQ(eventsOf(document, "B").size(), 513u);
  const std::vector<json> ends = eventsOf(document, "E");
  ASSERT_EQ(ends.size(), 513u);
  EXPECT_EQ(ends[0]["args"]["closed"], "the handler stack passed 512 entries: corrupt trace");
  EXPECT_EQ(ends[511]["args"]["closed"], "the handler stack passed 512 entries: corrupt trace");
  EXPECT_EQ(ends[512]["args"]["closed"], "at the end of the capture");
  const std::vector<json> instants = eventsOf(document, "i");
  ASSERT_EQ(instants.size(), 1u);
  EXPECT_EQ(instants[0]["name"], "corrupt trace: the handler stack passed 512 entries; every open handler closed");
}
