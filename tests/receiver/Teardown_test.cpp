// Releasing a driver and destroying the receiver while the host's trace slots
// throw: the teardown finishes, logs what failed and never ends the process.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>

#include "ChannelDriver.h"
#include "FakeOsServices.h"
#include "FakeSerialApi.h"
#include "FakeSerialDevices.h"
#include "FakeTraceInterface.h"
#include "ProbeScenario.h"
#include "Receiver.h"
#include "TestLog.h"
#include "cHexkitError.h"

using Kv::Orv::Hexkit::cHexkitError;
using Kv::Orv::Trace::CChannelDriver;
using namespace Kv::Orv::Trace::Vestrel;
using namespace vestrel_test;

namespace {

class TeardownTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scenario.workingProbe();
    receiver = std::make_unique<Receiver>();
  }
  ChannelDriver* readyDriver(const char* cpu, std::uint32_t handle) {
    auto* driver = dynamic_cast<ChannelDriver*>(receiver->GetChannelDriver(cpu, &trace, handle, 0));
    const std::string path = dir.file("options.xml");
    std::ofstream(path, std::ios::binary)
        << "<CHANNEL-SETUP><VERSION version=\"1.1.0.0\"/><RCVRNAME>SWO Trace</RCVRNAME><RCVRFWVER>V "
           "1.0.0.9</RCVRFWVER><ENCTYPE>UART</ENCTYPE><PRESCALAR>Manual</PRESCALAR>"
           "<PRESCALARVAL>35</PRESCALARVAL><CLKFREQ>Manual</CLKFREQ><CLKFREQVAL>72000000</CLKFREQVAL>"
           "<COMPORT>7</COMPORT><TSPRESCALAR>16</TSPRESCALAR></CHANNEL-SETUP>";
    driver->SetConfiguration(path.c_str());
    return driver;
  }
  ChannelDriver* recordingDriver(const char* cpu, std::uint32_t handle) {
    ChannelDriver* driver = readyDriver(cpu, handle);
    port.push("SWO");
    driver->SetTargetState(5);
    driver->StartRecording(false);
    while (port.deliveredBytes < 3) KV_ORV::yield();
    driver->SetTargetState(7);
    return driver;
  }
  bool portClosed() {
    const auto calls = port.callsSnapshot();
    return std::find(calls.begin(), calls.end(), "closePort") != calls.end();
  }

  TestLog log{"1", TestLog::StartupNamed{}};
  FakeOsServices fake;
  KV_ORV::ScopedOsOverride override{fake};
  ProbeScenario scenario;
  ScratchDirectory dir;
  FakeSerialDevices devices;
  ScopedSerialDeviceSource noPorts{devices};
  FakeSerialApi port;
  ScopedSerialApi usePort{port};
  FakeTraceInterface trace;
  std::unique_ptr<Receiver> receiver;
};

const char* const kStopFailed =
    "Vestrel_ChannelDriver: TraceStop failed while the driver was destroyed: host: TraceStop failed";
const char* const kReleaseFailed =
    "Vestrel_ChannelDriver: ReleaseTrace failed while the driver was destroyed: host: ReleaseTrace failed";

}  // namespace

TEST_F(TeardownTest, ReleasingAReadyDriverWhoseStopAndReleaseSlotsThrowFinishesAndLogsBoth) {
  ChannelDriver* driver = readyDriver("Probe1/A", 3);
  trace.throwing = {2, 6};
  trace.calls.clear();
  EXPECT_NO_THROW(receiver->ReleaseChannelDriver(driver));
  EXPECT_EQ(receiver->GetNumAttachedCpus(), 0u);
  EXPECT_EQ(trace.calls, (std::vector<std::string>{"GetTraceExportStatus(3)", "TraceStop(3)", "ReleaseTrace(3)"}));
  EXPECT_TRUE(log.contains(kStopFailed));
  EXPECT_TRUE(log.contains(kReleaseFailed));
  // Failures are written at the error level (16), with the time of day.
  EXPECT_EQ(log.rawLineOf(kStopFailed).substr(0, 6), "    E ");
  EXPECT_EQ(log.rawLineOf(kReleaseFailed).substr(0, 6), "    E ");
}

TEST_F(TeardownTest, ReleasingARecordingDriverWhoseSlotsThrowStillStopsTheCollector) {
  ChannelDriver* driver = recordingDriver("Probe1/A", 3);
  trace.throwing = {2, 6};
  trace.calls.clear();
  EXPECT_NO_THROW(receiver->ReleaseChannelDriver(driver));
  // StopRecording's own TraceStop throws first and is swallowed; the guarded
  // one follows, then the collector stops and the release is tried.
  EXPECT_EQ(trace.calls, (std::vector<std::string>{"TraceStop(3)", "TraceStop(3)", "ReleaseTrace(3)"}));
  EXPECT_TRUE(portClosed());
  EXPECT_EQ(port.state, port.opened);
  EXPECT_TRUE(log.contains(kStopFailed));
  EXPECT_TRUE(log.contains(kReleaseFailed));
}

TEST_F(TeardownTest, DestroyingTheReceiverWithThrowingSlotsTearsDownEveryDriver) {
  readyDriver("Probe1/A", 1);
  recordingDriver("Probe1/B", 2);
  trace.throwing = {2, 6};
  trace.calls.clear();
  EXPECT_NO_THROW(receiver.reset());
  EXPECT_EQ(std::count(trace.calls.begin(), trace.calls.end(), "ReleaseTrace(1)"), 1);
  EXPECT_EQ(std::count(trace.calls.begin(), trace.calls.end(), "ReleaseTrace(2)"), 1);
  EXPECT_TRUE(portClosed());
  EXPECT_EQ(log.linesStartingWith(kReleaseFailed).size(), 2u);
}

TEST_F(TeardownTest, AThrowingDeviceIdentifierDestroyIsLoggedAfterTheWholeTeardownAndPassedOn) {
  readyDriver("Probe1/A", 1);
  scenario.workingProbe("destroy_identifier = throw\n");
  Receiver* raw = receiver.release();
  try {
    delete raw;
    FAIL() << "the failure was not passed on";
  } catch (const cHexkitError& error) {
    EXPECT_STREQ(error.GetMessage(), "device identifier: destroy failed");
  }
  EXPECT_EQ(std::count(trace.calls.begin(), trace.calls.end(), "ReleaseTrace(1)"), 1);
  EXPECT_TRUE(
      log.contains("Vestrel_Receiver: Destroying the device identifier failed: device identifier: destroy failed"));
}
