#include "uDll.h"

#include <gtest/gtest.h>

#include <string>

#include "FakeOsServices.h"
#include "LogControl.h"
#include "TestSupport.h"
#include "TraceEnvironment.h"

using KV_ORV::LogControl;
using KV_ORV::uDll;
using vestrel_test::FakeOsServices;
using vestrel_test::onWindows;
using vestrel_test::ScopedEnv;
using vestrel_test::ScratchDirectory;

namespace {

// Loader tests with the log at a chosen verbosity, read back line by line
// with the prefix and time stamp taken off.
class uDllTest : public ::testing::Test {
 protected:
  void startLog(const char* level) {
    name = std::string("dll_") + ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".txt";
    ScopedEnv logging("VESTREL_TEST_LOGGING", level);
    LogControl::Instance().Forget(name);
    ASSERT_TRUE(LogControl::Instance().Init(name.c_str(), "VESTREL_TEST_LOGGING", "VESTREL_TEST_LOG_DIR", true));
    skipLines = 2;  // the logger's own directory lines
  }
  std::vector<std::string> logLines() {
    auto lines = vestrel_test::splitLines(vestrel_test::readFile(logs.file(name)), vestrel_test::textNewline());
    lines.erase(lines.begin(), lines.begin() + std::min<std::size_t>(skipLines, lines.size()));
    return lines;
  }
  static std::string body(const std::string& line) { return line.substr(std::string("M     14:03:07:045 | ").size()); }

  FakeOsServices fake;
  KV_ORV::ScopedOsOverride override{fake};
  ScratchDirectory profile;
  ScratchDirectory logs;
  ScopedEnv userProfile{"USERPROFILE", profile.path()};
  ScopedEnv logDir{"VESTREL_TEST_LOG_DIR", logs.path()};
  std::string name;
  std::size_t skipLines = 0;
};

}  // namespace

TEST_F(uDllTest, ConstructionStoresNameAndModeAndLoadsNothing) {
  uDll none;
  EXPECT_EQ(none.Name(), "");
  EXPECT_EQ(none.Mode(), 0u);
  EXPECT_FALSE(none.IsLoaded());
  uDll named("SetupAdapter4", 5);
  EXPECT_EQ(named.Name(), "SetupAdapter4");
  EXPECT_EQ(named.Mode(), 5u);
  EXPECT_TRUE(fake.loadedFiles.empty());
}

TEST_F(uDllTest, PlatformNames) {
  if (onWindows()) {
    EXPECT_EQ(uDll::GetPlatformName("SetupAdapter4"), "SetupAdapter4.dll");
    EXPECT_EQ(uDll::GetPlatformName("ICETargetAdapter.dll"), "ICETargetAdapter.dll");
    EXPECT_EQ(uDll::GetPlatformName("Odd.DLL"), "Odd.DLL.dll");
  } else {
    EXPECT_EQ(uDll::GetPlatformName("SetupAdapter4"), "libSetupAdapter4.so");
    EXPECT_EQ(uDll::GetPlatformName("ICETargetAdapter.dll"), "libICETargetAdapter.so");
    EXPECT_EQ(uDll::GetPlatformName("libX.so"), "libX.so");
  }
}

TEST_F(uDllTest, LoadingByBareNameLogsThePlatformNameAndPassesTheBareName) {
  fake.fakeLibraries = true;
  startLog("1");
  uDll dll;
  ASSERT_TRUE(dll.FindAndLoad("SetupAdapter4", 0xFFFFFFFF));
  const std::string platformName = onWindows() ? "SetupAdapter4.dll" : "libSetupAdapter4.so";
  const std::string loaderName = onWindows() ? "SetupAdapter4" : "libSetupAdapter4.so";
  EXPECT_EQ(fake.loadedFiles, std::vector<std::string>{loaderName});
  EXPECT_EQ(dll.Name(), loaderName);
  EXPECT_EQ(dll.Mode(), 0u);
  std::string cwd;
  KV_ORV::GetCurrentDir(cwd);
  const auto lines = logLines();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(body(lines[0]), "uDll:  request to load \"SetupAdapter4\" in mode -1");
  EXPECT_EQ(body(lines[1]), "uDll:  GetPlatformName returned \"" + platformName + "\"");
  EXPECT_EQ(body(lines[2]), "uDll:  Working Directory is: \"" + cwd + "\"");
  EXPECT_EQ(body(lines[3]), "uDll:  PATH=" + std::string(KV_ORV::GetEnv("PATH")));
  EXPECT_EQ(lines[0].substr(0, 6), "M     ");
}

TEST_F(uDllTest, ANameWithTheDllEndingIsLoadedByItsBareName) {
  fake.fakeLibraries = true;
  uDll dll;
  ASSERT_TRUE(dll.FindAndLoad("ICETargetAdapter.dll", 3));
  EXPECT_EQ(fake.loadedFiles, std::vector<std::string>{onWindows() ? "ICETargetAdapter" : "libICETargetAdapter.so"});
  EXPECT_EQ(dll.Mode(), 3u);
}

TEST_F(uDllTest, ASecondLoadReturnsTrueWithoutTheRequestLines) {
  fake.fakeLibraries = true;
  startLog("1");
  uDll dll;
  ASSERT_TRUE(dll.FindAndLoad("SetupAdapter4", 0xFFFFFFFF));
  ASSERT_TRUE(dll.FindAndLoad("Other", 0xFFFFFFFF));
  EXPECT_EQ(fake.loadedFiles.size(), 1u);
  EXPECT_EQ(logLines().size(), 4u);
}

TEST_F(uDllTest, VerbosityThreeAddsTheFunctionEntryLine) {
  fake.fakeLibraries = true;
  startLog("6");
  testing::internal::CaptureStdout();
  uDll dll;
  dll.FindAndLoad("SetupAdapter4", 0xFFFFFFFF);
  testing::internal::GetCapturedStdout();
  const auto lines = logLines();
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0], "  F    common/source/source_utilities/uDll.cpp #191  KV_ORV::uDll::FindAndLoad(...)");
}

TEST_F(uDllTest, NullAndEmptyNamesAreRefused) {
  fake.fakeLibraries = true;
  uDll dll;
  EXPECT_FALSE(dll.FindAndLoad(nullptr, 0));
  EXPECT_FALSE(dll.FindAndLoad("", 0));
  EXPECT_TRUE(fake.loadedFiles.empty());
}

TEST_F(uDllTest, AFailedLoadKeepsAndLogsTheError) {
  fake.loadFailsWith = 126;
  startLog("1");
  uDll dll;
  EXPECT_FALSE(dll.FindAndLoad("Missing", 0xFFFFFFFF));
  const std::string file = onWindows() ? "Missing" : "libMissing.so";
  EXPECT_EQ(dll.LastError(), "failed to load " + file + " with error code 126");
  const auto lines = logLines();
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(body(lines[4]), "uDll: failed to load " + file + " with error code 126");
  EXPECT_FALSE(dll.IsLoaded());
}

TEST_F(uDllTest, TheRealLoaderReportsAMissingLibraryAsModuleNotFound) {
  uDll dll;
  EXPECT_FALSE(dll.FindAndLoad("vestrel_no_such_library", 0xFFFFFFFF));
  const std::string file = onWindows() ? "vestrel_no_such_library" : "libvestrel_no_such_library.so";
  EXPECT_EQ(dll.LastError(), "failed to load " + file + " with error code 126");
  // The loader's own words, naming the library.
  EXPECT_EQ(dll.LoaderMessage().rfind(file + ": ", 0), 0u) << dll.LoaderMessage();
  // A load that works clears them.
  EXPECT_TRUE(dll.FindAndLoad("vestrel_tiny", 0xFFFFFFFF)) << dll.LastError();
  EXPECT_EQ(dll.LoaderMessage(), "");
}

TEST_F(uDllTest, TheRealLoaderLoadsATinyLibraryAndFindsItsExport) {
  uDll dll;
  ASSERT_TRUE(dll.FindAndLoad("vestrel_tiny", 0xFFFFFFFF)) << dll.LastError();
  auto answer = reinterpret_cast<int (*)()>(dll.GetSymbol("TinyAnswer"));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 42);
  EXPECT_EQ(dll.LastError(), "");
  EXPECT_EQ(dll.GetSymbol("NoSuchExport"), nullptr);
  EXPECT_EQ(dll.LastError(), "GetLastError() returned 127");
}

TEST_F(uDllTest, TheRealLoaderFindsALibraryThroughPath) {
  // A copy of the tiny library under another name, in a folder named only by
  // PATH.
  ScratchDirectory elsewhere;
  const std::string built = uDll::GetPlatformName("vestrel_tiny");
  const std::string copy = uDll::GetPlatformName("vestrel_tiny_on_path");
  std::filesystem::path source;
  for (const auto& dir : {std::filesystem::current_path(), std::filesystem::path(VESTREL_TEST_BINARY_DIR)}) {
    if (std::filesystem::exists(dir / built)) source = dir / built;
  }
  ASSERT_FALSE(source.empty()) << "the tiny library was not built next to the tests";
  std::filesystem::copy_file(source, std::filesystem::path(elsewhere.path()) / copy);
  ScopedEnv path("PATH", elsewhere.path() + (onWindows() ? ";" : ":") + KV_ORV::GetEnv("PATH"));
  uDll dll;
  ASSERT_TRUE(dll.FindAndLoad("vestrel_tiny_on_path", 0xFFFFFFFF)) << dll.LastError();
  EXPECT_NE(dll.GetSymbol("TinyAnswer"), nullptr);
}

TEST_F(uDllTest, DestructionUnloadsALoadedLibraryOnly) {
  fake.fakeLibraries = true;
  {
    uDll loaded;
    ASSERT_TRUE(loaded.FindAndLoad("SetupAdapter4", 0xFFFFFFFF));
    uDll notLoaded("x", 0);
  }
  EXPECT_EQ(fake.freedLibraries, 1);
}

TEST_F(uDllTest, GetSymbolWithoutALibraryGivesNull) {
  uDll dll;
  EXPECT_EQ(dll.GetSymbol("TinyAnswer"), nullptr);
  EXPECT_EQ(dll.LastError(), "");
}

TEST_F(uDllTest, AnUnreadableWorkingDirectoryThrows) {
  fake.currentDirectoryFails = true;
  uDll dll;
  EXPECT_THROW(dll.FindAndLoad("SetupAdapter4", 0xFFFFFFFF), KV_ORV::source_utilities_error);
}
