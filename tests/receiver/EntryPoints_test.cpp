#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "CReceiver.h"
#include "EntryModuleReset.h"
#include "FakeOsServices.h"
#include "FakeTraceInterface.h"
#include "ProbeScenario.h"
#include "TraceEnvironment.h"
#include "TraceStartup.h"
#include "cHexkitError.h"

using Kv::Orv::Hexkit::cHexkitError;
using Kv::Orv::Trace::CReceiver;
using vestrel_test::FakeOsServices;
using vestrel_test::ProbeScenario;
using vestrel_test::ScopedEnv;
using vestrel_test::ScratchDirectory;

namespace {

// The entry module's one-time start-up and its receiver start fresh for
// every test, also when many run in one process.
class EntryPointsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Kv::Orv::Trace::Vestrel::resetEntryModule();
    fake.fixedTime = vestrel_test::referenceTime();  // 16 November 2026
    fake.processId = 555;
    fake.processIds = std::vector<std::uint32_t>{1, 555, 4321};
    scenario.workingProbe();
  }
  std::string base() const { return profile.path() + vestrel_test::sep() + ".KV-trace"; }
  std::string logFile(const std::string& name) const { return base() + vestrel_test::sep() + name; }
  std::vector<std::string> logTexts(const std::string& name) const {
    std::vector<std::string> texts;
    for (const auto& line :
         vestrel_test::splitLines(vestrel_test::readFile(logFile(name)), vestrel_test::textNewline())) {
      texts.push_back(line.size() > 21 ? line.substr(21) : line);
    }
    return texts;
  }
  // The level columns of the line whose text is text: "M     " for a
  // message (level value 1), "    E " for an error (16).
  std::string levelOf(const std::string& name, const std::string& text) const {
    for (const auto& line :
         vestrel_test::splitLines(vestrel_test::readFile(logFile(name)), vestrel_test::textNewline())) {
      if (line.size() > 21 && line.substr(21) == text) return line.substr(0, 6);
    }
    return "";
  }
  int count(const std::string& name, const std::string& text) const {
    const auto texts = logTexts(name);
    return static_cast<int>(std::count(texts.begin(), texts.end(), text));
  }

  FakeOsServices fake;
  KV_ORV::ScopedOsOverride override{fake};
  ScratchDirectory profile;
  ScopedEnv userProfile{"USERPROFILE", profile.path()};
  ScopedEnv pid{"KV_TRACE_DEBUGCLIENT_PID", std::nullopt};
  ScopedEnv logging{"KV_TRACE_LOGGING", "1"};
  ScopedEnv loggingDir{"KV_TRACE_LOGGING_DIR", std::nullopt};
  ProbeScenario scenario;
};

const char* const kOwnLog = "kv_trace_log_11162026_555.txt";

}  // namespace

TEST_F(EntryPointsTest, TwoCreatesShareOneReceiverAndTheLastDestroyEndsIt) {
  CReceiver* first = CreateRcvr();
  CReceiver* second = CreateRcvr();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first, second);
  DestroyRcvr(first);
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: Receiver destroyed"), 0);
  EXPECT_EQ(first->GetNumAttachedCpus(), 0u);  // still alive
  DestroyRcvr(second);
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: Receiver destroyed"), 1);
  DestroyRcvr(second);
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: Receiver destroyed"), 1);
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: Created SWO receiver"), 1);
}

TEST_F(EntryPointsTest, DestroyWithAnotherPointerOrNullChangesNothing) {
  CReceiver* receiver = CreateRcvr();
  DestroyRcvr(nullptr);
  DestroyRcvr(reinterpret_cast<CReceiver*>(0x1234));
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: Receiver destroyed"), 0);
  DestroyRcvr(receiver);  // the count was still one
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: Receiver destroyed"), 1);
}

TEST_F(EntryPointsTest, AfterTheLastDestroyTheNextCreateBuildsANewReceiver) {
  DestroyRcvr(CreateRcvr());
  CReceiver* again = CreateRcvr();
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: Created SWO receiver"), 2);
  DestroyRcvr(again);
}

TEST_F(EntryPointsTest, TheStartUpPublishesAndCreatesTheTraceDirectories) {
  DestroyRcvr(CreateRcvr());
  const std::string s = vestrel_test::sep();
  EXPECT_EQ(std::string(KV_ORV::GetEnv("KV_TRACE_LOGGING_DIR")), base());
  EXPECT_EQ(std::string(KV_ORV::GetEnv("KV_TRACE_DATA_DIR")), base() + s + "data");
  EXPECT_EQ(std::string(KV_ORV::GetEnv("KV_TRACE_SETTINGS_DIR")), base() + s + "settings");
  EXPECT_TRUE(std::filesystem::is_directory(base() + s + "data"));
  EXPECT_TRUE(std::filesystem::is_directory(base() + s + "settings"));
}

TEST_F(EntryPointsTest, WithoutADebugClientTheOwnProcessIsPublishedAndNamesTheLog) {
  DestroyRcvr(CreateRcvr());
  EXPECT_EQ(std::string(KV_ORV::GetEnv("KV_TRACE_DEBUGCLIENT_PID")), "555");
  EXPECT_TRUE(vestrel_test::fileExists(logFile(kOwnLog)));
}

TEST_F(EntryPointsTest, ARunningDebugClientNamesTheLogAndIsLeftAsItIs) {
  ScopedEnv client("KV_TRACE_DEBUGCLIENT_PID", "4321");
  DestroyRcvr(CreateRcvr());
  EXPECT_EQ(std::string(KV_ORV::GetEnv("KV_TRACE_DEBUGCLIENT_PID")), "4321");
  EXPECT_TRUE(vestrel_test::fileExists(logFile("kv_trace_log_11162026_4321.txt")));
  EXPECT_FALSE(vestrel_test::fileExists(logFile(kOwnLog)));
}

TEST_F(EntryPointsTest, AHexadecimalDebugClientNumberKeepsItsTextInTheLogName) {
  ScopedEnv client("KV_TRACE_DEBUGCLIENT_PID", "0x10E1");
  DestroyRcvr(CreateRcvr());
  EXPECT_EQ(std::string(KV_ORV::GetEnv("KV_TRACE_DEBUGCLIENT_PID")), "0x10E1");
  EXPECT_TRUE(vestrel_test::fileExists(logFile("kv_trace_log_11162026_0x10E1.txt")));
}

TEST_F(EntryPointsTest, ADeadZeroOrGarbageDebugClientIsReplacedByTheOwnProcess) {
  for (const char* text : {"999", "0", "abc"}) {
    ScopedEnv client("KV_TRACE_DEBUGCLIENT_PID", text);
    if (std::string(text) == "0") fake.processIds->push_back(0);
    KV_ORV::TraceStartup startup;
    startup.run();
    EXPECT_EQ(startup.debugClientPid(), "555") << text;
    EXPECT_EQ(std::string(KV_ORV::GetEnv("KV_TRACE_DEBUGCLIENT_PID")), "555") << text;
    EXPECT_EQ(startup.logFileName(), kOwnLog) << text;
  }
  ScopedEnv client("KV_TRACE_DEBUGCLIENT_PID", "999");
  DestroyRcvr(CreateRcvr());
  EXPECT_TRUE(vestrel_test::fileExists(logFile(kOwnLog)));
}

TEST_F(EntryPointsTest, AProcessListThatCannotBeTakenReplacesTheDebugClient) {
  ScopedEnv client("KV_TRACE_DEBUGCLIENT_PID", "4321");
  fake.processListFails = true;
  DestroyRcvr(CreateRcvr());
  EXPECT_EQ(std::string(KV_ORV::GetEnv("KV_TRACE_DEBUGCLIENT_PID")), "555");
}

TEST_F(EntryPointsTest, TheLogDateIsMonthDayAndYearUnpadded) {
  fake.fixedTime = KV_ORV::LocalTime{2026, 1, 1, 5, 9, 0, 0, 0};
  DestroyRcvr(CreateRcvr());
  EXPECT_TRUE(vestrel_test::fileExists(logFile("kv_trace_log_152026_555.txt")));
}

TEST_F(EntryPointsTest, ADebugClientNumberTooLargeForAProcessIsNotRunningAndTheStartUpCompletes) {
  ScopedEnv client("KV_TRACE_DEBUGCLIENT_PID", "99999999999999999999");
  DestroyRcvr(CreateRcvr());
  EXPECT_EQ(std::string(KV_ORV::GetEnv("KV_TRACE_DEBUGCLIENT_PID")), "555");
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: Created SWO receiver"), 1);
}

TEST_F(EntryPointsTest, AFailedStartUpLeavesLoggingOffUntilTheNextCreate) {
  CReceiver* receiver = nullptr;
  {
    ScopedEnv noProfile("USERPROFILE", std::nullopt);
    ScopedEnv noHome("HOME", std::nullopt);
    receiver = CreateRcvr();
  }
  ASSERT_NE(receiver, nullptr);
  EXPECT_FALSE(std::filesystem::exists(base()));
  KV_ORV::SetEnv("KV_TRACE_DEBUGCLIENT_PID", "4321");
  CReceiver* again = CreateRcvr();  // the start-up is tried again
  EXPECT_EQ(again, receiver);
  EXPECT_TRUE(vestrel_test::fileExists(logFile("kv_trace_log_11162026_4321.txt")));
  DestroyRcvr(again);
  DestroyRcvr(receiver);
}

TEST_F(EntryPointsTest, ALoggingDirectorySetBeforehandIsOverwritten) {
  ScratchDirectory elsewhere;
  ScopedEnv preset("KV_TRACE_LOGGING_DIR", elsewhere.path());
  DestroyRcvr(CreateRcvr());
  EXPECT_EQ(std::string(KV_ORV::GetEnv("KV_TRACE_LOGGING_DIR")), base());
  EXPECT_TRUE(vestrel_test::fileExists(logFile(kOwnLog)));
  EXPECT_TRUE(std::filesystem::is_empty(elsewhere.path()));
}

TEST_F(EntryPointsTest, WithoutAUserProfileAReceiverIsStillCreated) {
  ScopedEnv noProfile("USERPROFILE", std::nullopt);
  ScopedEnv noHome("HOME", std::nullopt);
  CReceiver* receiver = CreateRcvr();
  ASSERT_NE(receiver, nullptr);
  EXPECT_EQ(receiver->GetNumAttachedCpus(), 0u);
  DestroyRcvr(receiver);
}

TEST_F(EntryPointsTest, WithLoggingUnsetNoLogFileIsWritten) {
  ScopedEnv off("KV_TRACE_LOGGING", std::nullopt);
  DestroyRcvr(CreateRcvr());
  EXPECT_FALSE(vestrel_test::fileExists(logFile(kOwnLog)));
  EXPECT_TRUE(std::filesystem::is_directory(base()));
}

TEST_F(EntryPointsTest, AReceiverThatCannotBeBuiltIsThrownAndNotCounted) {
  scenario.write("identifier = null\n");
  try {
    CreateRcvr();
    FAIL() << "no exception";
  } catch (const cHexkitError& e) {
    EXPECT_STREQ(e.GetMessage(), "Internal error, failed to create device identifier");
    EXPECT_EQ(e.GetSeverity(), 2);
  }
  scenario.workingProbe();
  CReceiver* receiver = CreateRcvr();
  ASSERT_NE(receiver, nullptr);
  DestroyRcvr(receiver);
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: Receiver destroyed"), 1);
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: Created SWO receiver"), 1);
}

TEST_F(EntryPointsTest, DestroyingAReceiverWhoseDriverSlotsThrowCompletesAndLogsTheDestruction) {
  vestrel_test::FakeTraceInterface trace;
  CReceiver* receiver = CreateRcvr();
  receiver->GetChannelDriver("Probe1/CortexM4", &trace, 7, 0);
  trace.throwing = {2, 6};
  DestroyRcvr(receiver);
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: Receiver destroyed"), 1);
  EXPECT_EQ(count(kOwnLog,
                  "Vestrel_ChannelDriver: ReleaseTrace failed while the driver was destroyed: host: "
                  "ReleaseTrace failed"),
            1);
}

TEST_F(EntryPointsTest, AFailingTeardownIsCaughtAndLoggedAndTheNextCreateBuildsANewReceiver) {
  CReceiver* receiver = CreateRcvr();
  scenario.workingProbe("destroy_identifier = throw\n");
  EXPECT_NO_THROW(DestroyRcvr(receiver));
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: An expection for caught when destroying receiver"), 1);
  EXPECT_EQ(levelOf(kOwnLog, "Vestrel_Receiver: An expection for caught when destroying receiver"), "    E ");
  EXPECT_EQ(levelOf(kOwnLog, "Vestrel_Receiver: Created SWO receiver"), "M     ");
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: Receiver destroyed"), 0);
  const auto texts = logTexts(kOwnLog);
  const auto failure = std::find(texts.begin(), texts.end(),
                                 "Vestrel_Receiver: Destroying the device identifier failed: device identifier: "
                                 "destroy failed");
  const auto caught =
      std::find(texts.begin(), texts.end(), "Vestrel_Receiver: An expection for caught when destroying receiver");
  EXPECT_LT(failure, caught);
  scenario.workingProbe();
  CReceiver* again = CreateRcvr();
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(again->GetNumAttachedCpus(), 0u);
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: Created SWO receiver"), 2);
  DestroyRcvr(again);
  EXPECT_EQ(count(kOwnLog, "Vestrel_Receiver: Receiver destroyed"), 1);
}
