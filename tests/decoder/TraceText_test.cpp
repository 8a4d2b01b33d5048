#include "DecodeChain.h"
#include "ExceptionNames.h"
#include "JsonString.h"
#include "JsonWriter.h"
#include "StimulusLines.h"
#include "TextWriter.h"
#include "TraceStatistics.h"
#include "TraceWords.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

using namespace vestrel::decoder;

namespace {

// Decodes bytes, dates the packets and writes them as text or JSON Lines.
std::string outputOf(const std::string& bytes, bool json, Timing timing = {}, bool raw = true) {
  OutputBuffer out;
  TextWriter text(out, timing);
  JsonWriter lines(out, timing, raw);
  DecodeChain chain({json ? static_cast<PacketSink*>(&lines) : &text});
  chain.feed(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  chain.finish();
  return out.text();
}

std::string textOf(const std::string& bytes, Timing timing = {}) { return outputOf(bytes, false, timing); }
std::string jsonOf(const std::string& bytes, Timing timing = {}) { return outputOf(bytes, true, timing); }
std::string eventsOf(const std::string& bytes) { return outputOf(bytes, true, {}, false); }

std::string jsonString(const std::string& text) {
  OutputBuffer out;
  appendJsonString(out, text);
  return out.text();
}

}  // namespace

TEST(TraceText, StimulusTextIsJoinedPerPortAndEndsAtNewlines) {
  EXPECT_EQ(textOf(std::string("\x01H\x09X\x01i\x01\n\x09Y", 10)), "[0+] port 0: Hi\n[0+] port 1: XY\n");
}

TEST(TraceText, TerminalControlCharactersInStimulusTextAreShownEscaped) {
  // ESC [ 2 J (clear screen), a bell, a backspace, DEL; a tab and UTF-8 pass.
  EXPECT_EQ(textOf(std::string("\x01\x1b\x01[\x01\x32\x01J\x01\x07\x01\x08\x01\x7f\x01\t\x01\xc3\x01\xa9\x01\n", 22)),
            "[0+] port 0: \\x1B[2J\\x07\\x08\\x7F\t\xc3\xa9\n");
}

TEST(TraceText, WideStimulusWritesCarryTheirBytesLowFirst) {
  EXPECT_EQ(textOf(std::string("\x03"
                               "abc\n\x10",
                               6)),
            "[1] port 0: abc\n");
}

// The ITM sends a local timestamp after the packets it dates.
TEST(TraceText, APacketTakesTheTimeOfTheLocalTimestampThatFollowsIt) {
  // Entry, then a timestamp of 5; exit, then a timestamp of 4: 5 and 9.
  EXPECT_EQ(textOf(std::string("\x0E\x0F\x10\x50\x0E\x0F\x20\x40", 8)),
            "[5] exception 15 (SysTick) entered\n[9] exception 15 (SysTick) exited\n");
}

TEST(TraceText, PacketsAfterTheLastTimestampKeepTheLastKnownTimeAndSaySo) {
  EXPECT_EQ(textOf(std::string("\x0E\x0F\x10\x50\x0E\x0F\x20", 7)),
            "[5] exception 15 (SysTick) entered\n[5+] exception 15 (SysTick) exited\n");
}

TEST(TraceText, HeldPacketsAreBoundedAndThenGoOutWithTheLastKnownTime) {
  std::vector<std::string> times;
  PacketTimer timer(
      [&](const Packet&, PacketTime time) { times.push_back(std::to_string(time.cycles) + (time.exact ? "" : "+")); },
      2);
  Packet timestamp;
  timestamp.kind = PacketKind::LocalTimestamp;
  timestamp.value = 7;
  Packet other;
  other.kind = PacketKind::Overflow;
  timer.add(timestamp);  // 7
  timer.add(other);
  timer.add(other);  // the bound: both go out, not exact
  timer.add(other);
  timer.add(timestamp);  // 14 dates the last one
  EXPECT_EQ(times, (std::vector<std::string>{"7", "7+", "7+", "14", "14"}));
}

TEST(TraceText, TimesAreCyclesAndSecondsGivenTheClock) {
  Timing timing;
  timing.clockHz = 1000.0;
  timing.timestampPrescale = 4;
  EXPECT_EQ(textOf(std::string("\x0E\x0F\x10\xC0\x05", 5), timing),
            "[5][0.020000000 s] exception 15 (SysTick) entered\n");
}

// Clocks the command lines refuse may still reach the writers through the
// library: no time is ever written past its buffer or as invalid JSON.
TEST(TraceText, TimesForAnyClockStayWholeNumbersOrNull) {
  Timing tiny;
  tiny.clockHz = 1e-300;
  const std::string text = textOf(std::string("\x0E\x0F\x10\xC0\x05", 5), tiny);
  const std::string prefix = "[5][";
  ASSERT_EQ(text.rfind(prefix, 0), 0u) << text;
  const std::string seconds = text.substr(prefix.size(), text.find(' ') - prefix.size());
  EXPECT_EQ(seconds.size(), 301u + 1 + 9) << seconds;  // 5e300: 301 digits, the point, 9 decimals
  EXPECT_EQ(seconds.find_first_not_of("0123456789."), std::string::npos) << seconds;
  EXPECT_EQ(seconds.substr(seconds.size() - 10), ".000000000");

  Timing vanishing;
  vanishing.clockHz = 1e-320;  // cycles / clock is infinite
  EXPECT_EQ(jsonOf(std::string("\x80\x80\x20", 3), vanishing),
            "{\"kind\":\"malformed\",\"offset\":0,\"header\":128,\"bytes\":2,\"cycles\":2,\"exact\":true,"
            "\"seconds\":null}\n"
            "{\"kind\":\"local-timestamp\",\"offset\":2,\"header\":32,\"value\":2,\"tc\":0,\"cycles\":2,\"exact\":true,"
            "\"seconds\":null}\n");
}

TEST(TraceText, FixedPointNumbersOfEveryMagnitude) {
  const auto fixed = [](double value, int decimals) {
    OutputBuffer out;
    out.appendFixed(value, decimals);
    return out.text();
  };
  EXPECT_EQ(fixed(0.02, 9), "0.020000000");
  EXPECT_EQ(fixed(-1.5, 3), "-1.500");
  EXPECT_EQ(fixed(1.5, 42), "1.500000000");  // at most 9 decimals
  EXPECT_EQ(fixed(1.7976931348623157e308, 9).size(), 309u + 1 + 9);
  EXPECT_EQ(fixed(std::numeric_limits<double>::infinity(), 9), "null");
  EXPECT_EQ(fixed(std::numeric_limits<double>::quiet_NaN(), 3), "null");
}

// One-byte stimulus writes of text on port 0.
std::string portText(const std::string& text) {
  std::string bytes;
  for (const char c : text) {
    bytes += '\x01';
    bytes += c;
  }
  return bytes;
}

TEST(TraceText, ALineLongerThanTheLimitComesInPartsThatSaySo) {
  const std::size_t limit = StimulusLines::kMaxLineBytes;
  const std::string line = std::string(limit, 'a') + std::string(limit, 'b') + "cd";
  const std::string text = textOf(portText(line + "\n"));
  // (compared as booleans: a failure must not print 32 KiB)
  EXPECT_TRUE(text == "[0+] port 0: " + std::string(limit, 'a') + " [the line goes on]\n" +
                          "[0+] port 0: " + std::string(limit, 'b') + " [the line goes on]\n" + "[0+] port 0: cd\n")
      << text.size() << " bytes, ending " << text.substr(text.size() - 60);
  const std::string json = jsonOf(portText(std::string(limit, 'x') + "y\n"));
  EXPECT_NE(json.find("\"text\":\"" + std::string(limit, 'x') + "\",\"continues\":true,"), std::string::npos);
  EXPECT_NE(json.find("\"text\":\"y\",\"cycles\""), std::string::npos) << json.substr(json.size() - 100);
}

TEST(TraceText, APartEndsOnACharacterBoundary) {
  const std::size_t limit = StimulusLines::kMaxLineBytes;
  // The euro sign's three bytes would straddle the limit: it begins the next part.
  const std::string text = textOf(portText(std::string(limit - 1, 'a') + "\xE2\x82\xAC" + "z\n"));
  EXPECT_TRUE(text == "[0+] port 0: " + std::string(limit - 1, 'a') + " [the line goes on]\n" +
                          "[0+] port 0: \xE2\x82\xAC" + "z\n")
      << text.size() << " bytes, ending " << text.substr(text.size() - 60);
}

TEST(TraceText, EachEventHasItsLine) {
  EXPECT_EQ(textOf("\x70"), "[0+] overflow: the target dropped trace packets\n");
  EXPECT_EQ(textOf(std::string("\x17\x78\x56\x34\x12", 5)), "[0+] pc sample 0x12345678\n");
  EXPECT_EQ(textOf(std::string("\x15\x00", 2)), "[0+] pc sample: core asleep\n");
  EXPECT_EQ(textOf(std::string("\x0E\x13\x20", 3)), "[0+] exception 19 (IRQ 3) exited\n");
  EXPECT_EQ(textOf(std::string("\x9F\xEF\xBE\xAD\xDE", 5)), "[0+] data trace comparator 1 write 0xDEADBEEF\n");
  EXPECT_EQ(textOf(std::string("\x4E\x34\x12", 3)), "[0+] data trace comparator 0 address 0x1234\n");
  EXPECT_EQ(textOf("\x80"), "[0+] malformed: 1 byte at offset 0\n");
}

TEST(TraceText, GarbageIsOneLinePerRun) {
  // Four bytes that start no packet, a timestamp, then three zeros and a
  // byte other than 0x80: one malformed run, one zero run.
  EXPECT_EQ(textOf(std::string("\x80\x90\xA0\xB0\x10\x00\x00\x00\x70", 9)),
            "[1] malformed: 4 bytes at offset 0\n[1+] zeros: 3 bytes at offset 5\n"
            "[1+] overflow: the target dropped trace packets\n");
}

TEST(TraceText, ExceptionNames) {
  EXPECT_EQ(exceptionName(2), "NMI");
  EXPECT_EQ(exceptionName(3), "HardFault");
  EXPECT_EQ(exceptionName(11), "SVCall");
  EXPECT_EQ(exceptionName(15), "SysTick");
  EXPECT_EQ(exceptionName(16), "IRQ 0");
  EXPECT_EQ(exceptionName(271), "IRQ 255");
}

TEST(JsonLines, EveryPacketCarriesItsTime) {
  EXPECT_EQ(
      jsonOf(std::string("\x01"
                         "A\x0E\x0F\x10\x50\x01\n",
                         8)),
      "{\"kind\":\"instrumentation\",\"offset\":0,\"header\":1,\"port\":0,\"size\":1,\"value\":65,"
      "\"cycles\":5,\"exact\":true}\n"
      "{\"kind\":\"exception\",\"offset\":2,\"header\":14,\"exception\":15,\"name\":\"SysTick\","
      "\"function\":\"entered\",\"cycles\":5,\"exact\":true}\n"
      "{\"kind\":\"local-timestamp\",\"offset\":5,\"header\":80,\"value\":5,\"tc\":0,\"cycles\":5,\"exact\":true}\n"
      "{\"kind\":\"instrumentation\",\"offset\":6,\"header\":1,\"port\":0,\"size\":1,\"value\":10,"
      "\"cycles\":5,\"exact\":false}\n"
      "{\"kind\":\"text\",\"offset\":0,\"port\":0,\"text\":\"A\",\"cycles\":5,\"exact\":false}\n");
}

TEST(JsonLines, WithoutRawTheyCarryWhatTheTextCarries) {
  EXPECT_EQ(eventsOf(std::string("\x01"
                                 "A\x0E\x0F\x10\x50\x01\n",
                                 8)),
            "{\"kind\":\"exception\",\"offset\":2,\"header\":14,\"exception\":15,\"name\":\"SysTick\","
            "\"function\":\"entered\",\"cycles\":5,\"exact\":true}\n"
            "{\"kind\":\"text\",\"offset\":0,\"port\":0,\"text\":\"A\",\"cycles\":5,\"exact\":false}\n");
}

TEST(JsonLines, SecondsGivenTheClockAndRunsWithTheirLength) {
  Timing timing;
  timing.clockHz = 1000.0;
  EXPECT_EQ(jsonOf(std::string("\x80\x80\x20", 3), timing),
            "{\"kind\":\"malformed\",\"offset\":0,\"header\":128,\"bytes\":2,\"cycles\":2,\"exact\":true,"
            "\"seconds\":0.002000000}\n"
            "{\"kind\":\"local-timestamp\",\"offset\":2,\"header\":32,\"value\":2,\"tc\":0,\"cycles\":2,\"exact\":true,"
            "\"seconds\":0.002000000}\n");
}

TEST(JsonLines, StringsEscapeEveryControlCharacterAndEveryByteThatIsNotUtf8) {
  EXPECT_EQ(jsonString("plain"), "plain");
  EXPECT_EQ(jsonString("a\"b\\c"), "a\\\"b\\\\c");
  EXPECT_EQ(jsonString(std::string("\n\t\x01\x1b\x7f", 5)), "\\n\\t\\u0001\\u001b\\u007f");
  EXPECT_EQ(jsonString("\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"), "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80");  // é € 😀
  EXPECT_EQ(jsonString("\xc3"), "\\u00c3");                                                               // cut short
  EXPECT_EQ(jsonString("\xff\xfe"), "\\u00ff\\u00fe");                                                    // never UTF-8
  EXPECT_EQ(jsonString("\xc0\xaf"), "\\u00c0\\u00af");                                                    // overlong
  EXPECT_EQ(jsonString("\xed\xa0\x80"), "\\u00ed\\u00a0\\u0080");                                         // a surrogate
  EXPECT_EQ(jsonString("\xf4\x90\x80\x80"), "\\u00f4\\u0090\\u0080\\u0080");  // above U+10FFFF
  EXPECT_EQ(jsonString("\x80x"), "\\u0080x");
}

TEST(TraceText, Statistics) {
  ItmDecoder decoder(nullptr);
  decoder.feed(
      std::string("\x01"
                  "A\x70\x80\x00\x00\x00\x00",
                  8));
  decoder.finish();
  OutputBuffer out;
  writeStatistics(out, decoder.statistics());
  EXPECT_EQ(out.text(),
            "bytes: 8\noverflow: 1\ninstrumentation: 1\nmalformed: 1\nmalformed bytes: 1\nzero bytes: 0\n"
            "padding bytes: 4\nsync losses: 0\n");
}

TEST(TraceText, StatisticsAsJson) {
  ItmDecoder decoder(nullptr);
  decoder.feed(
      std::string("\x01"
                  "A\x70\x80\x00\x00\x00",
                  7));
  decoder.finish();
  OutputBuffer out;
  writeStatisticsJson(out, decoder.statistics());
  EXPECT_EQ(out.text(),
            "{\"kind\":\"statistics\",\"bytes\":7,\"packets\":{\"overflow\":1,\"instrumentation\":1,\"zeros\":1,"
            "\"malformed\":1},\"malformed_bytes\":1,\"zero_bytes\":3,\"padding_bytes\":0,\"sync_losses\":0}\n");
}
