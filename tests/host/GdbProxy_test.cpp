// vestrel-host gdb-proxy between gdb-multiarch (the user's debugger, in
// batch mode) and QEMU's gdbstub (a fresh Cortex-M3 with the demo firmware
// per run, from scripts/with-qemu-target), while the test feeds COM7: the
// session passes through, the recording starts when the debugger continues
// and stops when it interrupts, and the capture holds what the line carried
// in between, byte for byte.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>
#include <thread>

#include "FirmwareLayout.h"
#include "RecordRun.h"
#include "TestSupport.h"

using namespace vestrel_test;

namespace {

std::string qemu() {
  const char* where = std::getenv("VESTREL_QEMU_GDB");
  return where != nullptr ? where : "";
}

TEST(GdbProxy, RecordsWhileTheDebuggerLetsTheTargetRun) {
  if (onWindows()) {
    GTEST_SKIP() << "the user's debugger here is gdb-multiarch, a Linux program this Windows test cannot start; "
                    "the Windows build's GDB client runs against QEMU in GdbRecord and QemuTarget";
  }
  ASSERT_NE(qemu(), "") << "run through scripts/with-qemu-target";
  std::thread debugger;
  std::string debuggerSaid;
  const Recording run = runHost(
      "gdb-proxy --listen 127.0.0.1:0 --gdb " + qemu() +
          " --port COM7 --clock 6000000 --prescaler 0 --sessions 1 --force",
      "proxy", [&](const std::string& printed) {
        std::smatch found;
        if (!std::regex_search(printed, found, std::regex("target remote (127\\.0\\.0\\.1:[0-9]+)"))) return false;
        // The user's session: connect, continue, two seconds later interrupt.
        const std::string where = found[1];
        debugger = std::thread([where, &debuggerSaid] {
          const std::string command = "gdb-multiarch -nx -batch -ex 'target remote " + where +
                                      "' -ex 'continue &' -ex 'shell sleep 2' -ex 'interrupt' -ex 'shell sleep 1' "
                                      "> proxy-gdb.out 2>&1";
          std::system(command.c_str());
          debuggerSaid = readFile("proxy-gdb.out");
        });
        return true;
      });
  if (debugger.joinable()) debugger.join();
  Recording saved = run;
  saved.dump = fileExists("proxy-1.bin") ? readFile("proxy-1.bin") : "";
  ASSERT_EQ(run.exitCode, 0) << run.printed << debuggerSaid;
  EXPECT_EQ(printedLine(run.printed, "target running:"), "target running: Recording") << run.printed;
  EXPECT_EQ(printedLine(run.printed, "target stopped"), "target stopped by signal 2 (SIGINT): Stopped by user, " +
                                                            std::to_string(saved.dump.size() / 8) + " samples");
  EXPECT_EQ(printedLine(run.printed, "saved"), "saved proxy-1.bin (run 1, " + std::to_string(saved.dump.size() / 8) +
                                                   " samples); decode it: vestrel-decode proxy-1.bin");
  EXPECT_EQ(printedLine(run.printed, "session ended:"), "session ended: the debugger disconnected");
  // The run is saved when it ends, not when the session does.
  EXPECT_LT(run.printed.find("saved proxy-1.bin"), run.printed.find("session ended:"));
  EXPECT_NE(readFile("proxy-1.bin.vestrel.json").find("\"timestamp_prescale\": 4,"), std::string::npos);
  // Two seconds of the line at 50 KB/s: the run's capture is all of it.
  expectOneUnbrokenRunOfWhatWasSent(saved, 50000);
  // The debugger had its session: through the proxy it read where the
  // target was halted (batch mode prints the later stop no more).
  EXPECT_TRUE(std::regex_search(debuggerSaid, std::regex("0x[0-9a-f]{8} in "))) << debuggerSaid;
  EXPECT_EQ(debuggerSaid.find("Remote connection closed"), std::string::npos) << debuggerSaid;
}

std::string hex(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%x", value);
  return text;
}

// Two debugger sessions through one proxy: the first stops at a breakpoint
// twice and detaches (the target runs on); the second runs until
// interrupted and ends. Every run is a capture of its own, saved as it ends; nothing
// of the proxy's own reaches the server while its target runs, and QEMU
// answers a debugger of its own afterwards as after any direct session.
TEST(GdbProxy, ServesSessionAfterSessionSavingEveryRunAndLeavesTheServerWell) {
  if (onWindows()) {
    GTEST_SKIP() << "the user's debugger here is gdb-multiarch, a Linux program this Windows test cannot start; "
                    "the Windows build's GDB client runs against QEMU in GdbRecord and QemuTarget";
  }
  ASSERT_NE(qemu(), "") << "run through scripts/with-qemu-target";
  std::uint32_t breakAt = 0;
  std::uint32_t secondBreak = 0;
  for (const auto& function : vestrel::target_simulator::kFirmwareFunctions) {
    if (std::string(function.name) == "filter_sample") breakAt = function.address;
    if (std::string(function.name) == "uart_send") secondBreak = function.address;
  }
  std::thread debugger;
  std::string said[3];
  const Recording run = runHost(
      "gdb-proxy --listen 127.0.0.1:0 --gdb " + qemu() +
          " --port COM7 --clock 6000000 --prescaler 0 --sessions 2 --force",
      "proxy-sessions", [&](const std::string& printed) {
        std::smatch found;
        if (!std::regex_search(printed, found, std::regex("target remote (127\\.0\\.0\\.1:[0-9]+)"))) return false;
        const std::string where = found[1];
        debugger = std::thread([where, breakAt, secondBreak, &said] {
          const std::string gdb = "gdb-multiarch -nx -batch ";
          const std::string sessions[3] = {
              // Two runs, each to a breakpoint of its own: a second continue from
              // the same breakpoint would first step over it, and QEMU's step there
              // now and then ends where it began (gdb then reports the breakpoint
              // again without a run).
              gdb + "-ex 'target remote " + where + "' -ex 'break *" + hex(breakAt) +
                  "' -ex continue -ex delete -ex 'break *" + hex(secondBreak) + "' -ex continue -ex delete -ex detach",
              gdb + "-ex 'target remote " + where +
                  "' -ex 'continue &' -ex 'shell sleep 2' -ex interrupt -ex 'shell sleep 1'",
              // QEMU itself, straight, once the proxy has let it go.
              gdb + "-ex 'target remote " + qemu() + "' -ex 'x/1wx 0' -ex detach"};
          for (int i = 0; i < 3; ++i) {
            if (i == 2) std::this_thread::sleep_for(std::chrono::seconds(1));
            const std::string out = "proxy-sessions-gdb" + std::to_string(i) + ".out";
            std::system((sessions[i] + " > " + out + " 2>&1").c_str());
            said[i] = readFile(out);
          }
        });
        return true;
      });
  if (debugger.joinable()) debugger.join();
  ASSERT_EQ(run.exitCode, 0) << run.printed << said[0] << said[1];
  // The first session's two runs (to each breakpoint), the second session's.
  for (int n = 1; n <= 3; ++n) {
    const std::string name = "proxy-sessions-" + std::to_string(n) + ".bin";
    EXPECT_TRUE(fileExists(name)) << name << "\n" << run.printed;
    EXPECT_TRUE(fileExists(name + ".vestrel.json")) << name;
  }
  EXPECT_FALSE(fileExists("proxy-sessions-4.bin")) << run.printed;
  std::string printed = run.printed;
  std::erase(printed, '\r');
  const auto at = [&](const std::string& text) { return printed.find(text); };
  EXPECT_NE(at("target stopped by signal 5 (SIGTRAP)"), std::string::npos) << printed;
  EXPECT_NE(said[0].find("[Inferior 1 (process 1) detached]"), std::string::npos) << said[0];
  EXPECT_EQ(said[0].find("Cannot execute"), std::string::npos) << said[0];
  EXPECT_LT(at("saved proxy-sessions-1.bin (run 1"), at("saved proxy-sessions-2.bin (run 2"));
  EXPECT_LT(at("saved proxy-sessions-2.bin (run 2"), at("session ended:"));
  EXPECT_LT(at("session ended:"), at("saved proxy-sessions-3.bin (run 3"));
  EXPECT_EQ(printed.find("Remote connection closed"), std::string::npos) << printed;
  Recording second = run;
  second.dump = readFile("proxy-sessions-3.bin");
  expectOneUnbrokenRunOfWhatWasSent(second, 50000);
  EXPECT_EQ(printed.find("the target was left running"), std::string::npos) << printed;
  // QEMU is alive and answers as before.
  EXPECT_TRUE(std::regex_search(said[2], std::regex("0x0:\\s+0x[0-9a-f]{8}"))) << said[2];
  EXPECT_EQ(said[1].find("Remote connection closed"), std::string::npos) << said[1];
}

}  // namespace
