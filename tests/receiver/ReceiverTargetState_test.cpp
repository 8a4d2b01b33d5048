// How the receiver forwards the host's target-state changes to the driver
// of the CPU they name: a running target starts a recording, a halted one
// stops it, a CPU that is no longer connected is unregistered.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ChannelDriver.h"
#include "ChannelDriverTestAccess.h"
#include "ReceiverFixture.h"
#include "cHexkitError.h"

using Kv::Orv::Hexkit::cHexkitError;
using Kv::Orv::Trace::CReceiver;
using namespace Kv::Orv::Trace::Vestrel;

namespace {

class TargetStateTest : public vestrel_test::ReceiverTest {
 protected:
  void SetUp() override {
    ReceiverTest::SetUp();
    receiver = std::make_unique<Receiver>();
    driver = dynamic_cast<ChannelDriver*>(driverFor(*receiver, "Probe1/A"));
    trace.calls.clear();
  }
  void TearDown() override { receiver.reset(); }
  std::unique_ptr<Receiver> receiver;
  ChannelDriver* driver = nullptr;
};

}  // namespace

TEST_F(TargetStateTest, NotConnectedUnregistersTheCpuWithoutAStop) {
  for (std::uint32_t state : {3u, 4u}) {
    driver->SetHaltState("Probe1/A", true);
    ChannelDriverTestAccess::setState(*driver, 3);
    receiver->OnTargetStateChanged("Probe1/A", state);
    EXPECT_EQ(driver->targetState(), state);
    EXPECT_TRUE(driver->haltList().empty());
    EXPECT_EQ(driver->state(), 3u) << "the untouched record never says recording";
    EXPECT_TRUE(trace.calls.empty());
  }
}

TEST_F(TargetStateTest, RunningStartsARecordingThatIsNotRunning) {
  for (std::uint32_t state : {5u, 6u}) {
    receiver->OnTargetStateChanged("Probe1/A", state);
    ASSERT_EQ(driver->haltList().size(), 1u);
    EXPECT_FALSE(driver->haltList()[0].halted);
  }
  const auto lines = log.lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(),
                       "Vestrel_ChannelDriver: Cannot start recording unless caltibration is complete"),
            2);
}

TEST_F(TargetStateTest, RunningLeavesARunningRecordingAlone) {
  ChannelDriverTestAccess::setState(*driver, 3);
  receiver->OnTargetStateChanged("Probe1/A", 5);
  EXPECT_TRUE(trace.calls.empty());
  EXPECT_FALSE(log.contains("Vestrel_ChannelDriver: Cannot start recording since recording is already in progress"));
}

TEST_F(TargetStateTest, ARunningTargetWithAReadyDriverStartsItWithArgumentZero) {
  ChannelDriverTestAccess::setState(*driver, 2);
  EXPECT_THROW(receiver->OnTargetStateChanged("Probe1/A", 5), cHexkitError);
  EXPECT_EQ(trace.calls.front(), "TraceOff(7)");
}

TEST_F(TargetStateTest, HaltingStopsARunningRecording) {
  for (std::uint32_t state : {7u, 8u}) {
    ChannelDriverTestAccess::setState(*driver, 3);
    trace.calls.clear();
    receiver->OnTargetStateChanged("Probe1/A", state);
    ASSERT_EQ(driver->haltList().size(), 1u);
    EXPECT_TRUE(driver->haltList()[0].halted);
    EXPECT_EQ(trace.calls, (std::vector<std::string>{"TraceStop(7)", "TraceOff(7)"}));
    EXPECT_EQ(driver->state(), 5u);
  }
}

TEST_F(TargetStateTest, HaltingWithoutARecordingStopsNothing) {
  receiver->OnTargetStateChanged("Probe1/A", 7);
  EXPECT_TRUE(trace.calls.empty());
  EXPECT_TRUE(driver->haltList()[0].halted);
}

TEST_F(TargetStateTest, OtherStatesAreOnlyStored) {
  receiver->OnTargetStateChanged("Probe1/A", 9);
  EXPECT_EQ(driver->targetState(), 9u);
  EXPECT_TRUE(driver->haltList().empty());
  EXPECT_TRUE(trace.calls.empty());
}

TEST_F(TargetStateTest, UnknownAndNullCpusAreIgnored) {
  receiver->OnTargetStateChanged("Probe1/Z", 7);
  receiver->OnTargetStateChanged(nullptr, 7);
  EXPECT_EQ(driver->targetState(), 0u);
  EXPECT_TRUE(driver->haltList().empty());
}

TEST_F(TargetStateTest, JobStateZeroReachesTheDriverAndOthersDoNot) {
  CReceiver& host = *receiver;
  host.OnJobStateChanged("Probe1/A", 1);
  EXPECT_FALSE(log.contains("Vestrel_ChannelDriver: state changed to eJOB_MODIFIED_DISABLE_RESUME"));
  host.OnJobStateChanged("Probe1/A", 0);
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver: state changed to eJOB_MODIFIED_DISABLE_RESUME"));
  EXPECT_NO_THROW(host.OnJobStateChanged("Probe1/Z", 0));
  EXPECT_NO_THROW(host.OnJobStateChanged(nullptr, 0));
}
