#include "UARTDataCollector.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

#include "FakeSerialApi.h"
#include "TestLog.h"
#include "ThrownText.h"
#include "uThread.h"

using namespace Kv::Orv::Trace::Vestrel;
using Strings = std::vector<std::string>;
using vestrel_test::FakeSerialApi;
using vestrel_test::hexkitText;

namespace {

const char* const kCalibrationFailed =
    "Failed to calibrate prescalar automatically. Please set prescalar manually in Receiver settings";

class CollectorTest : public ::testing::Test {
 protected:
  std::unique_ptr<UARTDataCollector> open(std::uint32_t port = 7, double clock = 72000000.0, bool automatic = false,
                                          bool sendBreak = false) {
    return std::make_unique<UARTDataCollector>(port, clock, automatic, prescaler, capturePath(), sendBreak);
  }
  std::string openFailure(double clock = 72000000.0, bool automatic = false) {
    return hexkitText([&] { open(7, clock, automatic); });
  }
  std::string capturePath() const { return dir.file("swotrace_core.bin"); }
  std::string captured() const { return vestrel_test::readFile(capturePath()); }
  // Runs the collector on its own thread until the fake has delivered
  // everything, then stops it the way the channel driver does.
  void runToEnd(UARTDataCollector& collector, std::uint64_t expectedBytes) {
    KV_ORV::uThread thread(&collector, 0, 0);
    ASSERT_TRUE(thread.start());
    while (fake.deliveredBytes < expectedBytes && !collector.isFinished()) KV_ORV::yield();
    collector.stop();
    while (!collector.isFinished()) KV_ORV::yield();
  }
  Strings errorLines() const {
    Strings lines;
    for (const auto& line : log.rawLines()) {
      if (line.find("Vestrel_UARTCollector") != std::string::npos) lines.push_back(line.substr(0, 6) + line.substr(21));
    }
    return lines;
  }

  vestrel_test::TestLog log{"1", vestrel_test::TestLog::StartupNamed{}};
  vestrel_test::ScratchDirectory dir;
  FakeSerialApi fake;
  ScopedSerialApi scope{fake};
  std::uint32_t prescaler = 35;
};

}  // namespace

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

TEST_F(CollectorTest, CalibrationWorkedExample) {
  fake.reportedRate = [](std::uint32_t rate) { return rate > 12000000 ? 12000000u : rate; };
  auto collector = open(7, 48000000.0, true);
  EXPECT_EQ(prescaler, 3u);
  EXPECT_EQ(collector->baudRate(), 12000000u);
  Strings rates;
  for (const auto& s : fake.statesSet) rates.push_back(std::to_string(s.BaudRate));
  EXPECT_EQ(rates, (Strings{"48000000", "24000000", "16000000", "12000000"}));
  EXPECT_TRUE(log.contains("Vestrel_UARTCollector: Auto Prescalar is = 3"));
  EXPECT_TRUE(log.contains(
      "Vestrel_UARTCollector: UART configuration: Target: Trace Clock = 48000000.000000, Baud rate=12000000, "
      "Prescalar=3"));
}

TEST_F(CollectorTest, APortThatEchoesTheRateAcceptsPrescalerZeroAtOnce) {
  prescaler = 17;  // ignored: the search starts from 0
  auto collector = open(7, 48000000.0, true);
  EXPECT_EQ(prescaler, 0u);
  EXPECT_EQ(fake.callsSnapshot(),
            (Strings{"openPort(\\\\.\\COM7)", "setTimeouts(4294967295,0,0,0,0)", "getState", "setState(48000000)",
                     "getState", "purge(12)", "clearError", "getState", "createCaptureFile"}));
  EXPECT_TRUE(log.contains("Vestrel_UARTCollector: Auto Prescalar is = 0"));
}

TEST_F(CollectorTest, ADeviationOfExactlyFivePercentPasses) {
  fake.reportedRate = [](std::uint32_t rate) { return rate == 100000000 ? 95000000u : 1u; };
  auto collector = open(7, 100000000.0, true);
  EXPECT_EQ(prescaler, 0u);
}

TEST_F(CollectorTest, ADeviationJustAboveFivePercentFails) {
  // (1e9 - 949999999) * 100 / 1e9 = 5.0000001 percent.
  fake.reportedRate = [](std::uint32_t rate) { return rate == 1000000000 ? 949999999u : rate; };
  auto collector = open(7, 1000000000.0, true);
  EXPECT_EQ(prescaler, 1u);
}

TEST_F(CollectorTest, ARateReportedFourPercentHighPasses) {
  fake.reportedRate = [](std::uint32_t rate) { return rate == 50000000 ? 52000000u : 1u; };
  auto collector = open(7, 50000000.0, true);
  EXPECT_EQ(prescaler, 0u);
}

TEST_F(CollectorTest, TheDeviationIsMeasuredAgainstTheExactQuotient) {
  // Prescaler 2 asks for 33333333 (33333333.33 truncated); a port reporting
  // 31666667 is 5.0 percent off the exact quotient and passes.
  fake.reportedRate = [](std::uint32_t rate) { return rate == 33333333 ? 31666667u : 1u; };
  auto collector = open(7, 100000000.0, true);
  EXPECT_EQ(prescaler, 2u);
  EXPECT_EQ(collector->baudRate(), 33333333u);
}

TEST_F(CollectorTest, AReportJustOutsideFivePercentOfTheExactQuotientIsRejected) {
  // 1000024 / 3 = 333341.33; 316674 is 5.00008 percent below it (but only
  // 4.99999 percent below the truncated 333341), so prescaler 2 is refused
  // and prescaler 3 (250006 baud, the first rate the port takes) is next.
  fake.reportedRate = [](std::uint32_t rate) { return rate == 333341 ? 316674u : (rate == 250006 ? rate : 1u); };
  auto collector = open(7, 1000024.0, true);
  EXPECT_EQ(prescaler, 3u);
  EXPECT_EQ(collector->baudRate(), 250006u);
}

TEST_F(CollectorTest, APortBelowEveryRateFailsAfterPrescaler8191WithoutClosing) {
  fake.reportedRate = [](std::uint32_t) { return 1u; };
  prescaler = 25;
  int severity = 0;
  EXPECT_EQ(hexkitText([&] { open(7, 48000000.0, true); }, &severity), kCalibrationFailed);
  EXPECT_EQ(severity, 2);
  EXPECT_EQ(prescaler, 8191u);
  EXPECT_EQ(fake.statesSet.size(), 8192u);
  EXPECT_NE(fake.callsSnapshot().back(), "closePort");
  EXPECT_FALSE(log.contains("Vestrel_UARTCollector: Auto Prescalar is = 8191"));
  EXPECT_EQ(errorLines().size(), 1u);  // the original rate only
}

TEST_F(CollectorTest, AFailedReadBackDuringCalibrationClosesThePort) {
  fake.reportedRate = [](std::uint32_t rate) { return rate / 4; };
  fake.failCall("getState", 3, 9);
  EXPECT_EQ(openFailure(48000000.0, true), kCalibrationFailed);
  EXPECT_EQ(prescaler, 1u);  // the last value tried
  EXPECT_EQ(fake.callsSnapshot().back(), "closePort");
  EXPECT_EQ(log.lines().back(), "Vestrel_UARTCollector: Failed to get programmed Comm state with error code = 9");
}

TEST_F(CollectorTest, AFailedRateChangeDuringCalibrationClosesThePort) {
  fake.reportedRate = [](std::uint32_t rate) { return rate / 4; };
  fake.failCall("setState", 3, 87);
  EXPECT_EQ(openFailure(48000000.0, true),
            "Failed to configure COM port during prescalar calibration. Please set prescalar manually in Receiver "
            "settings");
  EXPECT_EQ(prescaler, 2u);
  EXPECT_EQ(fake.callsSnapshot().back(), "closePort");
  EXPECT_EQ(log.lines().back(), "Vestrel_UARTCollector: Failed to set Comm state with error code = 87");
}
