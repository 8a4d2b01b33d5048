#include "DecodedOutput.h"
#include "JsonString.h"

#include <gtest/gtest.h>

#include <string>

using namespace vestrel::decoder;
using namespace vestrel::decoder::testing;

namespace {

std::string jsonString(const std::string& text) {
  OutputBuffer out;
  appendJsonString(out, text);
  return out.text();
}

}  // namespace

TEST(JsonWriter, EveryPacketCarriesItsTime) {
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

TEST(JsonWriter, WithoutRawTheyCarryWhatTheTextCarries) {
  EXPECT_EQ(eventsOf(std::string("\x01"
                                 "A\x0E\x0F\x10\x50\x01\n",
                                 8)),
            "{\"kind\":\"exception\",\"offset\":2,\"header\":14,\"exception\":15,\"name\":\"SysTick\","
            "\"function\":\"entered\",\"cycles\":5,\"exact\":true}\n"
            "{\"kind\":\"text\",\"offset\":0,\"port\":0,\"text\":\"A\",\"cycles\":5,\"exact\":false}\n");
}

TEST(JsonWriter, SecondsGivenTheClockAndRunsWithTheirLength) {
  Timing timing;
  timing.clockHz = 1000.0;
  EXPECT_EQ(jsonOf(std::string("\x80\x80\x20", 3), timing),
            "{\"kind\":\"malformed\",\"offset\":0,\"header\":128,\"bytes\":2,\"cycles\":2,\"exact\":true,"
            "\"seconds\":0.002000000}\n"
            "{\"kind\":\"local-timestamp\",\"offset\":2,\"header\":32,\"value\":2,\"tc\":0,\"cycles\":2,\"exact\":true,"
            "\"seconds\":0.002000000}\n");
}

TEST(JsonWriter, StringsEscapeEveryControlCharacterAndEveryByteThatIsNotUtf8) {
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
