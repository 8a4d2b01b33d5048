#include "uString.h"

#include <gtest/gtest.h>

#include "ThrownText.h"

#include <cstdint>
#include <string>
#include <vector>

namespace uString = KV_ORV::uString;

namespace {
template <typename Call>
std::string errorText(Call call) {
  return vestrel_test::thrownText<uString::error>(call);
}
}  // namespace

TEST(uString, ErrorDerivesFromTheLibraryErrorAndTheStandardRuntimeError) {
  try {
    std::string text;
    uString::replaceAll(text, nullptr, "x");
    FAIL() << "no exception";
  } catch (const KV_ORV::source_utilities_error& e) {
    EXPECT_NE(dynamic_cast<const uString::error*>(&e), nullptr);
    EXPECT_NE(dynamic_cast<const std::runtime_error*>(&e), nullptr);
  }
}

TEST(uString, ReplaceAllBackslashesBySlashes) {
  std::string text = "a\\b\\c";
  EXPECT_EQ(uString::replaceAll(text, "\\", "/"), "a/b/c");
  EXPECT_EQ(text, "a/b/c");
}

TEST(uString, ReplaceAllResumesAfterTheLengthOfTheSearchedText) {
  // "aaaa": the match at 0 becomes "a", giving "aaa"; the search resumes at
  // 0 + 2, where only one "a" is left, so the result keeps three.
  std::string text = "aaaa";
  EXPECT_EQ(uString::replaceAll(text, "aa", "a"), "aaa");
  // A longer replacement: resuming at 0 + 1 lands inside "xy" and finds no
  // "b" there; the next "b" is replaced too.
  text = "bcb";
  EXPECT_EQ(uString::replaceAll(text, "b", "xy"), "xycxy");
}

TEST(uString, ReplaceAllWithAnEmptySearchedTextChangesNothing) {
  std::string text = "abc";
  EXPECT_EQ(uString::replaceAll(text, "", "x"), "abc");
}

TEST(uString, ReplaceAllRefusesNullTexts) {
  std::string text = "abc";
  EXPECT_EQ(errorText([&] { uString::replaceAll(text, nullptr, "x"); }),
            "unable to perform string replacement from null original text");
  EXPECT_EQ(errorText([&] { uString::replaceAll(text, "a", nullptr); }),
            "unable to perform string replacement with null replacement text");
}

TEST(uString, SplitAtTheFirstDelimiter) {
  std::string head, tail;
  EXPECT_EQ(uString::split("a=b", head, tail, "="), 2);
  EXPECT_EQ(head, "a");
  EXPECT_EQ(tail, "b");
  EXPECT_EQ(uString::split("k=v=w", head, tail, "="), 2);
  EXPECT_EQ(head, "k");
  EXPECT_EQ(tail, "v=w");
  EXPECT_EQ(uString::split("=x", head, tail, "="), 2);
  EXPECT_EQ(head, "");
  EXPECT_EQ(tail, "x");
  EXPECT_EQ(uString::split("a::b", head, tail, "::"), 2);
  EXPECT_EQ(head, "a");
  EXPECT_EQ(tail, "b");
}

TEST(uString, SplitWithoutTheDelimiterReturnsOneOrZero) {
  std::string head = "old", tail = "old";
  EXPECT_EQ(uString::split("abc", head, tail, "="), 1);
  EXPECT_EQ(head, "abc");
  EXPECT_EQ(tail, "");
  EXPECT_EQ(uString::split("", head, tail, "="), 0);
  EXPECT_EQ(head, "");
  EXPECT_EQ(tail, "");
  EXPECT_EQ(uString::split("abc", head, tail, ""), 1);
  EXPECT_EQ(head, "abc");
}

TEST(uString, SplitRefusesNullTexts) {
  std::string head, tail;
  EXPECT_EQ(errorText([&] { uString::split(nullptr, head, tail, "="); }), "unable to split null string");
  EXPECT_EQ(errorText([&] { uString::split("a", head, tail, nullptr); }), "unable to split with null delimeter");
}

TEST(uString, TokenizeKeepsInnerEmptyPiecesAndDropsATrailingOne) {
  std::vector<std::string> list;
  EXPECT_EQ(uString::tokenize(list, "a,,b,", ","), 3);
  EXPECT_EQ(list, (std::vector<std::string>{"a", "", "b"}));
}

TEST(uString, TokenizeAppendsToTheListAndReturnsItsSize) {
  std::vector<std::string> list{"x"};
  EXPECT_EQ(uString::tokenize(list, "one", ","), 2);
  EXPECT_EQ(list, (std::vector<std::string>{"x", "one"}));
  EXPECT_EQ(uString::tokenize(list, "", ","), 2);
  EXPECT_EQ(uString::tokenize(list, ",a", ","), 4);
  EXPECT_EQ(list, (std::vector<std::string>{"x", "one", "", "a"}));
}

TEST(uString, TokenizeRefusesNullTexts) {
  std::vector<std::string> list;
  EXPECT_EQ(errorText([&] { uString::tokenize(list, nullptr, ","); }), "unable to split null string");
  EXPECT_EQ(errorText([&] { uString::tokenize(list, "a", nullptr); }), "unable to split with null delimeter");
}

TEST(uString, FromNumberReplacesOrAppends) {
  std::string result = "n=";
  EXPECT_EQ(uString::fromNumber(42, result, true), "n=42");
  EXPECT_EQ(uString::fromNumber(-7, result, false), "-7");
  EXPECT_EQ(uString::fromNumber(255, result, false, "0x%04X"), "0x00FF");
  EXPECT_EQ(uString::fromNumber(3, result, true, "[%d]"), "0x00FF[3]");
}

TEST(uString, ToNumericReadsDecimalHexadecimalAndOctal) {
  EXPECT_EQ(uString::toNumeric<std::uint64_t>("0x1A"), 26u);
  EXPECT_EQ(uString::toNumeric<std::uint64_t>("0X1a"), 26u);
  EXPECT_EQ(uString::toNumeric<std::uint64_t>("017"), 15u);
  EXPECT_EQ(uString::toNumeric<std::uint64_t>("0"), 0u);
  EXPECT_EQ(uString::toNumeric<std::uint64_t>("12abc"), 12u);
  EXPECT_EQ(uString::toNumeric<std::uint64_t>("4321"), 4321u);
  EXPECT_EQ(uString::toNumeric<std::uint64_t>("18446744073709551615"), 18446744073709551615u);
  EXPECT_EQ(uString::toNumeric<std::int32_t>("-12"), -12);
}

TEST(uString, ToNumericWithoutDigitsGivesZero) {
  EXPECT_EQ(uString::toNumeric<std::uint64_t>("0x"), 0u);
  EXPECT_EQ(uString::toNumeric<std::uint64_t>("0X"), 0u);
  EXPECT_EQ(uString::toNumeric<std::uint64_t>("garbage"), 0u);
  EXPECT_EQ(uString::toNumeric<std::uint64_t>("0xZZ"), 0u);
  EXPECT_EQ(uString::toNumeric<std::uint64_t>("09"), 0u);
}

TEST(uString, ToNumericOfASingleByteTypeReadsAWholeNumber) {
  EXPECT_EQ(uString::toNumeric<std::uint8_t>("65"), 65);
  EXPECT_EQ(uString::toNumeric<std::uint8_t>("0x41"), 0x41);
  EXPECT_EQ(uString::toNumeric<std::int8_t>("-3"), -3);
  // Narrowed to the low byte.
  EXPECT_EQ(uString::toNumeric<std::uint8_t>("258"), 2);
}

TEST(uString, ToNumericGivesTheTypesLimitForANumberTooLargeAsStreamExtractionDoes) {
  EXPECT_EQ(uString::toNumeric<std::uint64_t>("18446744073709551616"), 18446744073709551615u);
  EXPECT_EQ(uString::toNumeric<std::uint64_t>("99999999999999999999"), 18446744073709551615u);
  EXPECT_EQ(uString::toNumeric<std::int32_t>("0x80000000"), 2147483647);
  EXPECT_EQ(uString::toNumeric<std::int32_t>("-99999999999"), -2147483647 - 1);
}

TEST(uString, ToNumericRefusesNullAndEmptyTexts) {
  EXPECT_EQ(errorText([] { uString::toNumeric<std::uint64_t>(nullptr); }), "unable to convert null string to numeric");
  EXPECT_EQ(errorText([] { uString::toNumeric<std::uint64_t>(""); }), "unable to convert empty string to numeric");
}
