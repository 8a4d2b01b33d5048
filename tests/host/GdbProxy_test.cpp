// vestrel-host gdb-proxy between gdb-multiarch (the user's debugger, in
// batch mode) and QEMU's gdbstub (a fresh Cortex-M3 with the demo firmware
// per run, from scripts/with-qemu-target), while the test feeds COM7: the
// session passes through, the recording starts when the debugger continues
// and stops when it interrupts, and the capture holds what the line carried
// in between, byte for byte.
#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <string>
#include <thread>

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
      "gdb-proxy --listen 127.0.0.1:0 --gdb " + qemu() + " --port COM7 --clock 6000000 --prescaler 0", "proxy",
      [&](const std::string& printed) {
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
  ASSERT_EQ(run.exitCode, 0) << run.printed << debuggerSaid;
  EXPECT_EQ(printedLine(run.printed, "target running:"), "target running: Recording") << run.printed;
  EXPECT_EQ(printedLine(run.printed, "target stopped"), "target stopped by signal 2 (SIGINT): Stopped by user, " +
                                                            std::to_string(run.dump.size() / 8) + " samples");
  EXPECT_EQ(printedLine(run.printed, "session ended:"), "session ended: the debugger disconnected");
  // Two seconds of the line at 50 KB/s: the run's capture is all of it.
  expectOneUnbrokenRunOfWhatWasSent(run, 50000);
  // The debugger had its session: through the proxy it read where the
  // target was halted (batch mode prints the later stop no more).
  EXPECT_TRUE(std::regex_search(debuggerSaid, std::regex("0x[0-9a-f]{8} in "))) << debuggerSaid;
  EXPECT_EQ(debuggerSaid.find("Remote connection closed"), std::string::npos) << debuggerSaid;
}

}  // namespace
