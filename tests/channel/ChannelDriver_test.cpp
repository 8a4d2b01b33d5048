#include "ChannelDriver.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "ChannelDriverTestAccess.h"
#include "FakeTraceInterface.h"
#include "TestLog.h"
#include "ThrownText.h"
#include "cHexkitError.h"

using Kv::Orv::Hexkit::cHexkitError;
using Kv::Orv::Trace::ChannelStatus;
using Kv::Orv::Trace::CReceiver;
using Kv::Orv::Trace::Vestrel::ChannelDriver;
using Kv::Orv::Trace::Vestrel::ChannelDriverTestAccess;
using vestrel_test::FakeTraceInterface;
using vestrel_test::hexkitText;
using vestrel_test::ScopedEnv;
using vestrel_test::TestLog;

namespace {

// Any non-null owner will do: the driver only keeps the pointer.
CReceiver* const kOwner = reinterpret_cast<CReceiver*>(0x1000);

class ChannelDriverTest : public ::testing::Test {
 protected:
  std::unique_ptr<ChannelDriver> make(const char* cpuName = "Probe1/CortexM4") {
    return std::make_unique<ChannelDriver>(kOwner, cpuName, &trace, 7, 3);
  }
  ChannelStatus status(ChannelDriver& driver) {
    ChannelStatus record;
    record.text = "host text";
    record.code = 99;
    record.f0 = record.f1 = record.f2 = record.f3 = record.f4 = true;
    driver.GetStatus(record);
    return record;
  }
  static std::string flags(const ChannelStatus& s) {
    return std::string() + (s.f0 ? '1' : '0') + (s.f1 ? '1' : '0') + (s.f2 ? '1' : '0') + (s.f3 ? '1' : '0') +
           (s.f4 ? '1' : '0');
  }

  TestLog log{"3"};
  ScopedEnv loggingDir{"KV_TRACE_LOGGING_DIR", vestrel_test::onWindows() ? "C:\\trace" : "/trace"};
  FakeTraceInterface trace;
};

}  // namespace

TEST_F(ChannelDriverTest, NullParametersAreRefusedWithTheirText) {
  int severity = 0;
  EXPECT_EQ(hexkitText([&] { ChannelDriver(nullptr, "cpu", &trace, 0, 0); }, &severity),
            "Internal error creating Channel Driver. Null parameters.");
  EXPECT_EQ(severity, 2);
  EXPECT_EQ(hexkitText([&] { ChannelDriver(kOwner, nullptr, &trace, 0, 0); }),
            "Internal error creating Channel Driver. Null parameters.");
  EXPECT_EQ(hexkitText([&] { ChannelDriver(kOwner, "cpu", nullptr, 0, 0); }),
            "Internal error creating Channel Driver. Null parameters.");
  const auto lines = log.rawLines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].substr(0, 6), "    E ");
  EXPECT_EQ(log.lines()[0], "Vestrel_ChannelDriver: Internal error creating Channel Driver. Null parameters.");
  EXPECT_TRUE(trace.calls.empty());
}

TEST_F(ChannelDriverTest, ShortCpuNameIsTheCorePartOfProbeSlashCore) {
  EXPECT_EQ(make("Probe1/CortexM4")->cpuShortName(), "CortexM4");
  EXPECT_EQ(make("CortexM4")->cpuShortName(), "CortexM4");
  EXPECT_EQ(make("a/b/c")->cpuShortName(), "a/b/c");
  EXPECT_EQ(make("/core")->cpuShortName(), "core");
}

TEST_F(ChannelDriverTest, TheCaptureFileLivesInTheDataFolderOfTheLoggingDirectory) {
  auto driver = make("Probe1/CortexM4");
  if (vestrel_test::onWindows()) {
    EXPECT_EQ(driver->captureFilePath(), "C:\\trace\\data\\swotrace_CortexM4.bin");
    EXPECT_EQ(driver->loggingDir(), "C:\\trace");
  } else {
    EXPECT_EQ(driver->captureFilePath(), "/trace/data/swotrace_CortexM4.bin");
    EXPECT_EQ(driver->loggingDir(), "/trace");
  }
  EXPECT_FALSE(vestrel_test::fileExists(driver->captureFilePath()));
}

TEST_F(ChannelDriverTest, ConstructionStartsFromTheInitialValues) {
  auto driver = make();
  EXPECT_STREQ(driver->GetCpuName(), "Probe1/CortexM4");
  EXPECT_EQ(driver->cpuHandle(), 7u);
  EXPECT_EQ(driver->auxId(), 3u);
  EXPECT_EQ(driver->state(), 0u);
  EXPECT_EQ(driver->targetState(), 0u);
  EXPECT_EQ(driver->exceptionMapName(), "MOD_EXCEPTIONMAP");
  for (int type : driver->itmChannelTypes()) EXPECT_EQ(type, -1);
  EXPECT_FALSE(driver->itmSetupLoaded());
  EXPECT_TRUE(driver->haltList().empty());
  EXPECT_EQ(driver->deviceIdentifier(), nullptr);
  EXPECT_EQ(driver->targetAdapter(), nullptr);
  EXPECT_TRUE(trace.calls.empty());
}

TEST_F(ChannelDriverTest, AFreshDriverReportsCalibratingWithNoFlags) {
  auto driver = make();
  const ChannelStatus s = status(*driver);
  EXPECT_EQ(s.code, 1u);
  EXPECT_EQ(s.text, "Calibrating ...");
  EXPECT_EQ(flags(s), "00000");
}

TEST_F(ChannelDriverTest, StatusCodesTextsAndFlagsPerState) {
  struct Row {
    std::uint32_t state;
    std::uint32_t code;
    const char* text;
    const char* flags;
  };
  const Row rows[] = {
      {0, 1, "Calibrating ...", "00000"}, {1, 1, "Calibrating ...", "00000"},   {2, 16, "Ready to record", "11000"},
      {3, 6, "Recording", "10010"},       {4, 10, "Stopped by error", "11001"}, {5, 11, "Stopped by user", "11001"},
      {6, 0, "host text", "00000"},       {42, 0, "host text", "00000"},
  };
  auto driver = make();
  for (const Row& row : rows) {
    ChannelDriverTestAccess::setState(*driver, row.state);
    const ChannelStatus s = status(*driver);
    EXPECT_EQ(s.code, row.code) << row.state;
    EXPECT_EQ(s.text, row.text) << row.state;
    EXPECT_EQ(flags(s), row.flags) << row.state;
  }
  ChannelDriverTestAccess::setState(*driver, 0);
}

TEST_F(ChannelDriverTest, WithTheTargetNotConnectedTheRecordComesBackUntouched) {
  auto driver = make();
  for (std::uint32_t targetState : {3u, 4u}) {
    driver->SetTargetState(targetState);
    const ChannelStatus s = status(*driver);
    EXPECT_EQ(s.code, 99u);
    EXPECT_EQ(s.text, "host text");
    EXPECT_EQ(flags(s), "11111");
  }
  driver->SetTargetState(7);
  EXPECT_EQ(status(*driver).code, 1u);
}

TEST_F(ChannelDriverTest, HaltStateOfAnUnknownCpuIsAddedSilently) {
  auto driver = make();
  driver->SetHaltState("Probe1/CortexM4", true);
  ASSERT_EQ(driver->haltList().size(), 1u);
  EXPECT_EQ(driver->haltList()[0].cpuName, "Probe1/CortexM4");
  EXPECT_TRUE(driver->haltList()[0].halted);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ChannelDriverTest, HaltStateOfAKnownCpuIsModifiedAndLogged) {
  auto driver = make();
  driver->SetHaltState("cpuA", true);
  driver->SetHaltState("cpuB", true);
  driver->SetHaltState("cpuA", false);
  ASSERT_EQ(driver->haltList().size(), 2u);
  EXPECT_FALSE(driver->haltList()[0].halted);
  EXPECT_TRUE(driver->haltList()[1].halted);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"Vestrel_ChannelDriver: modified halt state for cpuA to 0"});
}

TEST_F(ChannelDriverTest, UnregisterRemovesTheFirstEntryAndIsSilentForAnUnknownName) {
  auto driver = make();
  driver->SetHaltState("cpuA", true);
  driver->SetHaltState("cpuB", false);
  driver->UnregisterCpu("nobody");
  EXPECT_TRUE(log.lines().empty());
  driver->UnregisterCpu("cpuA");
  ASSERT_EQ(driver->haltList().size(), 1u);
  EXPECT_EQ(driver->haltList()[0].cpuName, "cpuB");
  EXPECT_EQ(log.lines(), std::vector<std::string>{"Vestrel_ChannelDriver: CPU unregistered."});
}

TEST_F(ChannelDriverTest, HaltListLinesNeedVerbosityTwo) {
  TestLog quiet("1");
  auto driver = make();
  driver->SetHaltState("cpuA", true);
  driver->SetHaltState("cpuA", false);
  driver->UnregisterCpu("cpuA");
  EXPECT_TRUE(quiet.lines().empty());
}

TEST_F(ChannelDriverTest, SmallQueriesAnswerTheirConstants) {
  auto driver = make();
  std::uint32_t current = 0, total = 0;
  driver->GetProgress(&current, &total);
  EXPECT_EQ(current, 1u);
  EXPECT_EQ(total, 100u);
  std::string info = "before";
  driver->GetInfoText(info, 5, 9);
  EXPECT_EQ(info, "Not implemented");
  EXPECT_FALSE(driver->IsFileLoaded());
}

TEST_F(ChannelDriverTest, ResumeAndLoadAreRefused) {
  auto driver = make();
  int severity = 0;
  EXPECT_EQ(hexkitText([&] { driver->ResumeRecording(); }, &severity), "ResumeRecording not supported");
  EXPECT_EQ(severity, 2);
  EXPECT_EQ(hexkitText([&] { driver->LoadFile("x"); }), "LoadFile not supported");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ChannelDriverTest, StartWithTheTargetNotConnectedOnlyLogs) {
  auto driver = make();
  driver->SetTargetState(4);
  driver->StartRecording(false);
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"Vestrel_ChannelDriver: Cannot start recording unless target is connected"});
  EXPECT_TRUE(trace.calls.empty());
}

TEST_F(ChannelDriverTest, StartBeforeCalibrationOnlyLogs) {
  auto driver = make();
  driver->StartRecording(false);
  ChannelDriverTestAccess::setState(*driver, 1);
  driver->StartRecording(true);
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "Vestrel_ChannelDriver: Cannot start recording unless caltibration is complete",
                             "Vestrel_ChannelDriver: Cannot start recording unless caltibration is complete"}));
  EXPECT_TRUE(trace.calls.empty());
  EXPECT_EQ(driver->state(), 1u);
}

TEST_F(ChannelDriverTest, StartWhileRecordingLeavesTheCaptureAlone) {
  auto driver = make();
  ChannelDriverTestAccess::setState(*driver, 3);
  driver->StartRecording(false);
  EXPECT_EQ(log.lines(), std::vector<std::string>{
                             "Vestrel_ChannelDriver: Cannot start recording since recording is already in progress"});
  EXPECT_TRUE(trace.calls.empty());
  EXPECT_EQ(driver->state(), 3u);
}

TEST_F(ChannelDriverTest, StartWhenReadyQuiescesTraceAndClearsTheExportStatus) {
  auto driver = make();
  ChannelDriverTestAccess::setState(*driver, 2);
  trace.exportStatus = 0x5;
  // No clock was configured: the start fails after quiescing trace, before
  // any port is opened, and the state stays as it was.
  EXPECT_EQ(hexkitText([&] { driver->StartRecording(false); }), "Invalid trace clock frequency");
  EXPECT_EQ(trace.calls, (std::vector<std::string>{"TraceOff(7)", "TraceStop(7)", "GetTraceExportStatus(7)",
                                                   "AckTraceExportStatus(7, 5)"}));
  EXPECT_EQ(log.lines()[0], "Vestrel_ChannelDriver: Trace export (xmtr) status 0x5.");
  EXPECT_EQ(driver->state(), 2u);
}

TEST_F(ChannelDriverTest, AClearExportStatusIsNotAcknowledged) {
  auto driver = make();
  ChannelDriverTestAccess::setState(*driver, 5);
  EXPECT_THROW(driver->StartRecording(false), cHexkitError);
  EXPECT_EQ(trace.calls, (std::vector<std::string>{"TraceOff(7)", "TraceStop(7)", "GetTraceExportStatus(7)"}));
  EXPECT_EQ(driver->state(), 5u);
}

TEST_F(ChannelDriverTest, StopWithTheTargetNotConnectedOnlyLogs) {
  auto driver = make();
  ChannelDriverTestAccess::setState(*driver, 3);
  driver->SetTargetState(3);
  driver->StopRecording();
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"Vestrel_ChannelDriver: Cannot stop recording unless target is connected"});
  EXPECT_EQ(driver->state(), 3u);
  EXPECT_TRUE(trace.calls.empty());
}

TEST_F(ChannelDriverTest, StopWithoutARecordingOnlyLogs) {
  auto driver = make();
  driver->StopRecording();
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"Vestrel_ChannelDriver: Cannot stop recording as recording has not started yet"});
  EXPECT_TRUE(trace.calls.empty());
}

TEST_F(ChannelDriverTest, StopWhileTheTargetRunsIsRefusedAndAfterAHaltItSucceeds) {
  auto driver = make();
  ChannelDriverTestAccess::setState(*driver, 3);
  ChannelDriverTestAccess::setItmChannel(*driver, 4, 1);
  driver->SetTargetState(6);
  int severity = 0;
  EXPECT_EQ(hexkitText([&] { driver->StopRecording(); }, &severity),
            "Trace cannot be stopped while target is running. Please halt the target.");
  EXPECT_EQ(severity, 2);
  EXPECT_EQ(driver->state(), 3u);
  EXPECT_TRUE(trace.calls.empty());
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"Vestrel_ChannelDriver: Trace cannot be stopped while target is running."});

  driver->SetTargetState(7);
  driver->StopRecording();
  EXPECT_EQ(trace.calls, (std::vector<std::string>{"TraceStop(7)", "TraceOff(7)"}));
  EXPECT_EQ(driver->state(), 5u);
  EXPECT_EQ(driver->itmChannelTypes()[4], -1);
  EXPECT_FALSE(driver->itmSetupLoaded());
  EXPECT_EQ(status(*driver).text, "Stopped by user");
}

TEST_F(ChannelDriverTest, JobStateZeroIsLoggedAndOthersAreIgnored) {
  auto driver = make();
  driver->OnJobStateChanged(1);
  EXPECT_TRUE(log.lines().empty());
  driver->OnJobStateChanged(0);
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"Vestrel_ChannelDriver: state changed to eJOB_MODIFIED_DISABLE_RESUME"});
}

TEST_F(ChannelDriverTest, DestructionReleasesTheCpusTraceResources) {
  make().reset();
  EXPECT_EQ(trace.calls, (std::vector<std::string>{"GetTraceExportStatus(7)", "TraceStop(7)", "ReleaseTrace(7)"}));
}

TEST_F(ChannelDriverTest, DestructionStopsARecordingFirst) {
  auto driver = make();
  ChannelDriverTestAccess::setState(*driver, 3);
  driver.reset();
  EXPECT_EQ(trace.calls, (std::vector<std::string>{"TraceStop(7)", "TraceOff(7)", "GetTraceExportStatus(7)",
                                                   "TraceStop(7)", "ReleaseTrace(7)"}));
}

TEST_F(ChannelDriverTest, DestructionSwallowsARefusedStopAndSkipsTheExportStatus) {
  auto driver = make();
  ChannelDriverTestAccess::setState(*driver, 3);
  driver->SetTargetState(6);
  EXPECT_NO_THROW(driver.reset());
  EXPECT_EQ(trace.calls, (std::vector<std::string>{"TraceStop(7)", "ReleaseTrace(7)"}));
}

TEST_F(ChannelDriverTest, EveryOperationWorksThroughTheHostsBasePointers) {
  auto driver = make();
  Kv::Orv::Trace::CChannelDriver* host = driver.get();
  Kv::Orv::Trace::CChannelDriverProgress* progress = driver.get();
  ChannelStatus s;
  host->GetStatus(s);
  EXPECT_EQ(s.text, "Calibrating ...");
  EXPECT_STREQ(host->GetCpuName(), "Probe1/CortexM4");
  std::uint32_t current = 0, total = 0;
  progress->GetProgress(&current, &total);
  EXPECT_EQ(total, 100u);
  Kv::Orv::Trace::TraceChannelAttributes* attributes = driver.release();
  delete attributes;  // the host destroys drivers through this base
  EXPECT_EQ(trace.calls.back(), "ReleaseTrace(7)");
}

// The host notifies target states from its own thread while another polls
// the status: the state is shared without the lock (ThreadSanitizer checks).
TEST_F(ChannelDriverTest, TheTargetStateMayChangeOnAnotherThreadWhileTheStatusIsPolled) {
  auto driver = make();
  ChannelDriverTestAccess::setState(*driver, 3);
  std::thread notifier([&] {
    for (int i = 0; i < 2000; ++i) driver->SetTargetState(i % 2 == 0 ? 5u : 7u);
    driver->SetTargetState(3);
  });
  for (int i = 0; i < 2000; ++i) {
    const std::uint32_t code = status(*driver).code;
    ASSERT_TRUE(code == 6 || code == 99) << code;  // recording, or not connected and untouched
  }
  notifier.join();
  EXPECT_EQ(status(*driver).code, 99u);  // not connected: the record is left as it was
  EXPECT_EQ(driver->targetState(), 3u);
}
