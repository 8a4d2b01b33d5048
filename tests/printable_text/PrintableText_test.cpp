#include "PrintableText.h"

#include <gtest/gtest.h>

using namespace vestrel::printable_text;

namespace {

TEST(PrintableText, ControlCharactersAreShownNotSent) {
  EXPECT_EQ(printable(std::string("a\x1b[2Jb\r\x07\x7F", 9)), "a\\x1B[2Jb\\x0D\\x07\\x7F");
  EXPECT_EQ(printable("tab\there \xC3\xA9"), "tab\there \xC3\xA9");
}

TEST(PrintableText, AWordIsEightUpperCaseHexDigits) {
  EXPECT_EQ(hexWord(0), "0x00000000");
  EXPECT_EQ(hexWord(0x2000001C), "0x2000001C");
  EXPECT_EQ(hexWord(0xE000EDFC), "0xE000EDFC");
  EXPECT_EQ(hexWord(0xFFFFFFFF), "0xFFFFFFFF");
}

}  // namespace
