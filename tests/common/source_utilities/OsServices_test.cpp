#include "OsServices.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "FakeOsServices.h"
#include "NativePlatform.h"
#include "TestSupport.h"
#include "TraceEnvironment.h"
#include "TraceStartup.h"

using namespace KV_ORV;

TEST(OsServices, TheProcessListHoldsThisProcess) {
  std::vector<std::uint32_t> ids;
  ASSERT_TRUE(nativeOs().listProcessIds(ids));
  EXPECT_GT(ids.size(), 1u);
  EXPECT_NE(std::find(ids.begin(), ids.end(), nativeOs().currentProcessId()), ids.end());
  EXPECT_EQ(nativeOs().currentProcessId(), native::currentProcessId());
}

TEST(OsServices, AnOverrideLastsForItsScopeAndNests) {
  EXPECT_EQ(&os(), &nativeOs());
  vestrel_test::FakeOsServices outer;
  {
    ScopedOsOverride first(outer);
    EXPECT_EQ(&os(), &outer);
    vestrel_test::FakeOsServices inner;
    {
      ScopedOsOverride second(inner);
      EXPECT_EQ(&os(), &inner);
    }
    EXPECT_EQ(&os(), &outer);
  }
  EXPECT_EQ(&os(), &nativeOs());
}

TEST(OsServices, TheLocalTimeIsAPlausibleCalendarTime) {
  const LocalTime now = nativeOs().localTime();
  EXPECT_GE(now.year, 2024);
  EXPECT_GE(now.month, 1);
  EXPECT_LE(now.month, 12);
  EXPECT_GE(now.day, 1);
  EXPECT_LE(now.day, 31);
  EXPECT_LE(now.hour, 23);
  EXPECT_LE(now.milliseconds, 999);
}

TEST(OsServices, FreeSpaceOfTheTempVolumeIsReported) {
  vestrel_test::ScratchDirectory dir;
  std::uint64_t bytes = 0;
  EXPECT_TRUE(nativeOs().freeBytesAvailable(dir.path().c_str(), bytes));
  EXPECT_GT(bytes, 0u);
  EXPECT_FALSE(nativeOs().freeBytesAvailable(dir.file("missing").c_str(), bytes));
}

TEST(TraceStartup, ThisProcessAsDebugClientIsKeptByTheRealProcessList) {
  vestrel_test::ScratchDirectory profile;
  vestrel_test::ScopedEnv userProfile("USERPROFILE", profile.path());
  const std::string self = std::to_string(nativeOs().currentProcessId());
  vestrel_test::ScopedEnv pid("KV_TRACE_DEBUGCLIENT_PID", self);
  TraceStartup startup;
  startup.run();
  EXPECT_TRUE(startup.done());
  EXPECT_EQ(startup.debugClientPid(), self);
  EXPECT_EQ(startup.baseDirectory(), profile.path() + vestrel_test::sep() + ".KV-trace");
  const std::string prefix = "kv_trace_log_";
  EXPECT_EQ(startup.logFileName().substr(0, prefix.size()), prefix);
  EXPECT_EQ(startup.logFileName().substr(startup.logFileName().size() - self.size() - 5), "_" + self + ".txt");
}

TEST(TraceStartup, ASecondRunChangesNothing) {
  vestrel_test::ScratchDirectory profile;
  vestrel_test::ScopedEnv userProfile("USERPROFILE", profile.path());
  vestrel_test::ScopedEnv pid("KV_TRACE_DEBUGCLIENT_PID", std::nullopt);
  TraceStartup startup;
  startup.run();
  const std::string name = startup.logFileName();
  SetEnv("KV_TRACE_DEBUGCLIENT_PID", "1");
  startup.run();
  EXPECT_EQ(startup.logFileName(), name);
}

TEST(TraceStartup, WithoutAProfileTheRunThrowsAndStaysUndone) {
  vestrel_test::ScopedEnv noProfile("USERPROFILE", std::nullopt);
  vestrel_test::ScopedEnv noHome("HOME", std::nullopt);
  TraceStartup startup;
  EXPECT_THROW(startup.run(), source_utilities_error);
  EXPECT_FALSE(startup.done());
}
