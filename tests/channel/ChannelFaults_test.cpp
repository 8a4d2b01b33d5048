// Faults during a recording, each with what is kept and what the host is
// told: the port failing or vanishing under the reader, the capture file
// unable to grow, every trace-interface slot failing, the options file
// changing or disappearing between loads.
#include <chrono>
#include <cstdio>
#include <stdexcept>

#include "RecordingFixture.h"

using namespace vestrel_test;

namespace {

class ChannelFaultsTest : public ChannelRecordingTest {
 protected:
  // The collector ends by itself on a fault; the driver is not told.
  void waitUntilTheCollectorGivesUp() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!driver->collector()->isFinished()) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the collector went on after the fault";
      KV_ORV::yield();
    }
  }
  std::string statusText() {
    Kv::Orv::Trace::ChannelStatus status;
    driver->GetStatus(status);
    return status.text;
  }
  std::string capture() { return readFile(driver->captureFilePath()); }
  // A stop after a halt, as the host does it.
  void haltAndStop() {
    driver->SetTargetState(7);
    driver->StopRecording();
  }
  // A recording on a port that works, after whatever happened before.
  void recordAgain(const std::string& bytes) {
    FakeSerialApi healthy;
    ScopedSerialApi use(healthy);
    healthy.push(bytes);
    driver->StartRecording(false);
    while (healthy.deliveredBytes < bytes.size()) KV_ORV::yield();
    haltAndStop();
    EXPECT_EQ(capture(), bytes);
    EXPECT_EQ(statusText(), "Stopped by user");
  }
  static int countStartingWith(const Strings& calls, const std::string& prefix) {
    return static_cast<int>(
        std::count_if(calls.begin(), calls.end(), [&](const std::string& call) { return call.rfind(prefix, 0) == 0; }));
  }
  std::size_t count(const Strings& calls, const std::string& name) {
    return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), name));
  }
};

}  // namespace

TEST_F(ChannelFaultsTest, AReadFailureMidCaptureKeepsEveryByteBeforeItAndTheNextRecordingWorks) {
  configure();
  port.push("SWO ");
  port.push("bytes ");
  port.push("lost");
  port.readFailsAfter = 10;
  driver->StartRecording(false);
  waitUntilTheCollectorGivesUp();
  EXPECT_EQ(capture(), "SWO bytes ");
  EXPECT_TRUE(log.contains("Vestrel_UARTCollector: Reading COM port failed with error code 22"));
  // The host is told nothing else: the recording simply stops growing.
  EXPECT_EQ(statusText(), "Recording");
  EXPECT_EQ(driver->GetNumSamples(), 2u);
  haltAndStop();
  EXPECT_EQ(driver->state(), 5u);
  EXPECT_TRUE(portClosed());
  EXPECT_EQ(port.state, port.opened);
  EXPECT_EQ(capture(), "SWO bytes ");
  recordAgain("the next recording");
}

TEST_F(ChannelFaultsTest, ACaptureFileThatCannotGrowKeepsTheBytesWrittenAndTheNextRecordingWorks) {
  configure();
  port.push("12345678");
  port.push("9abcdef0");
  port.push("never written");
  port.writeFailsAfter = 16;
  driver->StartRecording(false);
  waitUntilTheCollectorGivesUp();
  EXPECT_EQ(capture(), "123456789abcdef0");
  EXPECT_TRUE(log.contains("Vestrel_UARTCollector: Writing to binary file failed with error code 112"));
  EXPECT_EQ(statusText(), "Recording");
  EXPECT_EQ(driver->GetNumSamples(), 2u);
  std::uint64_t samples[2] = {};
  std::uint32_t got = 0;
  EXPECT_EQ(driver->SeekReadTraceData(0, 2, samples, &got), 2u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(samples), 16), "123456789abcdef0");
  haltAndStop();
  EXPECT_TRUE(portClosed());
  recordAgain("after the disk was freed");
}

// A USB serial port unplugged under the reader: reads fail, and so does
// everything the clean-up then asks of the port; each failure is logged, the
// stop completes, and the port cannot be opened until it is back.
TEST_F(ChannelFaultsTest, APortThatVanishesEndsTheCaptureAndCannotBeOpenedUntilItIsBack) {
  configure();
  port.push("before the unplug");
  port.readFailsAfter = 17;
  driver->StartRecording(false);
  waitUntilTheCollectorGivesUp();
  // The clean-up's calls are the next purge and the next setState.
  port.failCall("purge", countStartingWith(portCalls(), "purge(") + 1, 22);
  port.failCall("setState", countStartingWith(portCalls(), "setState(") + 1, 22);
  port.failCall("closePort", 1, 6);
  haltAndStop();
  EXPECT_EQ(capture(), "before the unplug");
  EXPECT_EQ(driver->state(), 5u);
  EXPECT_EQ(driver->collector(), nullptr);
  EXPECT_TRUE(log.contains("Vestrel_UARTCollector: Purge Comm failed with error code = 22."));
  EXPECT_TRUE(log.contains("Vestrel_UARTCollector: Restoring communication state failed with error code 22"));
  EXPECT_TRUE(log.contains("Vestrel_UARTCollector: Releasing port handle failed with error code 6"));
  {
    FakeSerialApi gone;
    ScopedSerialApi use(gone);
    gone.failCall("openPort", 1, 2);  // ERROR_FILE_NOT_FOUND
    EXPECT_EQ(hexkitText([&] { driver->StartRecording(false); }), "Failed to open COM port");
    EXPECT_EQ(driver->state(), 5u);
    EXPECT_FALSE(driver->collectorRunning());
  }
  recordAgain("plugged in again");
}

// The trace interface is the host's: a slot may report a failure or throw.
// Either way no capture is left running, the port is closed, the driver keeps
// its state and the host gets the failure; the next start works.
TEST_F(ChannelFaultsTest, EverySlotThatStartingCallsFailsWithoutLeavingACaptureBehind) {
  configure();
  const int checkedSlots[] = {12, 48, 49, 3, 4};  // their results are checked
  const int everySlot[] = {5, 6, 34, 35, 12, 48, 49, 3, 4};
  trace.exportStatus = 0x3;  // so that the acknowledgement (slot 35) is called
  for (const int slot : everySlot) {
    for (const bool throws : {false, true}) {
      const bool checked = std::find(std::begin(checkedSlots), std::end(checkedSlots), slot) != std::end(checkedSlots);
      if (!throws && !checked) continue;
      FakeSerialApi slotPort;
      ScopedSerialApi use(slotPort);
      trace.results.clear();
      trace.throwing.clear();
      if (throws) {
        trace.throwing.insert(slot);
      } else {
        trace.results[slot] = -1;
      }
      std::string failure;
      try {
        driver->StartRecording(false);
      } catch (const std::runtime_error& e) {
        failure = e.what();
      } catch (const Kv::Orv::Hexkit::cHexkitError& e) {
        failure = e.GetMessage();
      }
      EXPECT_FALSE(failure.empty()) << "slot " << slot << (throws ? " throwing" : " failing");
      if (throws) {
        EXPECT_EQ(failure.rfind("host: ", 0), 0u) << failure;
      }
      EXPECT_EQ(driver->state(), 2u) << slot;
      EXPECT_FALSE(driver->collectorRunning()) << slot;
      EXPECT_EQ(driver->collector(), nullptr) << slot;
      const Strings calls = slotPort.callsSnapshot();
      // Slots called before the port opens leave it unopened.
      EXPECT_EQ(count(calls, "openPort(\\\\.\\COM7)"), count(calls, "closePort")) << slot;
    }
  }
  trace.results.clear();
  trace.throwing.clear();
  recordAgain("after every slot failed once");
}

// Stopping: a host whose TraceStop throws keeps the capture running (nothing
// is lost); the next stop completes it.
TEST_F(ChannelFaultsTest, AThrowingStopSlotLeavesTheCaptureRunningUntilAStopSucceeds) {
  configure();
  port.push("kept");
  driver->StartRecording(false);
  while (port.deliveredBytes < 4) KV_ORV::yield();
  driver->SetTargetState(7);
  trace.throwing = {6};
  EXPECT_THROW(driver->StopRecording(), std::runtime_error);
  EXPECT_EQ(statusText(), "Recording");
  EXPECT_TRUE(driver->collectorRunning());
  trace.throwing.clear();
  driver->StopRecording();
  EXPECT_EQ(statusText(), "Stopped by user");
  EXPECT_TRUE(portClosed());
  EXPECT_EQ(capture(), "kept");
}

TEST_F(ChannelFaultsTest, AnOptionsFileChangedBetweenLoadsTakesEffectAtTheNextStart) {
  configure();
  driver->StartRecording(false);
  haltAndStop();
  configure({{"PRESCALARVAL", "17"}, {"TSPRESCALAR", "4"}});
  driver->StartRecording(false);
  EXPECT_EQ(driver->collector()->baudRate(), 4000000u);
  EXPECT_EQ(trace.calls.at(3), "SetTpiuPrescaler(7, 17)");
  EXPECT_EQ(trace.calls.at(5), "SetTimestampPrescaler(7, 4)");
  haltAndStop();
}

TEST_F(ChannelFaultsTest, AnOptionsFileThatDisappearsOrBreaksLeavesTheLastConfigurationInForce) {
  configure({{"PRESCALARVAL", "17"}});
  const std::string path = dir.file("options.xml");
  std::remove(path.c_str());
  // Xerces reports a missing file as a fatal parse error, and every parse
  // error reaches the host as one text.
  EXPECT_EQ(hexkitText([&] { driver->SetConfiguration(path.c_str()); }),
            "Undefined exception occurred while parsing emulation setup file");
  std::ofstream(path, std::ios::binary) << "<CHANNEL-SETUP><VERSION version=\"1.1.0.0\"/><RCVRNAME>SWO Trace";
  EXPECT_EQ(hexkitText([&] { driver->SetConfiguration(path.c_str()); }),
            "Undefined exception occurred while parsing emulation setup file");
  EXPECT_EQ(driver->state(), 2u);
  driver->StartRecording(false);
  EXPECT_EQ(driver->collector()->baudRate(), 4000000u);
  EXPECT_EQ(trace.calls.at(3), "SetTpiuPrescaler(7, 17)");
}

// A configuration during a recording takes effect at the next start, which
// first stops the old capture; the bytes of both captures are each kept.
TEST_F(ChannelFaultsTest, ConfiguringDuringARecordingThenStartingAgainCapturesWithTheNewSettings) {
  configure();
  port.push("first capture");
  driver->StartRecording(false);
  while (port.deliveredBytes < 13) KV_ORV::yield();
  configure({{"PRESCALARVAL", "8"}});
  EXPECT_EQ(statusText(), "Ready to record");
  EXPECT_EQ(capture(), "first capture");
  driver->StartRecording(false);
  EXPECT_EQ(count(portCalls(), "closePort"), 1u);  // the first capture's port
  EXPECT_EQ(driver->collector()->baudRate(), 8000000u);
  port.push("second");
  while (port.deliveredBytes < 19) KV_ORV::yield();
  haltAndStop();
  EXPECT_EQ(capture(), "second");
  EXPECT_EQ(driver->GetNumSamples(), 1u);
}
