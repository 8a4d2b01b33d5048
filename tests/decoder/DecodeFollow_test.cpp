// vestrel-decode --follow when the file followed is replaced by another
// under its name, or truncated and written again: it notices, says which,
// and stops following (it used to read on in the old file, or to lose the
// lines written before it looked again).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "CommandStatus.h"
#include "TestSupport.h"

using vestrel_test::readFile;
namespace fs = std::filesystem;

namespace {

std::string decodeCommand() { return vestrel_test::onWindows() ? "vestrel-decode.exe" : "./vestrel-decode"; }

// Lines "<tag> <n>" on stimulus port 0, one byte per packet, each dated by
// a local timestamp (5 cycles) so that it is shown at once.
std::string stimulusLines(const std::string& tag, int count) {
  std::string bytes;
  for (int n = 0; n < count; ++n) {
    for (const char c : tag + " " + std::to_string(n) + "\n") {
      bytes += '\x01';
      bytes += c;
    }
    bytes += "\xC0\x05";
  }
  return bytes;
}

void write(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
}

// Runs vestrel-decode --follow on path until it ends; change() is called
// once the first lines are decoded. Returns the exit status; printed gets
// what it printed.
int follow(const std::string& path, const std::string& name, const std::function<void()>& change,
           std::string& printed) {
  const std::string out = name + ".out";
  fs::remove(out);
  std::atomic<int> status{-1};
  std::thread running([&] {
    status = vestrel_test::commandExitCode(
        std::system((decodeCommand() + " --follow " + path + " --idle-exit 30 > " + out + " 2>&1").c_str()));
  });
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (std::chrono::steady_clock::now() < until &&
         (!fs::exists(out) || readFile(out).find("first 199") == std::string::npos)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  try {
    change();
  } catch (...) {
    running.join();  // (it ends at --idle-exit)
    throw;
  }
  running.join();
  printed = readFile(out);
  std::erase(printed, '\r');
  return status;
}

TEST(DecodeFollow, AFileReplacedByAnotherUnderItsNameIsSaid) {
  if (vestrel_test::onWindows()) {
    GTEST_SKIP() << "Windows refuses to replace or delete a file another process has open, as vestrel-decode has the "
                    "file it follows; the truncation test runs there";
  }
  const std::string path = "follow-replaced.swo";
  write(path, stimulusLines("first", 200));
  std::string printed;
  const int status = follow(
      path, "follow-replaced",
      [&] {
        write("follow-replacement.swo", stimulusLines("first", 200) + stimulusLines("second", 2000));
        fs::rename("follow-replacement.swo", path);
      },
      printed);
  EXPECT_EQ(status, 0) << printed;
  EXPECT_NE(printed.find("vestrel-decode: " + path + " was replaced by another file; stopped following it\n"),
            std::string::npos)
      << printed.substr(printed.size() > 400 ? printed.size() - 400 : 0);
}

TEST(DecodeFollow, AFileTruncatedAndWrittenAgainIsSaid) {
  const std::string path = "follow-truncated.swo";
  write(path, stimulusLines("first", 200));
  std::string printed;
  const int status = follow(
      path, "follow-truncated",
      [&] {
        // Longer than before: its size alone does not show it.
        std::ofstream(path, std::ios::binary | std::ios::trunc) << stimulusLines("again", 2000);
      },
      printed);
  EXPECT_EQ(status, 0) << printed;
  EXPECT_NE(printed.find("vestrel-decode: " + path + " was truncated; stopped following it\n"), std::string::npos)
      << printed.substr(printed.size() > 400 ? printed.size() - 400 : 0);
  EXPECT_EQ(printed.find("port 0: again 1999"), std::string::npos) << "the new lines were read as if they went on";
}

}  // namespace
