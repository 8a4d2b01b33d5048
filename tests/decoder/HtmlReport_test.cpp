// What the HTML report is made of: handler runs with their nesting, the
// bounded lists, times for people, escaping, and the page's parts.
#include "HtmlReport.h"

#include <gtest/gtest.h>

#include <string>

#include "HandlerStack.h"
#include "PacketTimer.h"

using namespace vestrel::decoder;

namespace {

// SysTick entered at 10; IRQ 3 pre-empts it (entered at 20, exited at 30);
// SysTick exited at 45.
const std::string kNested(
    "\x0E\x0F\x10\xC0\x0A"
    "\x0E\x13\x10\xC0\x0A"
    "\x0E\x13\x20\x0E\x0F\x30\xC0\x0A"
    "\x0E\x0F\x20\x0E\x00\x30\xC0\x0F",
    26);

ReportData collect(const std::string& bytes, ReportLimits limits = {}, Timing timing = {}) {
  ReportCollector collector("test.swo", timing, limits);
  PacketTimer timer([&](const Packet& p, PacketTime time) { collector.write(p, time); });
  Profile profile;
  ItmDecoder decoder([&](const Packet& p) {
    profile.add(p);
    timer.add(p);
  });
  decoder.feed(bytes);
  decoder.finish();
  timer.release();
  collector.finish(decoder.statistics(), profile.report(nullptr), false);
  return collector.data();
}

std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(HandlerStack, AnExitClosesTheHandlerAndAnyWhoseExitWasLost) {
  HandlerStack stack;
  std::vector<HandlerRun> ended;
  const auto none = [](const HandlerRun&) { FAIL() << "nothing is closed by these entries"; };
  EXPECT_EQ(stack.enter(15, 10, none), 0u);
  EXPECT_EQ(stack.enter(19, 20, none), 1u);
  EXPECT_EQ(stack.enter(20, 25, none), 2u);
  stack.exit(99, 28, [&](const HandlerRun& run) { ended.push_back(run); });
  EXPECT_TRUE(ended.empty());  // not running: closes nothing
  stack.exit(19, 30, [&](const HandlerRun& run) { ended.push_back(run); });
  ASSERT_EQ(ended.size(), 2u);
  EXPECT_EQ(ended[0].exception, 20);
  EXPECT_EQ(ended[0].how, HandlerRun::End::ExitLost);
  EXPECT_EQ(ended[1].exception, 19);
  EXPECT_EQ(ended[1].how, HandlerRun::End::Exited);
  EXPECT_EQ(ended[1].begin, 20u);
  EXPECT_EQ(ended[1].end, 30u);
  stack.finish(50, [&](const HandlerRun& run) { ended.push_back(run); });
  ASSERT_EQ(ended.size(), 3u);
  EXPECT_EQ(ended[2].exception, 15);
  EXPECT_EQ(ended[2].how, HandlerRun::End::CaptureEnded);
  EXPECT_EQ(ended[2].end, 50u);
  EXPECT_EQ(stack.depth(), 0u);
}

TEST(HandlerStack, AnEntryPastFiveHundredAndTwelveClosesEveryOpenRun) {
  HandlerStack stack;
  std::vector<HandlerRun> ended;
  const auto end = [&](const HandlerRun& run) { ended.push_back(run); };
  for (std::uint64_t i = 0; i < HandlerStack::kMaxDepth; ++i) stack.enter(static_cast<std::uint16_t>(i), i, end);
  EXPECT_TRUE(ended.empty());
  EXPECT_EQ(stack.depth(), 512u);
  EXPECT_EQ(stack.enter(7, 1000, end), 0u);  // the 513th: corrupt, the stack starts again
  ASSERT_EQ(ended.size(), 512u);
  EXPECT_EQ(ended.front().exception, 511);
  EXPECT_EQ(ended.back().exception, 0);
  EXPECT_EQ(ended.back().how, HandlerRun::End::Reset);
  EXPECT_EQ(ended.back().end, 1000u);
  EXPECT_EQ(stack.resets(), 1u);
  EXPECT_EQ(stack.depth(), 1u);
  ended.clear();
  stack.exit(511, 1001, end);  // closed by the reset: no longer running
  EXPECT_TRUE(ended.empty());
  stack.exit(7, 1002, end);
  ASSERT_EQ(ended.size(), 1u);
  EXPECT_EQ(ended[0].serial, 512u);
  EXPECT_EQ(ended[0].how, HandlerRun::End::Exited);
}

TEST(ReportCollector, RunsAndTheirNesting) {
  const ReportData data = collect(kNested);
  ASSERT_EQ(data.runs.size(), 2u);
  EXPECT_EQ(data.runs[0].exception, 19);
  EXPECT_EQ(data.runs[0].depth, 1u);
  EXPECT_EQ(data.runs[0].begin, 20u);
  EXPECT_EQ(data.runs[0].end, 30u);
  EXPECT_EQ(data.runs[1].exception, 15);
  EXPECT_EQ(data.runs[1].begin, 10u);
  EXPECT_EQ(data.runs[1].end, 45u);
  EXPECT_EQ(data.exceptions.at(15).cycles, 35u);
  EXPECT_EQ(data.exceptions.at(19).deepest, 1u);
  EXPECT_EQ(data.firstCycles, 10u);
  EXPECT_EQ(data.lastCycles, 45u);
}

TEST(ReportCollector, ListsStopGrowingAtTheirLimitsButKeepCounting) {
  std::string bytes;
  for (int i = 0; i < 10; ++i) bytes += std::string("\x0E\x0F\x10\x0E\x0F\x20\x70\x01\x41\x01\x0A", 11);
  for (int i = 0; i < 30; ++i) bytes += "\x01x";
  bytes += "\x01\x0A";
  ReportLimits limits;
  limits.runs = 3;
  limits.markers = 2;
  limits.linesPerPort = 4;
  limits.lineLength = 20;
  const ReportData data = collect(bytes, limits);
  EXPECT_EQ(data.runs.size(), 3u);
  EXPECT_EQ(data.runsTotal, 10u);
  EXPECT_EQ(data.exceptions.at(15).runs, 10u);
  EXPECT_EQ(data.markers.size(), 2u);
  EXPECT_EQ(data.markersTotal, 10u);
  const PortText& port = data.ports.at(0);
  EXPECT_EQ(port.total, 11u);
  ASSERT_EQ(port.lines.size(), 4u);
  EXPECT_EQ(port.lines[0], "A");
  EXPECT_EQ(port.shortened, 0u);  // the long line came after the fourth
}

TEST(ReportCollector, LongLinesAreCut) {
  std::string bytes;
  for (int i = 0; i < 30; ++i) bytes += "\x01x";
  bytes += "\x01\x0A";
  ReportLimits limits;
  limits.lineLength = 20;
  const ReportData data = collect(bytes, limits);
  EXPECT_EQ(data.ports.at(0).lines.at(0), std::string(20, 'x') + "…");
  EXPECT_EQ(data.ports.at(0).shortened, 1u);
}

TEST(HtmlReport, TimesForPeople) {
  Timing timing;
  EXPECT_EQ(humanTime(1234, timing), "1234 cycles");
  timing.clockHz = 1e6;
  EXPECT_EQ(humanTime(12, timing), "12.000 µs");
  EXPECT_EQ(humanTime(3250, timing), "3.250 ms");
  timing.timestampPrescale = 4;
  EXPECT_EQ(humanTime(300000, timing), "1.200 s");
}

TEST(HtmlReport, TextIsEscaped) {
  OutputBuffer out;
  appendHtml(out, std::string("<b a=\"1\">&'\x01\x7F\t", 15));
  EXPECT_EQ(out.text(), "&lt;b a=&quot;1&quot;&gt;&amp;&#39;\\x01\\x7F\t\\x00");
}

TEST(HtmlReport, ThePageHasEveryPartAndNothingToFetch) {
  std::string bytes = kNested + std::string("\x01<\x01\x0A\x09h\x09i\x09\x0A\x17\x04\x01\x00\x00\x70", 16);
  Timing timing;
  timing.clockHz = 1e6;
  OutputBuffer out;
  writeHtmlReport(out, collect(bytes, {}, timing));
  const std::string page = out.text();
  EXPECT_EQ(page.rfind("<!DOCTYPE html>\n", 0), 0u);
  EXPECT_NE(page.find("<title>SWO trace: test.swo</title>"), std::string::npos);
  for (const char* id : {"summary", "exceptions", "timeline", "timeline-close-up", "profile", "profile-chart", "ports",
                         "port-0", "port-1"}) {
    EXPECT_EQ(occurrences(page, std::string("id=\"") + id + "\""), 1u) << id;
  }
  // Both runs on both timelines; only the pre-empting one outlined, once.
  EXPECT_EQ(occurrences(page, "<rect class=\"run\""), 4u);
  EXPECT_EQ(occurrences(page, "stroke=\"#111827\""), 1u);
  EXPECT_NE(page.find("<title>IRQ 3: 10.000 µs from 10.000 µs, pre-empting 1 handler</title>"), std::string::npos);
  EXPECT_EQ(occurrences(page, "<line class=\"marker\""), 2u);  // the overflow, on both timelines
  EXPECT_NE(page.find("<pre id=\"port-0\">&lt;\n</pre>"), std::string::npos);
  EXPECT_NE(page.find("<pre id=\"port-1\">hi\n</pre>"), std::string::npos);
  EXPECT_NE(page.find(">0x00000104</text>"), std::string::npos);
  EXPECT_NE(page.find("decode with --elf for function names"), std::string::npos);
  // Self-contained: nothing that would make a browser fetch.
  for (const char* fetch : {"src=", "href=", "url(", "@import", "<script", "<link"}) {
    EXPECT_EQ(page.find(fetch), std::string::npos) << fetch;
  }
}

TEST(HtmlReport, AnEmptyCaptureSaysWhatIsMissing) {
  OutputBuffer out;
  writeHtmlReport(out, collect(""));
  const std::string page = out.text();
  EXPECT_NE(page.find("No exception trace in this capture."), std::string::npos);
  EXPECT_NE(page.find("No PC samples in this capture."), std::string::npos);
  EXPECT_NE(page.find("No stimulus port text in this capture."), std::string::npos);
  EXPECT_NE(page.find("times in cycles (no trace clock given)"), std::string::npos);
}

TEST(ReportCollector, LongLinesAreCutOnCharacterBoundaries) {
  std::string bytes;
  for (int i = 0; i < 15; ++i) bytes += "\x02\xC3\xA9";  // "é" as one 2-byte write
  bytes += "\x01\x0A";
  ReportLimits limits;
  limits.lineLength = 21;  // inside the eleventh "é"
  const ReportData data = collect(bytes, limits);
  std::string tenAccents;
  for (int i = 0; i < 10; ++i) tenAccents += "\xC3\xA9";
  EXPECT_EQ(data.ports.at(0).lines.at(0), tenAccents + "…");
}

// 400 SysTick runs of 30 cycles every 40: one rectangle each would merge
// into a solid bar, so the overview shades each pixel column by how busy it
// was; the close-up still draws runs; every time on an axis is in one unit.
TEST(HtmlReport, ADenseTimelineShowsHowBusyEachColumnWas) {
  std::string bytes;
  for (int i = 0; i < 400; ++i) bytes += std::string("\x0E\x0F\x10\xC0\x0A\x0E\x0F\x20\xC0\x1E", 10);
  Timing timing;
  timing.clockHz = 1e6;
  OutputBuffer out;
  writeHtmlReport(out, collect(bytes, {}, timing));
  const std::string page = out.text();
  const std::string overview =
      page.substr(page.find("<svg id=\"timeline\""), page.find("</svg>") - page.find("<svg id=\"timeline\""));
  // The runs span 15990 cycles: a column is 17.8 of them, and no gap of 10
  // leaves one empty.
  EXPECT_EQ(occurrences(overview, "<rect class=\"busy\""), 900u);
  EXPECT_EQ(occurrences(overview, "<rect class=\"run\""), 0u);
  EXPECT_NE(overview.find("<title>SysTick from 0.000 µs: 1 run began, busy 100% of the time</title>"),
            std::string::npos)
      << overview.substr(0, 2000);
  EXPECT_EQ(occurrences(page, "<rect class=\"run\""), 1u);  // the close-up: the first run
  // Ticks at a quarter of the span each, whole cycles (3997.5 is 3997).
  for (const char* tick : {">0.000 ms<", ">3.997 ms<", ">7.995 ms<", ">11.992 ms<", ">15.990 ms<"}) {
    EXPECT_NE(overview.find(tick), std::string::npos) << tick;
  }
  EXPECT_EQ(overview.find(" s<"), std::string::npos);
  EXPECT_EQ(overview.find(" µs<"), std::string::npos);
}

TEST(HtmlReport, PortTextHasItsTimesBesideIt) {
  Timing timing;
  timing.clockHz = 1e6;
  OutputBuffer out;
  // "a" ends at 10 cycles, "b" at 2010: both shown in milliseconds.
  writeHtmlReport(out, collect(std::string("\x01\x61\x01\x0A\xC0\x0A\x01\x62\x01\x0A\xC0\xD0\x0F", 13), {}, timing));
  const std::string page = out.text();
  EXPECT_NE(
      page.find("<pre class=\"times\" id=\"port-0-times\">0.000 ms\n2.000 ms\n</pre><pre id=\"port-0\">a\nb\n</pre>"),
      std::string::npos)
      << page.substr(page.find("<section id=\"ports\""));
}

}  // namespace
