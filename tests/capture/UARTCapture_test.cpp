// The collector capturing: every byte in order, stops, breaks and drains,
// read and write failures.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

#include "CollectorFixture.h"

using namespace vestrel_test;

TEST_F(CollectorTest, EveryByteIsWrittenInOrderThroughHundredByteReads) {
  std::string data;
  for (int i = 0; i < 1000; ++i) data += static_cast<char>(i * 7 + 3);
  fake.push(data.substr(0, 250));
  fake.push(data.substr(250, 100));
  fake.push(data.substr(350));
  auto collector = open();
  runToEnd(*collector, data.size());
  collector.reset();
  EXPECT_EQ(captured(), data);
}

TEST_F(CollectorTest, APortThatDeliversNothingGivesAnEmptyFileAndZeroLengthWrites) {
  auto collector = open();
  KV_ORV::uThread thread(collector.get(), 0, 0);
  ASSERT_TRUE(thread.start());
  while (fake.emptyWrites < 1000) KV_ORV::yield();
  collector->stop();
  while (!collector->isFinished()) KV_ORV::yield();
  collector.reset();
  EXPECT_EQ(captured(), "");
  EXPECT_EQ(fake.writes, fake.reads - 0);
  EXPECT_TRUE(errorLines().size() == 3u);
}

TEST_F(CollectorTest, AStopDuringAPassEndsTheCaptureAfterThatPassWritesItsBytes) {
  fake.push("first");
  fake.push("second");
  fake.push("third");
  auto collector = open();
  UARTDataCollector* running = collector.get();
  // The stop comes while the second read is under way: that pass still
  // writes what it read, and no third read follows.
  fake.duringRead = [running](int read) {
    if (read == 2) running->stop();
  };
  KV_ORV::uThread thread(collector.get(), 0, 0);
  ASSERT_TRUE(thread.start());
  while (!collector->isFinished()) KV_ORV::yield();
  EXPECT_EQ(fake.reads, 2u);
  collector.reset();
  EXPECT_EQ(captured(), "firstsecond");
}

TEST_F(CollectorTest, WithoutBreakNothingArrivingAfterTheStopIsWritten) {
  fake.push("before");
  auto collector = open();
  runToEnd(*collector, 6);
  fake.push("after");
  collector.reset();
  EXPECT_EQ(captured(), "before");
  EXPECT_FALSE(fake.breakSet);
}

TEST_F(CollectorTest, WithBreakTheDrainKeepsWhatArrivesAfterTheBreak) {
  fake.push("before");
  fake.pushAfterBreak("drained");
  auto collector = open(7, 72000000.0, false, true);
  runToEnd(*collector, 6);
  collector.reset();
  EXPECT_EQ(captured(), "beforedrained");
  EXPECT_EQ(fake.readsAfterBreak, 10u);  // ten passes, counted not timed
  EXPECT_EQ(fake.writesAfterBreak, 1u);  // empty drain reads write nothing
}

TEST_F(CollectorTest, AFailedBreakIsLoggedAndTheDrainGoesOn) {
  fake.failCall("setBreak", 1, 50);
  fake.pushAfterBreak("x");
  auto collector = open(7, 72000000.0, false, true);
  runToEnd(*collector, 0);
  collector.reset();
  EXPECT_TRUE(log.contains("Vestrel_UARTCollector: Failed to send Comm break state with error code = 50"));
  EXPECT_EQ(fake.readsAfterBreak, 10u);
}

TEST_F(CollectorTest, AReadFailureEndsTheCaptureAndKeepsEveryByteBefore) {
  fake.push(std::string(300, 'a'));
  fake.readFailsAfter = 250;
  auto collector = open();
  KV_ORV::uThread thread(collector.get(), 0, 0);
  ASSERT_TRUE(thread.start());
  while (!collector->isFinished()) KV_ORV::yield();
  EXPECT_TRUE(collector->running());  // a failure does not clear the flag
  collector.reset();
  EXPECT_EQ(captured(), std::string(250, 'a'));
  EXPECT_TRUE(log.contains("Vestrel_UARTCollector: Reading COM port failed with error code 22"));
}

TEST_F(CollectorTest, AReadFailureStillDrainsWhenABreakIsWanted) {
  fake.readFailsAfter = 0;
  auto collector = open(7, 72000000.0, false, true);
  KV_ORV::uThread thread(collector.get(), 0, 0);
  ASSERT_TRUE(thread.start());
  while (!collector->isFinished()) KV_ORV::yield();
  EXPECT_TRUE(fake.breakSet);
  EXPECT_EQ(fake.readsAfterBreak, 1u);  // the drain's first read fails too and ends it
  collector.reset();
}

TEST_F(CollectorTest, AWriteFailureEndsTheCaptureWithTheChunksBeforeIntact) {
  fake.push(std::string(100, 'a'));
  fake.push(std::string(100, 'b'));
  fake.push(std::string(100, 'c'));
  fake.writeFailsAfter = 250;
  auto collector = open();
  KV_ORV::uThread thread(collector.get(), 0, 0);
  ASSERT_TRUE(thread.start());
  while (!collector->isFinished()) KV_ORV::yield();
  collector.reset();
  EXPECT_EQ(captured(), std::string(100, 'a') + std::string(100, 'b'));
  EXPECT_TRUE(log.contains("Vestrel_UARTCollector: Writing to binary file failed with error code 112"));
}

// --- automatic prescaler calibration -----------------------------------------------
