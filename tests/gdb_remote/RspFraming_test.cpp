// Packets as they go over the wire and come back in pieces.
#include "RspFraming.h"

#include <gtest/gtest.h>

#include "GdbError.h"
#include "StopReply.h"
#include "ThrownText.h"

using namespace vestrel::gdb_remote;

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
  EXPECT_EQ(*rspDecode("0* "), "0000");  // ' ' is 32: three more
  EXPECT_EQ(*rspDecode("ab*!c"), "abbbbbc");
  EXPECT_EQ(*rspDecode("}\x03"), "#");
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

TEST(RspFraming, ARunLengthBombStopsAtTheCap) {
  std::string bomb = "0";
  for (int i = 0; i < 1000; ++i) bomb += "*\xff";  // 226 more each: 226,001 in all
  EXPECT_FALSE(rspDecode(bomb));
  EXPECT_EQ(rspDecode(bomb, 1000000)->size(), 226001u);
  EXPECT_EQ(rspDecode(std::string(kMaxPacketPayload, 'a'))->size(), kMaxPacketPayload);
  EXPECT_FALSE(rspDecode(std::string(kMaxPacketPayload + 1, 'a')));
}

TEST(RspFraming, TheReaderRefusesAPacketTooLongOnTheWireOrExpanded) {
  RspReader endless("the debugger");
  endless.feed("$" + std::string(kMaxPacketFrame - 1, 'a'));  // at the cap: still waiting
  EXPECT_FALSE(endless.next());
  endless.feed("a");
  EXPECT_EQ(vestrel_test::thrownText<GdbError>([&] { endless.next(); }),
            "the debugger sent a packet of more than 131076 bytes with no end ('#'); refused");

  std::string payload = "0";
  for (int i = 0; i < 300; ++i) payload += "*\xff";
  RspReader bombed("the GDB server");
  bombed.feed("$" + payload + "#00");
  EXPECT_EQ(vestrel_test::thrownText<GdbError>([&] { bombed.next(); }),
            "the GDB server sent a packet that expands to more than 65536 bytes (run-length encoded); refused");
}

TEST(RspFraming, ThePartialPacketIsTimedFromItsStartAndForgottenWhenItEnds) {
  RspReader reader;
  EXPECT_FALSE(reader.partialSince());
  reader.feed("+noise");
  ASSERT_TRUE(reader.next());
  EXPECT_FALSE(reader.next());
  EXPECT_FALSE(reader.partialSince()) << "noise is no packet";
  reader.feed("$O");
  EXPECT_FALSE(reader.next());
  const auto since = reader.partialSince();
  ASSERT_TRUE(since);
  reader.feed("K");
  EXPECT_FALSE(reader.next());
  EXPECT_EQ(reader.partialSince(), since);
  reader.feed("#9a");
  EXPECT_EQ(reader.next()->payload, "OK");
  EXPECT_FALSE(reader.partialSince());
}

TEST(RspFraming, MuchNoiseIsSkippedInOneStep) {
  RspReader reader;
  reader.feed(std::string(8 << 20, 'x') + "$OK#9a");
  EXPECT_EQ(reader.next()->payload, "OK");
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
