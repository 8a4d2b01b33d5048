#include "LogControl.h"

#include <gtest/gtest.h>

#include <string>

#include "FakeOsServices.h"
#include "TestSupport.h"
#include "TraceEnvironment.h"

using KV_ORV::LogControl;
using KV_ORV::uLogger;
using vestrel_test::FakeOsServices;
using vestrel_test::readFile;
using vestrel_test::ScopedEnv;
using vestrel_test::ScratchDirectory;

namespace {

// Each test gets a profile and a log directory of its own and a file name
// no other test uses, since the control object lives for the whole process;
// a repeat of the test forgets the logger its first run made.
class LogControlTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fake.fixedTime = vestrel_test::referenceTime();
    name = std::string("log_") + ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".txt";
    LogControl::Instance().Forget(name);  // a repeated run starts afresh
  }
  bool init(const char* level, bool registerByName = true) {
    ScopedEnv logging("VESTREL_TEST_LOGGING", level != nullptr ? std::optional<std::string>(level) : std::nullopt);
    return LogControl::Instance().Init(name.c_str(), "VESTREL_TEST_LOGGING", "VESTREL_TEST_LOG_DIR", registerByName);
  }
  std::string logPath() const { return logs.path() + vestrel_test::sep() + name; }
  std::string settingsDir() const {
    return profile.path() + vestrel_test::sep() + ".KV-trace" + vestrel_test::sep() + "settings";
  }
  std::string dataDir() const {
    return profile.path() + vestrel_test::sep() + ".KV-trace" + vestrel_test::sep() + "data";
  }
  std::string nl() const { return vestrel_test::textNewline(); }

  FakeOsServices fake;
  KV_ORV::ScopedOsOverride override{fake};
  ScratchDirectory profile;
  ScratchDirectory logs;
  ScopedEnv userProfile{"USERPROFILE", profile.path()};
  ScopedEnv logDir{"VESTREL_TEST_LOG_DIR", logs.path()};
  std::string name;
};

struct Row {
  const char* value;
  bool enabled;
  bool echo;
  bool debugger;
  int verbosity;
};

}  // namespace

TEST_F(LogControlTest, MissingNamesAreRefused) {
  const int created = LogControl::Instance().Created();
  EXPECT_FALSE(LogControl::Instance().Init(nullptr, "VESTREL_TEST_LOGGING", nullptr, true));
  EXPECT_FALSE(LogControl::Instance().Init(name.c_str(), nullptr, nullptr, true));
  EXPECT_EQ(LogControl::Instance().Created(), created);
}

TEST_F(LogControlTest, UnsetLoggingMakesADisabledLoggerAndNoFile) {
  const int created = LogControl::Instance().Created();
  ASSERT_TRUE(init(nullptr));
  uLogger* logger = LogControl::Instance().Current();
  ASSERT_NE(logger, nullptr);
  EXPECT_EQ(LogControl::Instance().Created(), created + 1);
  EXPECT_FALSE(logger->enabled());
  EXPECT_EQ(LogControl::Instance().Verbosity(), 0);
  EXPECT_EQ(LogControl::Instance().LoggerAt(1), nullptr);
  EXPECT_EQ(logger->path(), logPath());
  EXPECT_FALSE(vestrel_test::fileExists(logPath()));
}

TEST_F(LogControlTest, TheVerbosityTableRowByRow) {
  const Row rows[] = {
      {"1", true, false, false, 1},  {"2", true, true, false, 1},     {"3", true, false, false, 2},
      {"4", true, true, false, 2},   {"5", true, true, true, 2},      {"6", true, true, true, 3},
      {"0", false, false, false, 0}, {"7", false, false, false, 7},   {"-1", false, false, false, -1},
      {"", false, false, false, 0},  {"abc", false, false, false, 0},
  };
  for (const Row& row : rows) {
    name = std::string("table_") + row.value + ".txt";
    testing::internal::CaptureStdout();
    ASSERT_TRUE(init(row.value, false)) << row.value;
    testing::internal::GetCapturedStdout();
    uLogger* logger = LogControl::Instance().Current();
    ASSERT_NE(logger, nullptr);
    EXPECT_EQ(logger->enabled(), row.enabled) << row.value;
    EXPECT_EQ(logger->echoConsole(), row.echo) << row.value;
    EXPECT_EQ(logger->debuggerOutput(), row.debugger) << row.value;
    EXPECT_EQ(LogControl::Instance().Verbosity(), row.verbosity) << row.value;
    EXPECT_FALSE(LogControl::Instance().RegisterByName());
  }
}

TEST_F(LogControlTest, EnabledLoggersStartWithTheTwoDirectoryLines) {
  ASSERT_TRUE(init("1"));
  EXPECT_EQ(readFile(logPath()), "M     14:03:07:045 | Logger : trace user settings directory is " + settingsDir() +
                                     nl() + "M     14:03:07:045 | Logger : trace temporary data directory is " +
                                     dataDir() + nl());
  EXPECT_TRUE(std::filesystem::is_directory(settingsDir()));
  EXPECT_TRUE(std::filesystem::is_directory(dataDir()));
}

TEST_F(LogControlTest, LoggingTwoEchoesLinesButStoresVerbosityOne) {
  testing::internal::CaptureStdout();
  ASSERT_TRUE(init("2"));
  const std::string echoed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(echoed, "M     14:03:07:045 | Logger : trace user settings directory is " + settingsDir() +
                        "\nM     14:03:07:045 | Logger : trace temporary data directory is " + dataDir() + "\n");
  EXPECT_EQ(LogControl::Instance().Verbosity(), 1);
  EXPECT_NE(LogControl::Instance().LoggerAt(1), nullptr);
  EXPECT_EQ(LogControl::Instance().LoggerAt(2), nullptr);
}

TEST_F(LogControlTest, LoggingSevenIsOffAlthoughTheVerbosityIsSeven) {
  ASSERT_TRUE(init("7"));
  EXPECT_EQ(LogControl::Instance().Verbosity(), 7);
  uLogger* logger = LogControl::Instance().LoggerAt(3);
  ASSERT_NE(logger, nullptr);  // call sites still format their lines...
  logger->Printf(1, 2, "%s: formatted", "tag");
  EXPECT_FALSE(vestrel_test::fileExists(logPath()));  // ...and nothing is written
}

TEST_F(LogControlTest, LoggingFiveAndSixAlsoReachTheDebugger) {
  testing::internal::CaptureStdout();
  ASSERT_TRUE(init("6"));
  testing::internal::GetCapturedStdout();
  ASSERT_EQ(fake.debuggerLines.size(), 2u);
  EXPECT_EQ(fake.debuggerLines[0],
            "M     14:03:07:045 | Logger : trace user settings directory is " + settingsDir() + "\n");
  EXPECT_EQ(LogControl::Instance().Verbosity(), 3);
}

TEST_F(LogControlTest, ASecondInitByNameSelectsTheSameLoggerAgain) {
  ASSERT_TRUE(init("3"));
  uLogger* first = LogControl::Instance().Current();
  const int created = LogControl::Instance().Created();
  ASSERT_TRUE(init("1"));  // the new value is not applied: nothing is made
  EXPECT_EQ(LogControl::Instance().Current(), first);
  EXPECT_EQ(LogControl::Instance().Created(), created);
  EXPECT_EQ(LogControl::Instance().Verbosity(), 2);
  EXPECT_EQ(LogControl::Instance().Registered(name), first);
}

TEST_F(LogControlTest, WithoutRegistrationEveryInitMakesANewLogger) {
  ASSERT_TRUE(init("1", false));
  uLogger* first = LogControl::Instance().Current();
  ASSERT_TRUE(init("1", false));
  EXPECT_NE(LogControl::Instance().Current(), first);
  EXPECT_EQ(LogControl::Instance().Registered(name), nullptr);
}

TEST_F(LogControlTest, TooLittleFreeSpaceMakesNoLoggerAndKeepsTheVerbosity) {
  ASSERT_TRUE(init("3", false));
  const int created = LogControl::Instance().Created();
  fake.freeBytes = LogControl::kMinimumFreeBytes - 1;
  name = "full.txt";
  EXPECT_FALSE(init("1", false));
  EXPECT_EQ(LogControl::Instance().Created(), created);
  EXPECT_EQ(LogControl::Instance().Verbosity(), 2);
  EXPECT_FALSE(vestrel_test::fileExists(logPath()));
}

TEST_F(LogControlTest, ExactlyTheMinimumFreeSpaceIsEnough) {
  fake.freeBytes = LogControl::kMinimumFreeBytes;
  EXPECT_TRUE(init("1"));
  ASSERT_EQ(fake.freeSpaceQueries.size(), 1u);
  EXPECT_EQ(fake.freeSpaceQueries[0], std::optional<std::string>(logs.path()));
}

TEST_F(LogControlTest, AVolumeThatCannotBeAskedMakesNoLogger) {
  fake.freeBytesFails = true;
  const int created = LogControl::Instance().Created();
  EXPECT_FALSE(init("1"));
  EXPECT_EQ(LogControl::Instance().Created(), created);
}

TEST_F(LogControlTest, ARegisteredNameNotFoundClearsTheCurrentLoggerEvenWhenTheSetUpFails) {
  ASSERT_TRUE(init("1", false));
  fake.freeBytesFails = true;
  name = "never_made.txt";
  EXPECT_FALSE(init("1", true));
  EXPECT_EQ(LogControl::Instance().Current(), nullptr);
  EXPECT_EQ(LogControl::Instance().LoggerAt(1), nullptr);
}

TEST_F(LogControlTest, AnEmptyDirectoryVariableLeavesTheBareNameAndAsksForTheEmptyText) {
  ScopedEnv empty("VESTREL_TEST_LOG_DIR", "");
  fake.freeBytes = 1ull << 30;
  fake.recordDirectoriesOnly = true;
  ASSERT_TRUE(init(nullptr));
  EXPECT_EQ(LogControl::Instance().Current()->path(), name);
  ASSERT_EQ(fake.freeSpaceQueries.size(), 1u);
  EXPECT_EQ(fake.freeSpaceQueries[0], std::optional<std::string>(""));
}

TEST_F(LogControlTest, WithoutADirectoryVariableTheCurrentVolumeIsAsked) {
  fake.freeBytes = 1ull << 30;
  ScopedEnv logging("VESTREL_TEST_LOGGING", std::nullopt);
  ASSERT_TRUE(LogControl::Instance().Init(name.c_str(), "VESTREL_TEST_LOGGING", nullptr, false));
  ASSERT_EQ(fake.freeSpaceQueries.size(), 1u);
  EXPECT_EQ(fake.freeSpaceQueries[0], std::nullopt);
  EXPECT_TRUE(fake.createdDirectories.empty());
  EXPECT_EQ(LogControl::Instance().Current()->path(), name);
}

TEST_F(LogControlTest, TheLogDirectoryIsCreatedBeforeTheLoggerIsMade) {
  fake.recordDirectoriesOnly = true;
  ASSERT_TRUE(init("1"));
  EXPECT_EQ(fake.createdDirectories, std::vector<std::string>{logs.path()});
}

TEST_F(LogControlTest, AMissingLogDirectoryCannotBeAskedForSpaceSoNoLoggerIsMade) {
  const std::string missing = logs.file("missing");
  ScopedEnv dir("VESTREL_TEST_LOG_DIR", missing);
  const int created = LogControl::Instance().Created();
  EXPECT_FALSE(init("1"));
  EXPECT_EQ(LogControl::Instance().Created(), created);
  EXPECT_FALSE(vestrel_test::fileExists(missing));
}

TEST_F(LogControlTest, WithoutAProfileTheSetUpThrowsAfterMakingTheLogger) {
  ScopedEnv noProfile("USERPROFILE", std::nullopt);
  ScopedEnv noHome("HOME", std::nullopt);
  const int created = LogControl::Instance().Created();
  EXPECT_THROW(init("1"), KV_ORV::source_utilities_error);
  EXPECT_EQ(LogControl::Instance().Created(), created + 1);
}
