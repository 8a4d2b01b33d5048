// Looking up functions and lines by address, from lists.
#include "SymbolTable.h"

#include <gtest/gtest.h>

using namespace vestrel::symbols;

namespace {

SymbolTable table() {
  return SymbolTable({{"later", 0x200, 0x10},
                      {"first", 0x100, 0x20},
                      {"alias", 0x100, 0x4},
                      {"unsized", 0x300, 0},
                      {"last", 0x380, 0x8}},
                     {"/src/a.s", "b.c"},
                     {{0x100, 0, 10, false},
                      {0x108, 0, 12, false},
                      {0x120, 0, 0, true},
                      {0x200, 1, 40, false},
                      {0x210, 1, 0, true},
                      {0x210, 1, 50, false},
                      {0x214, 1, 0, true},
                      {0x300, 7, 1, false}});  // a row naming no file is dropped
}

TEST(SymbolTable, FunctionsByAddressInsideAtTheEdgesAndOutside) {
  const SymbolTable symbols = table();
  ASSERT_EQ(symbols.functionCount(), 4u);
  EXPECT_EQ(symbols.functionAt(0xFF), nullptr);
  EXPECT_EQ(symbols.functionAt(0x100)->name, "first");  // two names for 0x100: the first given stays
  EXPECT_EQ(symbols.functionAt(0x11F)->name, "first");
  EXPECT_EQ(symbols.functionAt(0x120), nullptr);
  EXPECT_EQ(symbols.functionAt(0x1FF), nullptr);
  EXPECT_EQ(symbols.functionAt(0x200)->name, "later");
  EXPECT_EQ(symbols.functionAt(0x210), nullptr);
  // No size: it reaches the next function.
  EXPECT_EQ(symbols.functionAt(0x37F)->name, "unsized");
  EXPECT_EQ(symbols.functionAt(0x380)->name, "last");
  EXPECT_EQ(symbols.functionAt(0x388), nullptr);
  EXPECT_EQ(symbols.functionAt(0xFFFFFFFF), nullptr);
}

TEST(SymbolTable, LinesByAddressUpToTheEndOfEachSequence) {
  const SymbolTable symbols = table();
  EXPECT_FALSE(symbols.lineAt(0xFF));
  EXPECT_EQ(symbols.lineAt(0x100)->line, 10u);
  EXPECT_EQ(*symbols.lineAt(0x107)->file, "/src/a.s");
  EXPECT_EQ(symbols.lineAt(0x107)->line, 10u);
  EXPECT_EQ(symbols.lineAt(0x108)->line, 12u);
  EXPECT_EQ(symbols.lineAt(0x11F)->line, 12u);
  EXPECT_FALSE(symbols.lineAt(0x120));
  EXPECT_FALSE(symbols.lineAt(0x1FF));
  EXPECT_EQ(*symbols.lineAt(0x20F)->file, "b.c");
  // A sequence that starts where another ends holds that address.
  EXPECT_EQ(symbols.lineAt(0x210)->line, 50u);
  EXPECT_FALSE(symbols.lineAt(0x214));
  EXPECT_FALSE(symbols.lineAt(0x300));
}

TEST(SymbolTable, DescribesAnAddressWithOffsetAndLine) {
  const SymbolTable symbols = table();
  EXPECT_EQ(symbols.describe(0x100), "first (a.s:10)");
  EXPECT_EQ(symbols.describe(0x10A), "first+0xA (a.s:12)");
  EXPECT_EQ(symbols.describe(0x384), "last+0x4");
  EXPECT_EQ(symbols.describe(0x120), "");
}

TEST(SymbolTable, AnEmptyTableFindsNothing) {
  const SymbolTable symbols;
  EXPECT_TRUE(symbols.empty());
  EXPECT_EQ(symbols.functionAt(0), nullptr);
  EXPECT_FALSE(symbols.lineAt(0));
  EXPECT_EQ(symbols.describe(0x100), "");
}

TEST(SymbolTable, BaseNames) {
  EXPECT_EQ(baseName("/a/b/c.s"), "c.s");
  EXPECT_EQ(baseName("C:\\fw\\main.c"), "main.c");
  EXPECT_EQ(baseName("plain"), "plain");
}

}  // namespace
