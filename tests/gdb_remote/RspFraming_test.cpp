// Packets as they go over the wire and come back in pieces.
#include "RspFraming.h"

#include <gtest/gtest.h>

#include "StopReply.h"

using namespace vestrel::gdb;

namespace {

TEST(RspFraming, ChecksumsAndEscapes) {
  EXPECT_EQ(rspFrame("OK"), "$OK#9a");
  EXPECT_EQ(rspFrame("m20000000,4"), "$m20000000,4#4f");  // 591 = 0x24f
  EXPECT_EQ(rspFrame(""), "$#00");
  // '#', '$', '}' and '*' are escaped; the checksum covers what is sent
  // (97 + 125 + 3 + 125 + 4 + 125 + 93 + 125 + 10 = 707 = 0x2c3).
  EXPECT_EQ(rspFrame("a#$}*"), std::string("$a}\x03}\x04}]}\x0a#") + "c3");
}

TEST(RspFraming, HexBothWays) {
  EXPECT_EQ(toHex(std::string("\x2a\x00\xff", 3)), "2a00ff");
  EXPECT_EQ(fromHex("2A00ff"), std::string("\x2a\x00\xff", 3));
  EXPECT_FALSE(fromHex("2a0"));
  EXPECT_FALSE(fromHex("zz"));
}

TEST(RspFraming, RunLengthsAndEscapesAreUndone) {
  EXPECT_EQ(rspDecode("0* "), "0000");  // ' ' is 32: three more
  EXPECT_EQ(rspDecode("ab*!c"), "abbbbbc");
  EXPECT_EQ(rspDecode("}\x03"), "#");
}

TEST(RspFraming, TheReaderTakesItemsAsTheyArriveInPieces) {
  RspReader reader;
  reader.feed("+-\x03$O");
  EXPECT_EQ(reader.next()->kind, RspReader::Item::Kind::Ack);
  EXPECT_EQ(reader.next()->kind, RspReader::Item::Kind::Nak);
  EXPECT_EQ(reader.next()->kind, RspReader::Item::Kind::Interrupt);
  EXPECT_FALSE(reader.next());
  reader.feed("K#9");
  EXPECT_FALSE(reader.next());
  reader.feed("anoise$OK#00");
  auto ok = reader.next();
  ASSERT_TRUE(ok);
  EXPECT_EQ(ok->payload, "OK");
  EXPECT_TRUE(ok->checksumOk);
  auto garbled = reader.next();  // the noise is skipped
  ASSERT_TRUE(garbled);
  EXPECT_EQ(garbled->payload, "OK");
  EXPECT_FALSE(garbled->checksumOk);
}

TEST(StopReplies, EveryForm) {
  EXPECT_EQ(parseStopReply("S05")->text(), "stopped by signal 5 (SIGTRAP)");
  const auto t = parseStopReply("T02thread:01;");
  EXPECT_EQ(t->kind, StopReply::Kind::Stopped);
  EXPECT_EQ(t->number, 2);
  EXPECT_EQ(t->details, "thread:01;");
  EXPECT_EQ(parseStopReply("W00")->text(), "exited with code 0");
  EXPECT_EQ(parseStopReply("X0b")->text(), "ended by signal 11 (SIGSEGV)");
  EXPECT_EQ(parseStopReply("S2a")->text(), "stopped by signal 42");
  EXPECT_FALSE(parseStopReply("OK"));
  EXPECT_FALSE(parseStopReply("E01x"));
  EXPECT_FALSE(parseStopReply("S5"));
}

}  // namespace
