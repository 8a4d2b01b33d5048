#include "RecordRun.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <random>
#include <thread>

#include "CommandStatus.h"
#include "SerialLine.h"
#include "TestSupport.h"

namespace vestrel_test {

namespace fs = std::filesystem;

namespace {

// Bytes with no zero among them, so the dump's zero padding is unambiguous.
std::string traceBytes(std::size_t size) {
  std::mt19937 random(2026);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(1 + random() % 255);
  return bytes;
}

}  // namespace

// The capture, without the zero padding of its last 8-byte sample.
std::string withoutPadding(std::string dump) {
  std::size_t zeros = 0;
  while (!dump.empty() && dump.back() == '\0' && zeros < 7) {
    dump.pop_back();
    ++zeros;
  }
  return dump;
}

std::string hostCommand() { return onWindows() ? "vestrel-host.exe" : "./vestrel-host"; }
std::string decodeCommand() { return onWindows() ? "vestrel-decode.exe" : "./vestrel-decode"; }

// The port in "serving the raw SWO stream on 127.0.0.1:<port>", once printed.
std::string servedPort(std::string printed) {
  std::erase(printed, '\r');
  const std::string prefix = "serving the raw SWO stream on 127.0.0.1:";
  const std::size_t at = printed.find(prefix);
  if (at == std::string::npos) return "";
  const std::size_t end = printed.find('\n', at);
  if (end == std::string::npos) return "";
  return printed.substr(at + prefix.size(), end - at - prefix.size());
}

// Runs the command while feeding the line at about 50 KB/s (half of what
// 1 Mbaud carries) until it exits. Bytes the line refuses are offered again.
Recording runHost(const std::string& command, const std::string& name,
                  const std::function<bool(const std::string& printed)>& whilePrinting, const std::string& output,
                  const std::string& holdInputUntil) {
  Recording result;
  std::error_code ignored;
  const std::string dump = output.empty() ? name + ".bin" : output;
  fs::remove(dump, ignored);
  fs::remove(name + ".out", ignored);
  vestrel::target_simulator::SerialLine line(7);
  if (!line.ready()) {
    ADD_FAILURE() << line.why();
    return result;
  }
  std::atomic<bool> finished{false};
  const std::string commandLine = hostCommand() + " " + command + " --output " + dump + " > " + name + ".out 2>&1";
  std::thread running([&] {
    if (holdInputUntil.empty()) {
      result.exitCode = commandExitCode(std::system(commandLine.c_str()));
      if (result.exitCode == -1 && !fileExists(name + ".out")) {
        // The shell did not start (the redirection would have made the file);
        // under load Wine sometimes fails to create a process. Once more.
        std::cerr << "the command did not start (" << std::strerror(errno) << "); starting it again\n";
        result.exitCode = commandExitCode(std::system(commandLine.c_str()));
      }
    } else {
      // The command's standard input is this end of a pipe, held open.
      std::FILE* input = popen(commandLine.c_str(), "w");
      if (input == nullptr) {
        finished = true;
        return;
      }
      const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(90);
      while (std::chrono::steady_clock::now() < until &&
             (!fileExists(name + ".out") || readFile(name + ".out").find(holdInputUntil) == std::string::npos)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
      }
      result.exitCode = commandExitCode(pclose(input));
    }
    finished = true;
  });
  const std::string source = traceBytes(4 << 20);
  std::size_t offered = 0;
  bool watching = static_cast<bool>(whilePrinting);
  while (!finished && offered < source.size()) {
    const std::size_t chunk = std::min<std::size_t>(512, source.size() - offered);
    offered += line.write(source.data() + offered, chunk);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (watching && whilePrinting(readFile(name + ".out"))) watching = false;
  }
  running.join();
  result.sent = source.substr(0, offered);
  result.dump = fileExists(dump) ? readFile(dump) : "";
  result.printed = readFile(name + ".out");
  return result;
}

Recording runRecord(const std::string& arguments, const std::string& name,
                    const std::function<void(const std::string& port)>& onServing) {
  if (!onServing) return runHost("record " + arguments, name, nullptr);
  return runHost("record " + arguments, name, [&](const std::string& printed) {
    const std::string port = servedPort(printed);
    if (port.empty()) return false;
    onServing(port);
    return true;
  });
}

// The bytes sent before the receiver opened the port are purged, and those
// sent after it stopped are not recorded; in between, every byte is kept.
void expectOneUnbrokenRunOfWhatWasSent(const Recording& run, std::size_t minimum) {
  ASSERT_EQ(run.dump.size() % 8, 0u);
  const std::string capture = withoutPadding(run.dump);
  ASSERT_GE(capture.size(), minimum) << "too little of the line was recorded";
  const std::size_t start = run.sent.find(capture.substr(0, 64));
  ASSERT_NE(start, std::string::npos) << "the capture does not begin with bytes that were sent";
  EXPECT_EQ(run.sent.compare(start, capture.size(), capture), 0) << "bytes were lost or changed inside the capture";
}

std::string printedLine(const std::string& printed, const std::string& prefix) {
  std::string text = printed;
  std::erase(text, '\r');
  const std::size_t at = text.find(prefix);
  if (at == std::string::npos) return "";
  return text.substr(at, text.find('\n', at) - at);
}

}  // namespace vestrel_test
