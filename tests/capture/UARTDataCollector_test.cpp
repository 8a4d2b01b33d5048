#include "UARTDataCollector.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

#include "CollectorFixture.h"

using namespace vestrel_test;

TEST_F(CollectorTest, OpeningProgramsThePortInItsOrder) {
  auto collector = open(12);
  EXPECT_EQ(fake.callsSnapshot(),
            (Strings{"openPort(\\\\.\\COM12)", "setTimeouts(4294967295,0,0,0,0)", "getState", "setState(2000000)",
                     "purge(12)", "clearError", "getState", "createCaptureFile"}));
  EXPECT_EQ(collector->portNumber(), 12u);
  EXPECT_EQ(collector->baudRate(), 2000000u);
  EXPECT_TRUE(collector->running());
  EXPECT_FALSE(collector->isFinished());
  EXPECT_EQ(collector->savedState(), fake.opened);
}

TEST_F(CollectorTest, TheRateIsTheClockOverPrescalerPlusOneTruncated) {
  struct Case {
    double clock;
    std::uint32_t prescaler;
    std::uint32_t rate;
  };
  for (const Case& c : {Case{72000000.0, 35, 2000000}, Case{71999999.0, 35, 1999999}, Case{48000000.0, 0, 48000000},
                        Case{12000000.0, 6, 1714285}, Case{80000000.0, 39, 2000000}}) {
    FakeSerialApi port;
    ScopedSerialApi use(port);
    prescaler = c.prescaler;
    auto collector = open(7, c.clock);
    EXPECT_EQ(collector->baudRate(), c.rate) << c.clock;
    EXPECT_EQ(port.statesSet.at(0).BaudRate, c.rate) << c.clock;
    EXPECT_EQ(prescaler, c.prescaler);
  }
}

TEST_F(CollectorTest, ProgrammingChangesExactlyTheFramingAndFlowMembers) {
  auto collector = open();
  PortState expected = fake.opened;
  expected.BaudRate = 2000000;
  expected.ByteSize = 8;
  expected.Parity = 0;
  expected.StopBits = 0;
  expected.fBinary = 1;
  expected.fParity = 0;
  expected.fOutxCtsFlow = 0;
  expected.fOutxDsrFlow = 0;
  expected.fDtrControl = 0;
  expected.fDsrSensitivity = 0;
  expected.fOutX = 0;
  expected.fInX = 0;
  expected.fNull = 0;
  expected.fRtsControl = 0;
  expected.fAbortOnError = 1;
  ASSERT_EQ(fake.statesSet.size(), 1u);
  EXPECT_EQ(fake.statesSet[0], expected);
  EXPECT_EQ(fake.statesSet[0].fTXContinueOnXoff, 1u);
  EXPECT_EQ(fake.statesSet[0].XonChar, 0x11);
  EXPECT_EQ(fake.statesSet[0].EvtChar, '!');
}

TEST_F(CollectorTest, OpeningLogsTheRatesAtTheErrorLevel) {
  auto collector = open();
  EXPECT_EQ(errorLines(),
            (Strings{"    E Vestrel_UARTCollector: Original emulator Baud rate = 38400",
                     "    E Vestrel_UARTCollector: UART configuration: Target: Trace Clock = 72000000.000000, Baud "
                     "rate=2000000, Prescalar=35",
                     "    E Vestrel_UARTCollector: UART configuration: Emulator: Baud rate=2000000"}));
}

TEST_F(CollectorTest, TheEmulatorLineShowsWhatThePortAccepted) {
  fake.reportedRate = [](std::uint32_t rate) { return rate > 921600 ? 921600u : rate; };
  auto collector = open();
  EXPECT_EQ(errorLines().back(), "    E Vestrel_UARTCollector: UART configuration: Emulator: Baud rate=921600");
}

TEST_F(CollectorTest, EachOpeningFailureHasItsLogLineAndText) {
  struct Row {
    const char* call;
    int n;
    const char* line;
    const char* text;
    bool closes;
  };
  const Row rows[] = {
      {"openPort", 1, "Vestrel_UARTCollector: Failed to open COM7 with error code = 2", "Failed to open COM port",
       false},
      {"setTimeouts", 1, "Vestrel_UARTCollector: Failed to set COM port Comm Timeouts with error code = 2",
       "Failed to setup COM port communication", true},
      {"getState", 1, "Vestrel_UARTCollector: Failed to get current Comm state with error code = 2",
       "Failed to get COM port state", true},
      {"setState", 1, "Vestrel_UARTCollector: Failed to set Comm state with error code = 2",
       "Failed to set requested COM port state", true},
      {"getState", 2, "Vestrel_UARTCollector: Failed to get programmed Comm state with error code = 2",
       "Failed to get programmed COM port state", true},
  };
  for (const Row& row : rows) {
    FakeSerialApi port;
    port.failCall(row.call, row.n, 2);
    ScopedSerialApi use(port);
    int severity = 0;
    EXPECT_EQ(hexkitText([&] { open(); }, &severity), row.text);
    EXPECT_EQ(severity, 2);
    ASSERT_FALSE(log.lines().empty());
    EXPECT_EQ(log.lines().back(), row.line) << row.call;
    const Strings calls = port.callsSnapshot();
    EXPECT_EQ(calls.back() == "closePort", row.closes) << row.call;
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "createCaptureFile"), 0);
  }
}

TEST_F(CollectorTest, ThePortIsClosedBeforeTheErrorCodeIsFetched) {
  fake.failCall("setTimeouts", 1, 5);
  fake.errorAfterClose = 1234;
  EXPECT_EQ(openFailure(), "Failed to setup COM port communication");
  EXPECT_EQ(log.lines().back(), "Vestrel_UARTCollector: Failed to set COM port Comm Timeouts with error code = 1234");
}

TEST_F(CollectorTest, AStateWithLengthZeroIsAFailure) {
  fake.zeroLengthOnGetState = 1;
  EXPECT_EQ(openFailure(), "Failed to get COM port state");
  FakeSerialApi readBack;
  readBack.zeroLengthOnGetState = 2;
  ScopedSerialApi use(readBack);
  EXPECT_EQ(openFailure(), "Failed to get programmed COM port state");
}

TEST_F(CollectorTest, ACaptureFileThatCannotBeCreatedClosesThePort) {
  fake.failCall("createCaptureFile", 1, 3);
  EXPECT_EQ(openFailure(), "Failed to open binary file for trace data storage");
  EXPECT_EQ(fake.callsSnapshot().back(), "closePort");
  EXPECT_EQ(log.lines().back(),
            "Vestrel_UARTCollector: Failed to open binary file " + capturePath() + " with error code 3");
}

TEST_F(CollectorTest, BytesQueuedBeforeProgrammingNeverReachTheFile) {
  fake.stale = "stale!";
  fake.push("fresh");
  auto collector = open();
  EXPECT_EQ(fake.reads, 6u);  // one byte at a time, as many as were queued
  runToEnd(*collector, 5);
  collector.reset();
  EXPECT_EQ(captured(), "fresh");
}

TEST_F(CollectorTest, AnExistingCaptureFileIsTruncatedEvenIfNothingArrives) {
  std::ofstream(capturePath(), std::ios::binary) << "old capture";
  fake.readFailsAfter = 0;
  auto collector = open();
  EXPECT_EQ(captured(), "");
  runToEnd(*collector, 0);
  collector.reset();
  EXPECT_EQ(captured(), "");
}

TEST_F(CollectorTest, DestructionPurgesRestoresAndCloses) {
  auto collector = open();
  runToEnd(*collector, 0);
  const std::size_t before = fake.callsSnapshot().size();
  collector.reset();
  const Strings calls = fake.callsSnapshot();
  EXPECT_EQ(Strings(calls.begin() + static_cast<long>(before), calls.end()),
            (Strings{"purge(12)", "setState(38400)", "closePort", "closeFile"}));
  EXPECT_EQ(fake.state, fake.opened);
}

TEST_F(CollectorTest, DestructionFailuresAreEachLoggedAndDoNotStopTheOthers) {
  auto collector = open();
  fake.failCall("purge", 2, 31);
  fake.failCall("setState", 2, 87);
  fake.failCall("closePort", 1, 6);
  collector.reset();
  const Strings lines = log.lines();
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(Strings(lines.end() - 3, lines.end()),
            (Strings{"Vestrel_UARTCollector: Purge Comm failed with error code = 31.",
                     "Vestrel_UARTCollector: Restoring communication state failed with error code 87",
                     "Vestrel_UARTCollector: Releasing port handle failed with error code 6"}));
  EXPECT_EQ(fake.callsSnapshot().back(), "closeFile");
}
