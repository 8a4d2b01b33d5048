// vestrel-host record --gdb against QEMU's gdbstub (a fresh Cortex-M3 with
// the demo firmware per run, from scripts/with-qemu-target) while the test
// feeds COM7: the receiver programs the trace blocks through the GDB server
// (QEMU reads them as zero, and says so), the automatic clock is read from
// registers the test placed in the emulated RAM, the target runs while
// recording and is halted at the end, or stops the recording by itself at a
// breakpoint.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

#include "FirmwareLayout.h"
#include "GdbRemoteClient.h"
#include "RecordRun.h"
#include "TcpTransport.h"
#include "TestSupport.h"

using namespace vestrel_test;

namespace {

std::string qemu() {
  const char* where = std::getenv("VESTREL_QEMU_GDB");
  return where != nullptr ? where : "";
}

std::uint32_t functionAddress(const std::string& name) {
  for (const auto& f : vestrel::target_simulator::kFirmwareFunctions) {
    if (name == f.name) return f.address;
  }
  throw std::logic_error("no function " + name);
}

// The demo's device family, its clock registers (16-bit, read 4 bytes at a
// time) placed in QEMU's RAM: DCO 12 MHz divided by 2, 6 MHz.
void placeClockRegisters() {
  const std::string where = qemu();
  const std::size_t colon = where.rfind(':');
  vestrel::gdb_remote::GdbRemoteClient client(std::make_unique<vestrel::gdb_remote::TcpTransport>(
      where.substr(0, colon), static_cast<unsigned short>(std::stoi(where.substr(colon + 1))),
      std::chrono::seconds(10)));
  client.writeMemory(0x20002000, std::string("\x00\x00\x03\x00\x01\x00\x00\x00", 8));
  std::ofstream device("gdb-device.txt");
  device << "# the demo's device, its clock registers in QEMU's RAM\n"
            "device_id = 0x0B9AF02F\n"
            "register MOD_SYSCLK CSCTL0 = 0x20002000\n"
            "register MOD_SYSCLK CSCTL1 = 0x20002002\n"
            "register MOD_SYSCLK CSCTL2 = 0x20002004\n"
            "register MOD_SYSCLK CSCTL3 = 0x20002006\n"
            "register MOD_SYSCLK CSCLKEN = 0x2000200E\n"
            "register MOD_SYSCLK TLVBASE = 0x20002100\n";
}

// The receiver's log line that says what it opened the port with.
std::string uartConfiguration() {
  for (const auto& entry : std::filesystem::recursive_directory_iterator("vestrel-record")) {
    if (!entry.is_regular_file() || entry.path().filename().string().rfind("kv_trace_log_", 0) != 0) continue;
    std::ifstream log(entry.path());
    std::string line;
    while (std::getline(log, line)) {
      const std::size_t at = line.find("UART configuration: Target:");
      if (at != std::string::npos) return line.substr(at);
    }
  }
  return "";
}

TEST(GdbRecord, TheDevicesClockThroughTheGdbServerAndTheTargetHaltedAtTheEnd) {
  ASSERT_NE(qemu(), "") << "run through scripts/with-qemu-target";
  placeClockRegisters();
  std::error_code ignored;
  std::filesystem::remove_all("vestrel-record/.KV-trace", ignored);  // logs of earlier runs
  ScopedEnv logging("KV_TRACE_LOGGING", "1");
  const Recording run =
      runRecord("--gdb " + qemu() +
                    " --device gdb-device.txt --clock auto --prescaler 0 --port COM7 "
                    "--pc-sampling 4096 --exceptions --itm-ports 0,1 --data-trace 0x20000010 --seconds 2",
                "record-gdb");
  ASSERT_EQ(run.exitCode, 0) << run.printed;
  expectOneUnbrokenRunOfWhatWasSent(run);
  EXPECT_TRUE(std::regex_search(run.printed, std::regex("GDB server 127\\.0\\.0\\.1:[0-9]+: target stopped by "
                                                        "signal [0-9]+")))
      << run.printed;
  // QEMU's Cortex-M3 reads the trace registers as zero: every write is
  // reported, none is hidden.
  EXPECT_NE(run.printed.find("vestrel-host: warning: TPIU SPPR (0xE00400F0): wrote 0x00000002, read back "
                             "0x00000000"),
            std::string::npos)
      << run.printed;
  EXPECT_NE(run.printed.find("vestrel-host: warning: ITM TER (0xE0000E00): wrote 0x00000003, read back 0x00000000"),
            std::string::npos);
  EXPECT_NE(run.printed.find("vestrel-host: warning: DWT CTRL (0xE0001000): wrote 0x00011607, read back "
                             "0x00000000"),
            std::string::npos);
  // --data-trace: comparator 0 watches the word, for its PC and value.
  EXPECT_NE(run.printed.find("vestrel-host: warning: DWT COMP0 (0xE0001020): wrote 0x20000010, read back "
                             "0x00000000"),
            std::string::npos)
      << run.printed;
  EXPECT_EQ(printedLine(run.printed, "halted the target"), "halted the target (stopped by signal 2 (SIGINT))");
  EXPECT_EQ(printedLine(run.printed, "stopped:"),
            "stopped: Stopped by user, " + std::to_string(run.dump.size() / 8) + " samples");
  // 6 MHz from the registers in RAM, the prescaler as given.
  EXPECT_EQ(uartConfiguration(),
            "UART configuration: Target: Trace Clock = 6000000.000000, Baud rate=6000000, Prescalar=0");
}

TEST(GdbRecord, ABreakpointEndsTheRecording) {
  ASSERT_NE(qemu(), "") << "run through scripts/with-qemu-target";
  char address[16];
  std::snprintf(address, sizeof address, "0x%X", static_cast<unsigned>(functionAddress("filter_sample")));
  const Recording run =
      runRecord("--gdb " + qemu() + " --clock 6000000 --prescaler 0 --port COM7 --seconds 60 --break " + address +
                    " --leave-running",
                "record-gdb-break");
  ASSERT_EQ(run.exitCode, 0) << run.printed;
  // A minute was asked for: the breakpoint ended it.
  EXPECT_EQ(printedLine(run.printed, "the target stopped"), "the target stopped by signal 5 (SIGTRAP)");
  EXPECT_EQ(printedLine(run.printed, "left the target running"), "left the target running");
  EXPECT_EQ(printedLine(run.printed, "saved"), "saved record-gdb-break.bin");
}

// A server that is not there is a runtime failure (exit status 1), not a
// usage error.
TEST(GdbRecord, NoServerThereEndsTheCommandWithWhy) {
  const Recording run = runRecord("--gdb 127.0.0.1:1 --clock 6000000 --port COM7 --seconds 1", "record-gdb-none");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(std::regex_search(run.printed,
                                std::regex("vestrel-host: cannot connect to the GDB server at 127\\.0\\.0\\.1:1: .+")))
      << run.printed;
}

}  // namespace
