#include "DecodedOutput.h"

#include <gtest/gtest.h>

#include <string>

using namespace vestrel::decoder;
using namespace vestrel::decoder::testing;

TEST(TextWriter, StimulusTextIsJoinedPerPortAndEndsAtNewlines) {
  EXPECT_EQ(textOf(std::string("\x01H\x09X\x01i\x01\n\x09Y", 10)), "[0+] port 0: Hi\n[0+] port 1: XY\n");
}

TEST(TextWriter, TerminalControlCharactersInStimulusTextAreShownEscaped) {
  // ESC [ 2 J (clear screen), a bell, a backspace, DEL; a tab and UTF-8 pass.
  EXPECT_EQ(textOf(std::string("\x01\x1b\x01[\x01\x32\x01J\x01\x07\x01\x08\x01\x7f\x01\t\x01\xc3\x01\xa9\x01\n", 22)),
            "[0+] port 0: \\x1B[2J\\x07\\x08\\x7F\t\xc3\xa9\n");
}

TEST(TextWriter, WideStimulusWritesCarryTheirBytesLowFirst) {
  EXPECT_EQ(textOf(std::string("\x03"
                               "abc\n\x10",
                               6)),
            "[1] port 0: abc\n");
}

TEST(TextWriter, TimesAreCyclesAndSecondsGivenTheClock) {
  Timing timing;
  timing.clockHz = 1000.0;
  timing.timestampPrescale = 4;
  EXPECT_EQ(textOf(std::string("\x0E\x0F\x10\xC0\x05", 5), timing),
            "[5][0.020000000 s] exception 15 (SysTick) entered\n");
}

// Clocks the command lines refuse may still reach the writers through the
// library: no time is ever written past its buffer or as invalid JSON.
TEST(TextWriter, TimesForAnyClockStayWholeNumbersOrNull) {
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

TEST(TextWriter, EachEventHasItsLine) {
  EXPECT_EQ(textOf("\x70"), "[0+] overflow: the target dropped trace packets\n");
  EXPECT_EQ(textOf(std::string("\x17\x78\x56\x34\x12", 5)), "[0+] pc sample 0x12345678\n");
  EXPECT_EQ(textOf(std::string("\x15\x00", 2)), "[0+] pc sample: core asleep\n");
  EXPECT_EQ(textOf(std::string("\x0E\x13\x20", 3)), "[0+] exception 19 (IRQ 3) exited\n");
  EXPECT_EQ(textOf(std::string("\x9F\xEF\xBE\xAD\xDE", 5)), "[0+] data trace comparator 1 write 0xDEADBEEF\n");
  EXPECT_EQ(textOf(std::string("\x4E\x34\x12", 3)), "[0+] data trace comparator 0 address 0x1234\n");
  EXPECT_EQ(textOf("\x80"), "[0+] malformed: 1 byte at offset 0\n");
}

TEST(TextWriter, GarbageIsOneLinePerRun) {
  // Four bytes that start no packet, a timestamp, then three zeros and a
  // byte other than 0x80: one malformed run, one zero run.
  EXPECT_EQ(textOf(std::string("\x80\x90\xA0\xB0\x10\x00\x00\x00\x70", 9)),
            "[1] malformed: 4 bytes at offset 0\n[1+] zeros: 3 bytes at offset 5\n"
            "[1+] overflow: the target dropped trace packets\n");
}
