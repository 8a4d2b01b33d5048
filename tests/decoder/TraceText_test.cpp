#include "TraceText.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

using namespace vestrel::decode;

namespace {

std::string textOf(const std::string& bytes, TextWriter::Timing timing = {}) {
  std::ostringstream out;
  TextWriter text(out, timing);
  ItmDecoder decoder([&](const Packet& p) { text.write(p); });
  decoder.feed(bytes);
  decoder.finish();
  text.flush();
  return out.str();
}

}  // namespace

TEST(TraceText, StimulusTextIsJoinedPerPortAndEndsAtNewlines) {
  EXPECT_EQ(textOf(std::string("\x01H\x09X\x01i\x01\n\x09Y", 10)), "[0] port 0: Hi\n[0] port 1: XY\n");
}

TEST(TextWriter, TerminalControlCharactersInStimulusTextAreShownEscaped) {
  // ESC [ 2 J (clear screen), a bell, a backspace, DEL; a tab and UTF-8 pass.
  EXPECT_EQ(textOf(std::string("\x01\x1b\x01[\x01\x32\x01J\x01\x07\x01\x08\x01\x7f\x01\t\x01\xc3\x01\xa9\x01\n", 22)),
            "[0] port 0: \\x1B[2J\\x07\\x08\\x7F\t\xc3\xa9\n");
}

TEST(TraceText, WideStimulusWritesCarryTheirBytesLowFirst) {
  EXPECT_EQ(textOf(std::string("\x03"
                               "abc\n",
                               5)),
            "[0] port 0: abc\n");
}

TEST(TraceText, TimesAreCyclesAndSecondsGivenTheClock) {
  TextWriter::Timing timing;
  timing.clockHz = 1000.0;
  timing.timestampPrescale = 4;
  EXPECT_EQ(textOf(std::string("\xC0\x05\x0E\x0F\x10", 5), timing),
            "[5][0.020000000 s] exception 15 (SysTick) entered\n");
}

TEST(TraceText, EachEventHasItsLine) {
  EXPECT_EQ(textOf("\x70"), "[0] overflow: the target dropped trace packets\n");
  EXPECT_EQ(textOf(std::string("\x17\x78\x56\x34\x12", 5)), "[0] pc sample 0x12345678\n");
  EXPECT_EQ(textOf(std::string("\x15\x00", 2)), "[0] pc sample: core asleep\n");
  EXPECT_EQ(textOf(std::string("\x0E\x13\x20", 3)), "[0] exception 19 (IRQ 3) exited\n");
  EXPECT_EQ(textOf(std::string("\x9F\xEF\xBE\xAD\xDE", 5)), "[0] data trace comparator 1 write 0xDEADBEEF\n");
  EXPECT_EQ(textOf(std::string("\x4E\x34\x12", 3)), "[0] data trace comparator 0 address 0x1234\n");
  EXPECT_EQ(textOf("\x80"), "[0] malformed byte 0x80 at offset 0\n");
}

TEST(TraceText, ExceptionNames) {
  EXPECT_EQ(exceptionName(2), "NMI");
  EXPECT_EQ(exceptionName(3), "HardFault");
  EXPECT_EQ(exceptionName(11), "SVCall");
  EXPECT_EQ(exceptionName(15), "SysTick");
  EXPECT_EQ(exceptionName(16), "IRQ 0");
  EXPECT_EQ(exceptionName(271), "IRQ 255");
}

TEST(TraceText, JsonLines) {
  std::string json;
  ItmDecoder decoder([&](const Packet& p) { json += toJson(p) + "\n"; });
  decoder.feed(
      std::string("\x01"
                  "A\x0E\x0F\x10",
                  5));
  EXPECT_EQ(json,
            "{\"header\":1,\"kind\":\"instrumentation\",\"offset\":0,\"port\":0,\"size\":1,\"value\":65}\n"
            "{\"exception\":15,\"function\":\"entered\",\"header\":14,\"kind\":\"exception\",\"name\":\"SysTick\","
            "\"offset\":2}\n");
}

TEST(TraceText, Statistics) {
  ItmDecoder decoder(nullptr);
  decoder.feed(
      std::string("\x01"
                  "A\x70\x80",
                  4));
  std::ostringstream out;
  writeStatistics(out, decoder.statistics());
  EXPECT_EQ(out.str(), "bytes: 4\noverflow: 1\ninstrumentation: 1\nmalformed: 1\nmalformed bytes: 1\nsync losses: 0\n");
}

TEST(TraceText, StatisticsAsJson) {
  ItmDecoder decoder(nullptr);
  decoder.feed(
      std::string("\x01"
                  "A\x70\x80",
                  4));
  EXPECT_EQ(statisticsJson(decoder.statistics()),
            "{\"bytes\":4,\"kind\":\"statistics\",\"malformed-bytes\":1,\"packets\":{\"instrumentation\":1,"
            "\"malformed\":1,\"overflow\":1},\"sync-losses\":0}");
}
