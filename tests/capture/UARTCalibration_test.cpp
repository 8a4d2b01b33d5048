// Automatic prescaler calibration: the rate the port accepts, within five
// percent of the exact quotient.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

#include "CollectorFixture.h"

using namespace vestrel_test;

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
