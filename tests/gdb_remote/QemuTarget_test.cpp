// The client against a real GDB server: QEMU's gdbstub with a Cortex-M3
// (mps2-an385) running the demo firmware, started halted at reset for each
// test program run by scripts/with-qemu-target (VESTREL_QEMU_GDB).
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "FirmwareLayout.h"
#include "GdbRemoteClient.h"
#include "TcpTransport.h"

using namespace vestrel::gdb_remote;
using namespace vestrel::target_simulator;

namespace {

// The PC from the registers QEMU sends for 'g' (it answers 'p' only to
// debuggers that read its register description): r0-r15 first, 8 hex
// digits each, least significant byte first.
std::uint32_t programCounter(GdbRemoteClient& client) {
  const std::string all = client.request("g");
  if (all.size() < 16 * 8) {
    ADD_FAILURE() << "QEMU's registers: " << all;
    return 0;
  }
  std::uint32_t value = 0;
  for (int byte = 3; byte >= 0; --byte) {
    value = (value << 8) | static_cast<std::uint32_t>(std::stoul(all.substr(15 * 8 + 2 * byte, 2), nullptr, 16));
  }
  return value;
}

std::uint32_t addressOf(const std::string& name) {
  for (const auto& f : kFirmwareFunctions) {
    if (name == f.name) return f.address;
  }
  for (const auto& v : kFirmwareVariables) {
    if (name == v.name) return v.address;
  }
  throw std::logic_error("no symbol " + name);
}

std::unique_ptr<GdbRemoteClient> connectToQemu() {
  const char* where = std::getenv("VESTREL_QEMU_GDB");
  if (where == nullptr) throw std::logic_error("VESTREL_QEMU_GDB is not set: run through scripts/with-qemu-target");
  const std::string text = where;
  const std::size_t colon = text.rfind(':');
  auto transport = std::make_unique<TcpTransport>(
      text.substr(0, colon), static_cast<unsigned short>(std::stoi(text.substr(colon + 1))), std::chrono::seconds(10));
  return std::make_unique<GdbRemoteClient>(std::move(transport), std::chrono::seconds(10));
}

TEST(QemuTarget, ReadsTheVectorTableOfTheHaltedTarget) {
  auto client = connectToQemu();
  // QEMU halts the machine when a debugger connects.
  EXPECT_EQ(client->haltReason().kind, StopReply::Kind::Stopped);
  EXPECT_EQ(client->readWord(0), 0x20010000u);                            // the initial stack pointer
  EXPECT_EQ(client->readWord(4), addressOf("Reset_Handler") | 1);         // reset, a Thumb address
  EXPECT_EQ(client->readWord(15 * 4), addressOf("SysTick_Handler") | 1);  // SysTick's vector
}

TEST(QemuTarget, WritesAndReadsRam) {
  auto client = connectToQemu();
  client->writeWord(0x20001000, 0xCAFEF00D);
  EXPECT_EQ(client->readWord(0x20001000), 0xCAFEF00Du);
  client->writeMemory(0x20001004, "vestrel");
  EXPECT_EQ(client->readMemory(0x20001004, 7), "vestrel");
}

TEST(QemuTarget, ABreakpointStopsTheRunningTarget) {
  auto client = connectToQemu();
  const std::uint32_t filter = addressOf("filter_sample");
  client->insertBreakpoint(filter);
  client->resume();
  const auto stop = client->waitForStop(std::chrono::seconds(20));
  if (!stop) client->halt();
  // The breakpoint goes whatever happened: the next test in this QEMU runs on.
  client->removeBreakpoint(filter);
  ASSERT_TRUE(stop) << "the target never reached filter_sample";
  EXPECT_EQ(stop->text(), "stopped by signal 5 (SIGTRAP)");
  EXPECT_EQ(programCounter(*client), filter);
}

TEST(QemuTarget, HaltsARunningTargetThatHasRunItsLoop) {
  auto client = connectToQemu();
  client->writeWord(addressOf("loop_count"), 0);
  client->resume();
  // However busy the machine, the target runs until the halt: wait until
  // the loop counter moves, then halt.
  std::uint32_t loops = 0;
  for (int i = 0; i < 200 && loops == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const StopReply halted = client->halt();
    EXPECT_EQ(halted.kind, StopReply::Kind::Stopped);
    loops = client->readWord(addressOf("loop_count"));
    if (loops == 0) client->resume();
  }
  EXPECT_GT(loops, 0u);
  EXPECT_FALSE(client->running());
}

}  // namespace
