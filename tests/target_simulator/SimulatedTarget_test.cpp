// The simulated target refuses what a real Cortex-M's trace blocks cannot
// hold, as the host's trace interface reports it: -1 and nothing changed.
#include "SimulatedTarget.h"

#include <gtest/gtest.h>

using namespace vestrel::target_simulator;
using namespace Kv::Orv::Trace;

namespace {

class SimulatedTargetTest : public ::testing::Test {
 protected:
  SerialLine line{7};
  SimulatedTarget target{6000000.0, line};
};

}  // namespace

TEST_F(SimulatedTargetTest, APrescalerPastThirteenBitsIsRefused) {
  ASSERT_TRUE(line.ready()) << line.why();
  EXPECT_EQ(target.SetTpiuPrescaler(0, 0x1FFF), 0);
  EXPECT_EQ(target.SetTpiuPrescaler(0, 0x2000), -1);
  EXPECT_EQ(target.SetPinProtocol(0, eSWO_ENCODING_UART), 0);
  EXPECT_EQ(target.ProgramTpiu(0), 0);
  EXPECT_EQ(target.EnableTpiu(0), 0);
  EXPECT_EQ(target.figures().prescaler, 0x1FFFu) << "the refused value changed the register";
  EXPECT_EQ(target.TraceStop(0), 0);
}

TEST_F(SimulatedTargetTest, OnlyUartAndManchesterPinProtocolsAndUartRuns) {
  ASSERT_TRUE(line.ready()) << line.why();
  EXPECT_EQ(target.SetPinProtocol(0, eSWO_ENCODING_NONE), -1);
  EXPECT_EQ(target.SetPinProtocol(0, static_cast<eSWO_ENCODING>(7)), -1);
  EXPECT_EQ(target.SetPinProtocol(0, eSWO_ENCODING_MANCHESTER), 0);
  EXPECT_EQ(target.ProgramTpiu(0), 0);
  EXPECT_EQ(target.EnableTpiu(0), -1) << "the simulated line carries UART framing only";
}

TEST_F(SimulatedTargetTest, EnablingBeforeProgrammingIsRefused) {
  ASSERT_TRUE(line.ready()) << line.why();
  EXPECT_EQ(target.SetPinProtocol(0, eSWO_ENCODING_UART), 0);
  EXPECT_EQ(target.EnableTpiu(0), -1);
}

TEST_F(SimulatedTargetTest, TimestampPrescalesAreOneFourSixteenOrSixtyFour) {
  ASSERT_TRUE(line.ready()) << line.why();
  for (const std::uint32_t prescale : {1u, 4u, 16u, 64u}) {
    EXPECT_EQ(target.SetTimestampPrescaler(0, static_cast<eSWO_TS_PRESCALAR>(prescale)), 0) << prescale;
  }
  for (const std::uint32_t prescale : {0u, 2u, 8u, 32u, 128u}) {
    EXPECT_EQ(target.SetTimestampPrescaler(0, static_cast<eSWO_TS_PRESCALAR>(prescale)), -1) << prescale;
  }
}

TEST_F(SimulatedTargetTest, TheExportStatusIsAlwaysReady) {
  std::uint32_t status = 5;
  EXPECT_EQ(target.GetTraceExportStatus(0, &status), 0);
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(target.GetTraceExportStatus(0, nullptr), 0);
}
