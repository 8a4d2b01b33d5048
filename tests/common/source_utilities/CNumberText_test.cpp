#include "CNumberText.h"

#include <gtest/gtest.h>

using KV_ORV::atoi32;
using KV_ORV::strtoul32;
using KV_ORV::wtoi32;

TEST(CNumberText, Strtoul32ReadsAsA32BitUnsignedLongDoes) {
  EXPECT_EQ(strtoul32("7", 10), 7u);
  EXPECT_EQ(strtoul32("  +12abc", 10), 12u);
  EXPECT_EQ(strtoul32("4294967295", 10), 4294967295u);
  // Beyond 32 bits: the largest value, never the low bits (COM7 here).
  EXPECT_EQ(strtoul32("4294967303", 10), 4294967295u);
  EXPECT_EQ(strtoul32("99999999999999999999999", 10), 4294967295u);
  EXPECT_EQ(strtoul32("-1", 10), 4294967295u);
  EXPECT_EQ(strtoul32("-7", 10), 4294967289u);
  EXPECT_EQ(strtoul32("-4294967296", 10), 4294967295u);
  EXPECT_EQ(strtoul32("", 10), 0u);
  EXPECT_EQ(strtoul32("COM7", 10), 0u);
  EXPECT_EQ(strtoul32("- 7", 10), 0u);
  EXPECT_EQ(strtoul32("+-7", 10), 0u);
  EXPECT_EQ(strtoul32(nullptr, 10), 0u);
}

TEST(CNumberText, Strtoul32ReadsHexadecimalAddresses) {
  EXPECT_EQ(strtoul32("400FE000", 16), 0x400FE000u);
  EXPECT_EQ(strtoul32("0x1A00", 16), 0x1A00u);
  EXPECT_EQ(strtoul32("1FFFFFFFF", 16), 0xFFFFFFFFu);
  EXPECT_EQ(strtoul32("xyz", 16), 0u);
}

TEST(CNumberText, Atoi32SaturatesInsteadOfWrapping) {
  EXPECT_EQ(atoi32("31"), 31);
  EXPECT_EQ(atoi32(" \t-5x"), -5);
  EXPECT_EQ(atoi32("2147483647"), 2147483647);
  EXPECT_EQ(atoi32("2147483648"), 2147483647);
  EXPECT_EQ(atoi32("4294967296"), 2147483647);  // a 64-bit long makes this 0
  EXPECT_EQ(atoi32("-2147483648"), -2147483647 - 1);
  EXPECT_EQ(atoi32("-2147483649"), -2147483647 - 1);
  EXPECT_EQ(atoi32("-99999999999999999999999"), -2147483647 - 1);
  EXPECT_EQ(atoi32("abc"), 0);
  EXPECT_EQ(atoi32(nullptr), 0);
}

TEST(CNumberText, Wtoi32ReadsAsWtoiDoes) {
  EXPECT_EQ(wtoi32(L"12)"), 12);
  EXPECT_EQ(wtoi32(L" 5)"), 5);
  EXPECT_EQ(wtoi32(L"-3)"), -3);
  EXPECT_EQ(wtoi32(L"99999999999)"), 2147483647);
  EXPECT_EQ(wtoi32(L")"), 0);
  EXPECT_EQ(wtoi32(std::wstring(L"4") + wchar_t(0x0663)), 4);  // Arabic-Indic three ends the number
}
