#include "TraceEnvironment.h"

#include <gtest/gtest.h>

#include "ThrownText.h"

#include <filesystem>
#include <string>
#include <thread>

#include "FakeOsServices.h"
#include "TestSupport.h"

using namespace KV_ORV;
using vestrel_test::FakeOsServices;
using vestrel_test::onWindows;
using vestrel_test::ScopedEnv;

namespace {

template <typename Call>
std::string errorText(Call call) {
  return vestrel_test::thrownText<source_utilities_error>(call);
}

class TraceDirectoriesTest : public ::testing::Test {
 protected:
  void SetUp() override { fake.recordDirectoriesOnly = true; }
  FakeOsServices fake;
  ScopedOsOverride override{fake};
  ScopedEnv home{"HOME", std::nullopt};
};

}  // namespace

TEST_F(TraceDirectoriesTest, TheDirectoriesLieUnderTheUserProfile) {
  const std::string profile = onWindows() ? "C:\\Users\\dev" : "/home/dev";
  ScopedEnv env("USERPROFILE", profile);
  std::string base, trace, data, settings;
  GetTraceBaseDirectory(base);
  EXPECT_TRUE(fake.madeDirectories.empty());
  GetTraceDirectory(trace);
  GetTraceDataDirectory(data);
  GetTraceSettingsDirectory(settings);
  if (onWindows()) {
    EXPECT_EQ(base, "C:\\Users\\dev\\.KV-trace");
    EXPECT_EQ(data, "C:\\Users\\dev\\.KV-trace\\data");
    EXPECT_EQ(settings, "C:\\Users\\dev\\.KV-trace\\settings");
  } else {
    EXPECT_EQ(base, "/home/dev/.KV-trace");
    EXPECT_EQ(data, "/home/dev/.KV-trace/data");
    EXPECT_EQ(settings, "/home/dev/.KV-trace/settings");
  }
  EXPECT_EQ(trace, base);
}

TEST_F(TraceDirectoriesTest, TheProfileIsNormalised) {
  ScopedEnv env("USERPROFILE", onWindows() ? "C:/Users//dev/" : "\\home//dev\\");
  std::string base;
  GetTraceBaseDirectory(base);
  EXPECT_EQ(base, onWindows() ? "C:\\Users\\dev\\.KV-trace" : "/home/dev/.KV-trace");
}

TEST_F(TraceDirectoriesTest, DataDirectoryCreationMakesEveryLevelButTheDriveOrRoot) {
  ScopedEnv env("USERPROFILE", onWindows() ? "C:\\Users\\dev" : "/home/dev");
  std::string data;
  GetTraceDataDirectory(data);
  if (onWindows()) {
    EXPECT_EQ(fake.madeDirectories,
              (std::vector<std::string>{"C:\\Users\\", "C:\\Users\\dev\\", "C:\\Users\\dev\\.KV-trace\\",
                                        "C:\\Users\\dev\\.KV-trace\\data\\"}));
  } else {
    EXPECT_EQ(fake.madeDirectories,
              (std::vector<std::string>{"/home/", "/home/dev/", "/home/dev/.KV-trace/", "/home/dev/.KV-trace/data/"}));
  }
}

TEST_F(TraceDirectoriesTest, WithoutAProfileTheBaseDirectoryIsRefused) {
  ScopedEnv env("USERPROFILE", std::nullopt);
  std::string base = "unchanged";
  EXPECT_EQ(errorText([&] { GetTraceBaseDirectory(base); }), "failed to read environment variable \"USERPROFILE\"");
  EXPECT_EQ(errorText([&] { GetTraceDataDirectory(base); }), "failed to read environment variable \"USERPROFILE\"");
  EXPECT_EQ(base, "unchanged");
  EXPECT_TRUE(fake.madeDirectories.empty());
}

TEST(TraceDirectories, OnLinuxHomeStandsInForAnUnsetProfile) {
  ScopedEnv profile("USERPROFILE", std::nullopt);
  ScopedEnv home("HOME", "/home/dev");
  std::string base;
  if (onWindows()) {
    // Windows has no such fallback: the profile variable is the only source.
    EXPECT_EQ(errorText([&] { GetTraceBaseDirectory(base); }), "failed to read environment variable \"USERPROFILE\"");
  } else {
    EXPECT_EQ(GetTraceBaseDirectory(base), "/home/dev/.KV-trace");
  }
}

TEST(CreateDirectories, CreatesEachLevelInOrderAndNeverTheDrive) {
  FakeOsServices fake;
  fake.recordDirectoriesOnly = true;
  ScopedOsOverride override(fake);
  if (onWindows()) {
    EXPECT_EQ(CreateDirectories("C:\\a\\b\\c"), 0);
    EXPECT_EQ(fake.madeDirectories, (std::vector<std::string>{"C:\\a\\", "C:\\a\\b\\", "C:\\a\\b\\c\\"}));
  } else {
    EXPECT_EQ(CreateDirectories("/a/b/c"), 0);
    EXPECT_EQ(fake.madeDirectories, (std::vector<std::string>{"/a/", "/a/b/", "/a/b/c/"}));
  }
}

TEST(CreateDirectories, ANullPathGivesMinusOne) { EXPECT_EQ(CreateDirectories(nullptr), -1); }

TEST(CreateDirectories, MakesRealDirectoriesAndReportsTheLastLevel) {
  vestrel_test::ScratchDirectory dir;
  const std::string nested = dir.file("x") + vestrel_test::sep() + "y" + vestrel_test::sep() + "z";
  EXPECT_EQ(CreateDirectories(nested.c_str()), 0);
  EXPECT_TRUE(std::filesystem::is_directory(nested));
  EXPECT_EQ(CreateDirectories(nested.c_str()), -1);  // exists already
}

TEST(AppendPath, JoinsWithOneSeparator) {
  const std::string s = vestrel_test::sep();
  std::string path = "a";
  AppendPath(path, "b");
  EXPECT_EQ(path, "a" + s + "b");
  path = "a" + s;
  AppendPath(path, "b");
  EXPECT_EQ(path, "a" + s + "b");
  path = "";
  AppendPath(path, "b");
  EXPECT_EQ(path, "b");
  path = "a";
  AppendPath(path, (s + "b").c_str());
  EXPECT_EQ(path, "a" + s + "b");
}

TEST(NormalisePath, TurnsForeignSeparatorsAndCollapsesRuns) {
  std::string path = "a/b\\\\\\\\c//d";
  NormalisePath(path);
  const std::string s = vestrel_test::sep();
  EXPECT_EQ(path, "a" + s + "b" + s + "c" + s + "d");
}

TEST(GetEnv, AnUnsetVariableReadsAsTheEmptyText) {
  ScopedEnv env("VESTREL_TEST_UNSET", std::nullopt);
  EXPECT_STREQ(GetEnv("VESTREL_TEST_UNSET"), "");
}

TEST(GetEnv, ReadsWhatSetEnvWrote) {
  ScopedEnv env("VESTREL_TEST_VALUE", std::nullopt);
  SetEnv("VESTREL_TEST_VALUE", "some value");
  EXPECT_STREQ(GetEnv("VESTREL_TEST_VALUE"), "some value");
  SetEnv("VESTREL_TEST_VALUE", "");
  EXPECT_STREQ(GetEnv("VESTREL_TEST_VALUE"), "");
}

TEST(GetEnv, EachThreadKeepsItsOwnResult) {
  ScopedEnv a("VESTREL_TEST_A", "alpha");
  ScopedEnv b("VESTREL_TEST_B", "beta");
  const char* mine = GetEnv("VESTREL_TEST_A");
  std::string theirs;
  std::thread other([&] { theirs = GetEnv("VESTREL_TEST_B"); });
  other.join();
  EXPECT_STREQ(mine, "alpha");
  EXPECT_EQ(theirs, "beta");
}

TEST(GetEnv, ALongValueIsReadWhole) {
  const std::string value(20000, 'v');
  ScopedEnv env("VESTREL_TEST_LONG", value);
  EXPECT_EQ(std::string(GetEnv("VESTREL_TEST_LONG")), value);
}

TEST(EnvironmentErrors, NullNamesAndValuesAreRefusedWithTheirTexts) {
  EXPECT_EQ(errorText([] { GetEnv(nullptr); }), "failed set an environment variable name to null");
  EXPECT_EQ(errorText([] { SetEnv(nullptr, "x"); }), "failed set an environment variable name to null");
  EXPECT_EQ(errorText([] { SetEnv("VESTREL_TEST_X", nullptr); }), "failed set an environment variable value to null");
}

TEST(GetCurrentDir, ReturnsTheWorkingDirectory) {
  std::string dir;
  GetCurrentDir(dir);
  EXPECT_EQ(std::filesystem::path(dir), std::filesystem::current_path());
}

TEST(GetCurrentDir, ADeepWorkingDirectoryIsReadWhole) {
  if (vestrel_test::onWindows()) {
    GTEST_SKIP() << "Windows keeps the 260-byte buffer of _getcwd (MAX_PATH); only Linux reads deeper paths";
  }
  vestrel_test::ScratchDirectory root;
  std::filesystem::path deep = root.path();
  for (int level = 0; level < 12; ++level) deep /= std::string(40, static_cast<char>('a' + level));
  std::filesystem::create_directories(deep);
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(deep);
  std::string dir;
  const bool read = [&] {
    try {
      GetCurrentDir(dir);
      return true;
    } catch (...) {
      return false;
    }
  }();
  std::filesystem::current_path(before);
  EXPECT_TRUE(read);
  EXPECT_GT(dir.size(), 480u);
  EXPECT_EQ(std::filesystem::path(dir), deep);
}

TEST(GetCurrentDir, AFailureIsThrownWithItsText) {
  FakeOsServices fake;
  fake.currentDirectoryFails = true;
  ScopedOsOverride override(fake);
  std::string dir;
  EXPECT_EQ(errorText([&] { GetCurrentDir(dir); }), "failed to get current working directory");
}
