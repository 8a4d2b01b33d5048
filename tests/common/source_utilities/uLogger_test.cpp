#include "uLogger.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "FakeOsServices.h"
#include "TestSupport.h"

using KV_ORV::uLogger;
using vestrel_test::FakeOsServices;
using vestrel_test::readFile;
using vestrel_test::ScratchDirectory;

namespace {

class uLoggerTest : public ::testing::Test {
 protected:
  void SetUp() override { fake.fixedTime = vestrel_test::referenceTime(); }
  std::string path() const { return dir.file("log.txt"); }
  std::string content() const { return readFile(path()); }
  std::string nl() const { return vestrel_test::textNewline(); }

  FakeOsServices fake;
  KV_ORV::ScopedOsOverride override{fake};
  ScratchDirectory dir;
};

}  // namespace

TEST_F(uLoggerTest, ALineIsPrefixStampTagAndOneNewline) {
  uLogger log(path().c_str(), true);
  log.Printf(1, 2, "%s: %s", "Vestrel_Receiver", "Created SWO receiver");
  EXPECT_EQ(content(), "M     14:03:07:045 | Vestrel_Receiver: Created SWO receiver" + nl());
}

TEST_F(uLoggerTest, EachLevelBitHasItsLetter) {
  uLogger log(path().c_str(), true);
  log.Printf(2, 2, "w");
  log.Printf(4, 2, "f");
  log.Printf(8, 2, "a");
  log.Printf(16, 2, "e");
  log.Printf(31, 2, "all");
  EXPECT_EQ(content(), " W    14:03:07:045 | w" + nl() + "  F   14:03:07:045 | f" + nl() + "   A  14:03:07:045 | a" +
                           nl() + "    E 14:03:07:045 | e" + nl() + "MWFAE 14:03:07:045 | all" + nl());
}

TEST_F(uLoggerTest, LevelSeventeenPrintsMThreeBlanksEAndABlank) {
  uLogger log(path().c_str(), true);
  log.Printf(17, 2, "x");
  EXPECT_EQ(content().substr(0, 6), "M   E ");
}

TEST_F(uLoggerTest, LevelZeroWritesNothing) {
  uLogger log(path().c_str(), true);
  log.Printf(0, 2, "nothing");
  EXPECT_FALSE(vestrel_test::fileExists(path()));
}

TEST_F(uLoggerTest, EachCategoryHasItsStamp) {
  uLogger log(path().c_str(), true);
  log.Printf(1, 0, "none");
  log.Printf(1, 1, "date");
  log.Printf(1, 3, "both");
  log.Printf(1, 9, "other");
  EXPECT_EQ(content(), "M      none" + nl() + "M     11/16/26 | date" + nl() + "M     11/16/26 14:03:07:045 | both" +
                           nl() + "M      other" + nl());
}

TEST_F(uLoggerTest, CarriageReturnNewlineEndsInOneNewline) {
  uLogger log(path().c_str(), true);
  log.Printf(1, 0, "a\r\n");
  log.Printf(1, 0, "b\n\r");
  log.Printf(1, 0, "c\n");
  log.Printf(1, 0, "d\r");
  log.Printf(1, 0, "e\n\n");
  EXPECT_EQ(content(),
            "M      a" + nl() + "M      b" + nl() + "M      c" + nl() + "M      d" + nl() + "M      e" + nl() + nl());
}

TEST_F(uLoggerTest, WriteMeasuresALengthOfZeroAndReturnsTheNewLength) {
  uLogger log(path().c_str(), true);
  EXPECT_EQ(log.Write("abc\r\n", 0), 4u);
  EXPECT_EQ(log.Write("abcdef", 3), 4u);
  EXPECT_EQ(content(), "abc" + nl() + "abc" + nl());
}

TEST_F(uLoggerTest, ADisabledLoggerWritesNothingAndReturnsTheLengthGiven) {
  uLogger log(path().c_str(), true);
  EXPECT_TRUE(log.SetEnabled(false));
  EXPECT_EQ(log.Write("abc", 0), 0u);
  EXPECT_EQ(log.Write("abc", 3), 3u);
  log.Printf(1, 2, "x");
  EXPECT_FALSE(vestrel_test::fileExists(path()));
  EXPECT_FALSE(log.SetEnabled(true));
}

TEST_F(uLoggerTest, SwitchingOffClosesTheFileAndTheNextLineAppends) {
  uLogger log(path().c_str(), true);
  log.Printf(1, 0, "one");
  EXPECT_TRUE(log.fileOpen());
  log.SetEnabled(false);
  EXPECT_FALSE(log.fileOpen());
  log.SetEnabled(true);
  log.Printf(1, 0, "two");
  EXPECT_EQ(content(), "M      one" + nl() + "M      two" + nl());
}

TEST_F(uLoggerTest, AnAppendingLoggerKeepsWhatTheFileHad) {
  {
    uLogger first(path().c_str(), true);
    first.Printf(1, 0, "old");
  }
  uLogger second(path().c_str(), true);
  second.Printf(1, 0, "new");
  EXPECT_EQ(content(), "M      old" + nl() + "M      new" + nl());
}

TEST_F(uLoggerTest, AnOverwritingLoggerStartsTheFileAfresh) {
  {
    uLogger first(path().c_str(), true);
    first.Printf(1, 0, "old");
  }
  uLogger second(path().c_str(), false);
  second.Printf(1, 0, "new");
  EXPECT_EQ(content(), "M      new" + nl());
}

TEST_F(uLoggerTest, ConsoleEchoPrintsTheSameLine) {
  uLogger log(path().c_str(), true);
  log.SetEchoConsole(true);
  testing::internal::CaptureStdout();
  log.Printf(1, 2, "%s: %d", "tag", 5);
  const std::string echoed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(echoed, "M     14:03:07:045 | tag: 5\n");
}

TEST_F(uLoggerTest, DebuggerOutputGetsEachLine) {
  uLogger log(path().c_str(), true);
  log.SetDebuggerOutput(true);
  log.Printf(16, 2, "failure %d", 3);
  ASSERT_EQ(fake.debuggerLines.size(), 1u);
  EXPECT_EQ(fake.debuggerLines[0], "    E 14:03:07:045 | failure 3\n");
}

TEST_F(uLoggerTest, AFileThatCannotBeOpenedDropsLinesAndRetries) {
  const std::string missing = dir.file("later") + vestrel_test::sep() + "log.txt";
  uLogger log(missing.c_str(), true);
  log.SetEchoConsole(true);
  testing::internal::CaptureStdout();
  log.Printf(1, 0, "lost");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "M      lost\n");
  EXPECT_FALSE(log.fileOpen());
  std::filesystem::create_directory(dir.file("later"));
  testing::internal::CaptureStdout();
  log.Printf(1, 0, "kept");
  testing::internal::GetCapturedStdout();
  EXPECT_TRUE(log.fileOpen());
  EXPECT_EQ(readFile(missing), "M      kept" + nl());
}

TEST_F(uLoggerTest, ALineLongerThanTheBufferIsWrittenWhole) {
  uLogger log(path().c_str(), true);
  const std::string payload(10000, 'x');
  log.Printf(1, 2, "%s|end", payload.c_str());
  EXPECT_EQ(content(), "M     14:03:07:045 | " + payload + "|end" + nl());
}

TEST_F(uLoggerTest, LinesFromSeveralThreadsNeverInterleave) {
  uLogger log(path().c_str(), true);
  constexpr int kThreads = 4;
  constexpr int kLines = 400;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kLines; ++i) log.Printf(1, 2, "thread %d line %04d %s", t, i, "abcdefghijklmnopqrstuvwxyz");
    });
  }
  for (auto& thread : threads) thread.join();
  const auto lines = vestrel_test::splitLines(content(), nl());
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(kThreads * kLines));
  std::set<std::string> seen;
  for (const auto& line : lines) {
    ASSERT_EQ(line.size(), std::string("M     14:03:07:045 | thread 0 line 0000 abcdefghijklmnopqrstuvwxyz").size())
        << line;
    ASSERT_EQ(line.substr(0, 21), "M     14:03:07:045 | ") << line;
    ASSERT_EQ(line.substr(line.size() - 26), "abcdefghijklmnopqrstuvwxyz") << line;
    seen.insert(line.substr(21, 18));
  }
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(kThreads * kLines));
}
