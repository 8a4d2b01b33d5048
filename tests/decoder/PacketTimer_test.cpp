#include "PacketTimer.h"
#include "DecodedOutput.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace vestrel::decoder;
using namespace vestrel::decoder::testing;

// The ITM sends a local timestamp after the packets it dates.
TEST(PacketTimer, APacketTakesTheTimeOfTheLocalTimestampThatFollowsIt) {
  // Entry, then a timestamp of 5; exit, then a timestamp of 4: 5 and 9.
  EXPECT_EQ(textOf(std::string("\x0E\x0F\x10\x50\x0E\x0F\x20\x40", 8)),
            "[5] exception 15 (SysTick) entered\n[9] exception 15 (SysTick) exited\n");
}

TEST(PacketTimer, PacketsAfterTheLastTimestampKeepTheLastKnownTimeAndSaySo) {
  EXPECT_EQ(textOf(std::string("\x0E\x0F\x10\x50\x0E\x0F\x20", 7)),
            "[5] exception 15 (SysTick) entered\n[5+] exception 15 (SysTick) exited\n");
}

TEST(PacketTimer, HeldPacketsAreBoundedAndThenGoOutWithTheLastKnownTime) {
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
