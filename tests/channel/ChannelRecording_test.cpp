#include "RecordingFixture.h"

using namespace vestrel_test;

TEST_F(ChannelRecordingTest, StartAfterConfigurationProgramsTheTpiuOnceThePortListens) {
  configure();
  driver->StartRecording(false);
  Strings expected = {"TraceOff(7)", "TraceStop(7)", "GetTraceExportStatus(7)"};
  expected.insert(expected.end(), kTpiuCalls.begin(), kTpiuCalls.end());
  EXPECT_EQ(trace.calls, expected);
  EXPECT_EQ(driver->state(), 3u);
  EXPECT_TRUE(driver->collectorRunning());
  EXPECT_EQ(portCalls().front(), "openPort(\\\\.\\COM7)");
  EXPECT_EQ(driver->collector()->baudRate(), 2000000u);
  EXPECT_EQ(log.rawLineOf("Vestrel_ChannelDriver: Requested Trace Clock Frequency is 72000000.000000").substr(0, 6),
            "    E ");
}

TEST_F(ChannelRecordingTest, BytesFromThePortLandInTheCaptureFile) {
  configure();
  port.push("SWO bytes");
  driver->StartRecording(false);
  while (port.deliveredBytes < 9) KV_ORV::yield();
  driver->SetTargetState(7);
  driver->StopRecording();
  EXPECT_EQ(vestrel_test::readFile(driver->captureFilePath()), "SWO bytes");
  EXPECT_EQ(driver->GetNumSamples(), 2u);
}

TEST_F(ChannelRecordingTest, StartWhileRecordingLeavesTheCaptureAlone) {
  configure();
  driver->StartRecording(false);
  trace.calls.clear();
  const std::size_t portCallsBefore = portCalls().size();
  driver->StartRecording(false);
  EXPECT_TRUE(trace.calls.empty());
  EXPECT_EQ(portCalls().size(), portCallsBefore);
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver: Cannot start recording since recording is already in progress"));
}

TEST_F(ChannelRecordingTest, StopWhileRunningIsRefusedAndAfterAHaltItStopsTheCapture) {
  configure();
  driver->StartRecording(false);
  driver->SetTargetState(6);
  EXPECT_EQ(hexkitText([&] { driver->StopRecording(); }),
            "Trace cannot be stopped while target is running. Please halt the target.");
  EXPECT_EQ(driver->state(), 3u);
  EXPECT_TRUE(driver->collectorRunning());
  trace.calls.clear();
  driver->SetTargetState(7);
  driver->StopRecording();
  EXPECT_EQ(trace.calls, (Strings{"TraceStop(7)", "TraceOff(7)"}));
  EXPECT_EQ(driver->state(), 5u);
  EXPECT_FALSE(driver->collectorRunning());
  EXPECT_EQ(driver->collector(), nullptr);
  EXPECT_EQ(port.state, port.opened);  // restored
  EXPECT_TRUE(portClosed());
}

TEST_F(ChannelRecordingTest, AManualClockOfZeroFailsBeforeAnyPortOrTpiuCall) {
  configure({{"CLKFREQVAL", "0"}});
  EXPECT_EQ(hexkitText([&] { driver->StartRecording(false); }), "Invalid trace clock frequency");
  EXPECT_EQ(trace.calls, (Strings{"TraceOff(7)", "TraceStop(7)", "GetTraceExportStatus(7)"}));
  EXPECT_TRUE(portCalls().empty());
  EXPECT_EQ(driver->state(), 2u);
}

TEST_F(ChannelRecordingTest, ARateThatDoesNotFitThirtyTwoBitsFailsBeforeAnyPortOrTpiuCall) {
  struct Case {
    const char* clock;
    const char* prescaler;
  };
  // Below 1 baud, 2^32 baud or more, an infinite clock, and the prescaler
  // whose divisor would wrap to 0.
  for (const Case& c : {Case{"72000000", "4294967295"}, Case{"1e10", "0"}, Case{"4294967296", "0"}, Case{"inf", "0"},
                        Case{"1e300", "4294967295"}, Case{"100", "100"}}) {
    configure({{"CLKFREQVAL", c.clock}, {"PRESCALARVAL", c.prescaler}});
    EXPECT_EQ(hexkitText([&] { driver->StartRecording(false); }), "Invalid trace clock frequency") << c.clock;
    EXPECT_EQ(trace.calls, (Strings{"TraceOff(7)", "TraceStop(7)", "GetTraceExportStatus(7)"})) << c.clock;
    EXPECT_TRUE(portCalls().empty()) << c.clock;
    EXPECT_EQ(driver->state(), 2u);
  }
}

TEST_F(ChannelRecordingTest, TheLargestRateThatFitsIsAccepted) {
  configure({{"CLKFREQVAL", "4294967295"}, {"PRESCALARVAL", "0"}});
  driver->StartRecording(false);
  EXPECT_EQ(driver->state(), 3u);
  EXPECT_EQ(port.state.BaudRate, 4294967295u);
  driver->SetTargetState(7);
  driver->StopRecording();
}

TEST_F(ChannelRecordingTest, AnAutomaticPrescalerStartsFromTheClockItselfWhichMustFit) {
  configure({{"CLKFREQVAL", "5e9"}, {"PRESCALAR", "Auto"}});
  EXPECT_EQ(hexkitText([&] { driver->StartRecording(false); }), "Invalid trace clock frequency");
  EXPECT_TRUE(portCalls().empty());
}

TEST_F(ChannelRecordingTest, AnAutomaticClockBeyondThirtyTwoBitsIsUndeterminedBeforeAnyPortOrTpiuCall) {
  configure({{"CLKFREQ", "Auto"}});
  device.code = 0xF0F0F0F0;
  device.reg("DID0", 0x400FE000, 0x100A0000);
  device.reg("RSCLKCFG", 0x400FE0B0, 0x10000000);
  device.reg("PLLFREQ0", 0x400FE160, 1023 | 1023 << 10);
  device.reg("PLLFREQ1", 0x400FE164, 0);
  EXPECT_EQ(hexkitText([&] { driver->StartRecording(false); }),
            "Could not determine the System clock frequency automatically. Please set it manually in the receiver "
            "properties.");
  EXPECT_EQ(trace.calls, (Strings{"TraceOff(7)", "TraceStop(7)", "GetTraceExportStatus(7)"}));
  EXPECT_TRUE(portCalls().empty());
}

TEST_F(ChannelRecordingTest, ATpiuFailureAtAnyStepStopsTheCaptureAndClosesThePort) {
  struct Step {
    int slot;
    const char* text;
    const char* line;
  };
  const Step steps[] = {
      {12, "Invalid Prescalar Value", "Vestrel_ChannelDriver: Failed to setup TPIU prescalar"},
      {48, "Invalid Pin Protocol", "Vestrel_ChannelDriver: Failed to setup TPIU pin protocol"},
      {49, "Failed to configure timestamping resolution",
       "Vestrel_ChannelDriver: Failed to setup timestamping resolution"},
      {3, "Failed to program TPIU", "Vestrel_ChannelDriver: Failed to program TPIU"},
      {4, "Failed to Enable TPIU for SWO trace", "Vestrel_ChannelDriver: Failed to enable TPIU for tracing"},
  };
  configure();
  for (const Step& step : steps) {
    vestrel_test::FakeSerialApi stepPort;
    ScopedSerialApi use(stepPort);
    trace.results.clear();
    trace.results[step.slot] = -1;
    int severity = 0;
    EXPECT_EQ(hexkitText([&] { driver->StartRecording(false); }, &severity), step.text);
    EXPECT_EQ(severity, 2);
    EXPECT_EQ(driver->state(), 2u);
    EXPECT_FALSE(driver->collectorRunning());
    EXPECT_EQ(driver->collector(), nullptr);
    EXPECT_EQ(stepPort.callsSnapshot().back(), "closeFile") << step.slot;
    EXPECT_TRUE(log.contains(step.line)) << step.slot;
  }
}

TEST_F(ChannelRecordingTest, TheCalibratedPrescalerReachesTheTpiu) {
  port.reportedRate = [](std::uint32_t rate) { return rate > 12000000 ? 12000000u : rate; };
  configure({{"PRESCALAR", "Auto"}, {"CLKFREQVAL", "48000000"}});
  driver->StartRecording(false);
  EXPECT_EQ(trace.calls.at(3), "SetTpiuPrescaler(7, 3)");
  EXPECT_EQ(driver->prescaler(), 3u);
}

TEST_F(ChannelRecordingTest, AnAutomaticClockIsReadFromTheDevice) {
  device.code = 0x0B9AF02F;
  device.reg("CSCTL0", 0x180, 0x00030000);
  device.reg("CSCTL1", 0x182, 0x00010003);
  configure({{"CLKFREQ", "Auto"}, {"PRESCALARVAL", "2"}});
  driver->StartRecording(false);
  EXPECT_EQ(driver->traceClockHz(), 6000000.0);
  EXPECT_EQ(driver->collector()->baudRate(), 2000000u);
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver: Auto Trace Clock Frequency is 6000000.000000"));
}

TEST_F(ChannelRecordingTest, AnUndeterminableClockFailsBeforeThePortIsOpened) {
  device.code = 0x12345678;
  configure({{"CLKFREQ", "Auto"}});
  EXPECT_EQ(hexkitText([&] { driver->StartRecording(false); }),
            "Could not determine the System clock frequency automatically. Please set it manually in the receiver "
            "properties.");
  EXPECT_TRUE(portCalls().empty());
  EXPECT_EQ(driver->state(), 2u);
}

TEST_F(ChannelRecordingTest, AnOswinDeviceNamesTheExceptionMap) {
  device.code = 0xF0F0F0F0;
  device.reg("DID0", 0x400FE000, 0x100A0000);
  configure();
  driver->StartRecording(false);
  EXPECT_EQ(driver->exceptionMapName(), "MOD_EXCEPTIONMAP_129");
}

TEST_F(ChannelRecordingTest, OtherDevicesKeepTheDefaultExceptionMap) {
  device.code = 0x0B9AF02F;
  configure();
  driver->StartRecording(false);
  EXPECT_EQ(driver->exceptionMapName(), "MOD_EXCEPTIONMAP");
}

TEST_F(ChannelRecordingTest, CalderFirmwareFrom1008SendsABreakAtTheStop) {
  configure({{"RCVRFWVER", "V 1.0.0.8"}});
  driver->StartRecording(false);
  driver->SetTargetState(7);
  driver->StopRecording();
  EXPECT_TRUE(port.breakSet);
  EXPECT_EQ(port.readsAfterBreak, 10u);
}

TEST_F(ChannelRecordingTest, OlderFirmwareAndOtherProbesSendNoBreak) {
  configure({{"RCVRFWVER", "V 1.0.0.7"}});
  driver->StartRecording(false);
  driver->SetTargetState(7);
  driver->StopRecording();
  EXPECT_FALSE(port.breakSet);

  vestrel_test::FakeSerialApi harrowPort;
  ScopedSerialApi use(harrowPort);
  driver->SetProbeKind(kHarrowProbe);
  configure({{"RCVRFWVER", "V 9.0.0.0"}});
  driver->StartRecording(false);
  driver->StopRecording();
  EXPECT_FALSE(harrowPort.breakSet);
}

TEST_F(ChannelRecordingTest, APortThatCannotOpenFailsWithItsOwnMessage) {
  port.failCall("openPort", 1, 2);
  configure();
  EXPECT_EQ(hexkitText([&] { driver->StartRecording(false); }), "Failed to open COM port");
  EXPECT_EQ(driver->state(), 2u);
  EXPECT_EQ(trace.calls, (Strings{"TraceOff(7)", "TraceStop(7)", "GetTraceExportStatus(7)"}));
}

TEST_F(ChannelRecordingTest, ANewStartAfterAStopRunsAFreshCollector) {
  configure();
  driver->StartRecording(false);
  driver->SetTargetState(7);
  driver->StopRecording();
  driver->StartRecording(false);
  EXPECT_EQ(driver->state(), 3u);
  EXPECT_TRUE(driver->collectorRunning());
  const Strings calls = portCalls();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "openPort(\\\\.\\COM7)"), 2);
}

TEST_F(ChannelRecordingTest, ConfiguringDuringARecordingLeavesTheCollectorRunningUntilTheNextStart) {
  configure();
  driver->StartRecording(false);
  configure({{"PRESCALARVAL", "17"}});
  EXPECT_EQ(driver->state(), 2u);
  EXPECT_TRUE(driver->collectorRunning());
  driver->SetTargetState(7);
  driver->StopRecording();
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver: Cannot stop recording as recording has not started yet"));
  EXPECT_TRUE(driver->collectorRunning());
  driver->StartRecording(false);  // stops the old collector first
  const Strings calls = portCalls();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "closePort"), 1);
  EXPECT_EQ(driver->collector()->baudRate(), 4000000u);
}

TEST_F(ChannelRecordingTest, DestroyingARecordingDriverStopsTheCaptureAndRestoresThePort) {
  configure();
  driver->StartRecording(false);
  driver->SetTargetState(7);
  driver.reset();
  EXPECT_TRUE(portClosed());
  EXPECT_EQ(port.state, port.opened);
  EXPECT_EQ(trace.calls.back(), "ReleaseTrace(7)");
}

TEST_F(ChannelRecordingTest, StartAndStopFromEveryState) {
  configure();
  struct Row {
    std::uint32_t state;
    bool starts;  // goes on to open the port and program the TPIU
    const char* startLine;
  };
  const Row rows[] = {
      {0, false, "Vestrel_ChannelDriver: Cannot start recording unless caltibration is complete"},
      {1, false, "Vestrel_ChannelDriver: Cannot start recording unless caltibration is complete"},
      {2, true, nullptr},
      {3, false, "Vestrel_ChannelDriver: Cannot start recording since recording is already in progress"},
      {4, true, nullptr},
      {5, true, nullptr},
  };
  for (const Row& row : rows) {
    vestrel_test::FakeSerialApi rowPort;
    ScopedSerialApi use(rowPort);
    Kv::Orv::Trace::Vestrel::ChannelDriverTestAccess::setState(*driver, row.state);
    driver->SetTargetState(5);
    driver->StartRecording(false);
    EXPECT_EQ(driver->collectorRunning(), row.starts) << row.state;
    EXPECT_EQ(driver->state(), row.starts ? 3u : row.state) << row.state;
    if (row.startLine != nullptr) {
      EXPECT_EQ(log.lines().back(), row.startLine) << row.state;
    }
    driver->SetTargetState(7);
    if (!row.starts && row.state != 3) {
      driver->StopRecording();
      EXPECT_EQ(log.lines().back(), "Vestrel_ChannelDriver: Cannot stop recording as recording has not started yet");
      EXPECT_EQ(driver->state(), row.state);
    } else {
      driver->StopRecording();
      EXPECT_EQ(driver->state(), 5u) << row.state;
      EXPECT_FALSE(driver->collectorRunning());
    }
  }
}
