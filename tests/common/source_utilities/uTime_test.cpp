#include "uTime.h"

#include <gtest/gtest.h>

#include <string>

#include "FakeOsServices.h"

using KV_ORV::LocalTime;
using KV_ORV::uTime;
using vestrel_test::FakeOsServices;

namespace {

class uTimeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    fake.fixedTime = vestrel_test::referenceTime();
  }
  std::string formatted(const char* pattern, int size = 128) {
    char buffer[128];
    const char* result = uTime{}.format(buffer, size, pattern);
    return result != nullptr ? std::string(result) : std::string("<null>");
  }
  FakeOsServices fake;
  KV_ORV::ScopedOsOverride override{fake};
};

// The shared time record starts out invalid; these checks need a process in
// which no uTime was ever made, so each runs in a child process of its own.
void formatBeforeAnyCapture() {
  char buffer[64];
  const char* text = uTime::formatShared(buffer, sizeof buffer, "%H:%M:%S");
  std::exit(text != nullptr && std::string(text) == "Invalid time" ? 0 : 1);
}

void firstCaptureHasDayZeroAndTheSecondCounts() {
  FakeOsServices fake;
  fake.fixedTime = LocalTime{2027, 3, 1, 1, 10, 0, 0, 0};
  KV_ORV::ScopedOsOverride override(fake);
  const int first = uTime{}.dayOfYear();
  const int second = uTime{}.dayOfYear();
  std::exit(first == 0 && second == 61 ? 0 : 10 + first);
}

}  // namespace

TEST_F(uTimeTest, FormatBeforeAnyTimeWasCapturedSaysInvalidTime) {
  EXPECT_EXIT(formatBeforeAnyCapture(), ::testing::ExitedWithCode(0), "");
}

TEST_F(uTimeTest, OnFirstOfMarchOfAYearNotDivisibleByFourTheDayOfYearIs61FromTheSecondCapture) {
  EXPECT_EXIT(firstCaptureHasDayZeroAndTheSecondCounts(), ::testing::ExitedWithCode(0), "");
}

TEST_F(uTimeTest, InAYearDivisibleByFourTheOtherTableIsUsed) {
  fake.fixedTime = LocalTime{2024, 3, 5, 1, 10, 0, 0, 0};
  uTime{};
  EXPECT_EQ(uTime{}.dayOfYear(), 1 + 59);
  fake.fixedTime = LocalTime{2024, 12, 2, 31, 10, 0, 0, 0};
  EXPECT_EQ(uTime{}.dayOfYear(), 31 + 334);
  fake.fixedTime = LocalTime{2027, 1, 5, 1, 10, 0, 0, 0};
  EXPECT_EQ(uTime{}.dayOfYear(), 1);
}

TEST_F(uTimeTest, StrftimeSeesTheStoredDayOfYear) {
  fake.fixedTime = LocalTime{2027, 3, 1, 1, 10, 0, 0, 0};
  uTime{};
  // strftime prints the stored day number plus one.
  EXPECT_EQ(formatted("%j"), "062");
}

TEST_F(uTimeTest, MillisecondsSevenArePaddedByPercentSAndBareByPercentHashS) {
  fake.fixedTime = LocalTime{2026, 11, 1, 16, 14, 3, 7, 7};
  EXPECT_EQ(formatted("%H:%M:%S:%s"), "14:03:07:007");
  EXPECT_EQ(formatted("%#s"), "7");
  EXPECT_EQ(formatted("[%s|%#s|%s]"), "[007|7|007]");
}

TEST_F(uTimeTest, FormatsTheCapturedCalendarFields) {
  EXPECT_EQ(formatted("%m/%d/%y | "), "11/16/26 | ");
  EXPECT_EQ(formatted("%m/%d/%y %H:%M:%S:%s | "), "11/16/26 14:03:07:045 | ");
  EXPECT_EQ(formatted("%Y-%m-%d %H:%M:%S"), "2026-11-16 14:03:07");
  EXPECT_EQ(formatted("%a"), "Mon");
  uTime now;
  EXPECT_EQ(now.day(), 16);
  EXPECT_EQ(now.month(), 11);
  EXPECT_EQ(now.year(), 2026);
  EXPECT_EQ(now.milliseconds(), 45);
}

TEST_F(uTimeTest, RefusesANullBufferAndANonPositiveSize) {
  uTime now;
  char buffer[8];
  EXPECT_EQ(now.format(nullptr, 8, "%H"), nullptr);
  EXPECT_EQ(now.format(buffer, 0, "%H"), nullptr);
  EXPECT_EQ(now.format(buffer, -1, "%H"), nullptr);
}

TEST_F(uTimeTest, AMillisecondPlaceholderIsReplacedOnlyWhenTheResultFits) {
  // "ab%s" needs exactly 6 bytes once "%s" becomes "045".
  EXPECT_EQ(formatted("ab%s", 6), "ab045");
  EXPECT_EQ(formatted("%#s", 4), "45");
}

TEST_F(uTimeTest, AResultThatDoesNotFitIsEmptyNotCut) { EXPECT_EQ(formatted("%Y-%m-%d", 6), ""); }

TEST_F(uTimeTest, ThePatternIsCutToTheBufferBeforeExpansion) {
  // Only "%H" fits a 3-byte buffer, and it expands to two digits.
  EXPECT_EQ(formatted("%H:%M", 3), "14");
}
