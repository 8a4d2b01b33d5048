// record --gdb when the GDB server fails while the target runs (the board
// unplugged, the server quitting or garbling): the recording is stopped in
// order, what arrived is saved, the reason is said and the exit status is 1;
// after the failure nothing more is sent to the server.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "EvilGdbServer.h"
#include "RecordRun.h"
#include "RspFraming.h"
#include "TcpTransport.h"
#include "TestSupport.h"

using namespace vestrel_test;

namespace {

std::string recordArguments(const EvilGdbServer& server, const std::string& seconds) {
  return "--gdb " + server.address() + " --port COM7 --clock 6000000 --prescaler 5 --seconds " + seconds;
}

std::string withoutCarriageReturns(std::string text) {
  std::erase(text, '\r');
  return text;
}

// The failure said, the capture saved with what arrived, exit status 1, and
// nothing sent after the continue. "{server}" in reason stands for the
// server's address.
void expectSavedAfterFailure(Misbehaviour what, const std::string& name, std::string reason) {
  EvilGdbServer server(what, Moment::OnContinue);
  const std::size_t at = reason.find("{server}");
  if (at != std::string::npos) reason.replace(at, 8, server.address());
  const Recording run = runRecord(recordArguments(server, "30"), name);
  const std::string printed = withoutCarriageReturns(run.printed);
  EXPECT_EQ(run.exitCode, 1) << printed;
  EXPECT_EQ(printedLine(printed, "vestrel-host: the GDB link failed"),
            "vestrel-host: the GDB link failed while the target ran: " + reason);
  EXPECT_EQ(printedLine(printed, "recording ended:"), "recording ended: the GDB link failed; what arrived is saved");
  EXPECT_EQ(printedLine(printed, "saved " + name), "saved " + name + ".bin");
  EXPECT_EQ(printed.find("nothing arrived"), std::string::npos) << printed;
  expectOneUnbrokenRunOfWhatWasSent(run, 1000);
  EXPECT_TRUE(fileExists(name + ".bin.vestrel.json"));
  const std::vector<std::string> sent = server.finish();
  ASSERT_FALSE(sent.empty());
  EXPECT_EQ(sent.back(), "$c") << "something was sent to the server after it failed";
}

TEST(GdbLinkFailure, AServerThatClosesWhileTheTargetRuns) {
  expectSavedAfterFailure(Misbehaviour::Close, "gdb-closed", "the GDB server at {server} closed the connection");
}

TEST(GdbLinkFailure, GarbageInsteadOfAStopReplyIsShownEscaped) {
  expectSavedAfterFailure(Misbehaviour::Garbage, "gdb-garbage",
                          "the GDB server sent 'garbage<script>\\x1B[2J' while the target ran; no stop reply");
}

TEST(GdbLinkFailure, AStopReplyGarbledEveryTime) {
  expectSavedAfterFailure(Misbehaviour::BadChecksums, "gdb-garbled",
                          "the reply to 'c' arrived garbled (bad checksum) 3 times");
}

TEST(GdbLinkFailure, ARunLengthBombIsRefusedAtTheCap) {
  expectSavedAfterFailure(Misbehaviour::RunLengthBomb, "gdb-bomb",
                          "the GDB server sent a packet that expands to more than 65536 bytes (run-length encoded); "
                          "refused");
}

TEST(GdbLinkFailure, APacketThatNeverEndsIsRefusedAtTheCap) {
  expectSavedAfterFailure(Misbehaviour::EndlessPacket, "gdb-endless",
                          "the GDB server sent a packet of more than 131076 bytes with no end ('#'); refused");
}

// The default recording waits for Enter on a thread of its own; a failure
// while it waits ends the recording all the same (it used to abort).
TEST(GdbLinkFailure, AFailureWhileWaitingForEnter) {
  EvilGdbServer server(Misbehaviour::Close, Moment::OnContinue);
  const Recording run = runHost("record " + recordArguments(server, "0"), "gdb-enter", nullptr, "", "saved");
  const std::string printed = withoutCarriageReturns(run.printed);
  EXPECT_EQ(run.exitCode, 1) << printed;
  EXPECT_EQ(printedLine(printed, "vestrel-host: the GDB link failed"),
            "vestrel-host: the GDB link failed while the target ran: the GDB server at " + server.address() +
                " closed the connection");
  EXPECT_EQ(printedLine(printed, "saved gdb"), "saved gdb-enter.bin");
  EXPECT_EQ(printed.find("terminate"), std::string::npos) << printed;
}

// A server that stops answering leaves a running target legal; the halt at
// the end is where it shows.
TEST(GdbLinkFailure, AServerThatGoesSilentFailsTheHaltAndTheCaptureIsSaved) {
  EvilGdbServer server(Misbehaviour::Silence, Moment::OnContinue);
  const Recording run = runRecord(recordArguments(server, "1"), "gdb-silent");
  const std::string printed = withoutCarriageReturns(run.printed);
  EXPECT_EQ(run.exitCode, 1) << printed;
  EXPECT_EQ(printedLine(printed, "vestrel-host: the target could not be halted"),
            "vestrel-host: the target could not be halted: the target did not halt within 10000 ms of the request");
  EXPECT_EQ(printedLine(printed, "saved gdb"), "saved gdb-silent.bin");
  expectOneUnbrokenRunOfWhatWasSent(run, 1000);
  const std::vector<std::string> sent = server.finish();
  ASSERT_GE(sent.size(), 2u);
  EXPECT_EQ(sent[sent.size() - 2], "$c");
  EXPECT_EQ(sent.back(), "^C") << "only the interrupt byte may follow the continue";
}

// A memory read answered wrongly while the trace blocks are programmed: the
// receiver's words and the reason, and nothing recorded.
void expectProgrammingFailure(Misbehaviour what, const std::string& name, const std::string& reason) {
  EvilGdbServer server(what, Moment::OnEveryRead);
  const Recording run = runRecord(recordArguments(server, "2"), name);
  const std::string printed = withoutCarriageReturns(run.printed);
  EXPECT_EQ(run.exitCode, 1) << printed;
  EXPECT_NE(printedLine(printed, "vestrel-host: receiver error (severity 2): "), "") << printed;
  EXPECT_EQ(printedLine(printed, "vestrel-host: because"), "vestrel-host: because " + reason) << printed;
}

TEST(GdbLinkFailure, AMemoryReadOfTheWrongLengthSaysWhy) {
  expectProgrammingFailure(
      Misbehaviour::WrongLength, "gdb-short-read",
      "ProgramTpiu: the GDB server's answer to reading 4 bytes at 0xE000EDFC is not 4 bytes: '00'");
}

TEST(GdbLinkFailure, AMemoryReadWithNoHexSaysWhy) {
  expectProgrammingFailure(
      Misbehaviour::NoHex, "gdb-no-hex",
      "ProgramTpiu: the GDB server's answer to reading 4 bytes at 0xE000EDFC is not 4 bytes: 'zzzzzzzz'");
}

// gdb-proxy: the debugger's session is kept when the trace blocks cannot be
// set up for a run; the run is not recorded and the reason is said.
TEST(GdbLinkFailure, TheProxyKeepsTheDebuggersSessionWhenSettingUpTheTraceFails) {
  EvilGdbServer server(Misbehaviour::WrongLength, Moment::OnEveryRead);
  std::string debuggerGot;
  std::thread debugger;
  const Recording run =
      runHost("gdb-proxy --listen 127.0.0.1:0 --gdb " + server.address() +
                  " --port COM7 --clock 6000000 --prescaler 5 --sessions 1",
              "gdb-proxy-setup", [&](const std::string& printed) {
                const std::string line = printedLine(printed, "waiting for your debugger: target remote 127.0.0.1:");
                if (line.empty()) return false;
                const auto port = static_cast<unsigned short>(std::stoi(line.substr(line.rfind(':') + 1)));
                debugger = std::thread([port, &debuggerGot] {
                  vestrel::gdb_remote::TcpTransport link("127.0.0.1", port, std::chrono::seconds(10));
                  const auto expect = [&](std::size_t bytes) {
                    char buffer[256];
                    while (debuggerGot.size() < bytes) {
                      const std::size_t got = link.receive(buffer, sizeof buffer, std::chrono::seconds(20));
                      if (got == 0) return;
                      debuggerGot.append(buffer, got);
                    }
                  };
                  link.send(vestrel::gdb_remote::rspFrame("c"));
                  expect(1);  // the continue's acknowledgement: the target runs
                  link.send("\x03");
                  expect(1 + vestrel::gdb_remote::rspFrame("T02").size());
                  link.send("+" + vestrel::gdb_remote::rspFrame("D"));
                  expect(2 + vestrel::gdb_remote::rspFrame("T02").size() + vestrel::gdb_remote::rspFrame("OK").size());
                });
                return true;
              });
  if (debugger.joinable()) debugger.join();
  const std::string printed = withoutCarriageReturns(run.printed);
  EXPECT_EQ(run.exitCode, 1) << printed;
  EXPECT_EQ(debuggerGot, "+" + vestrel::gdb_remote::rspFrame("T02") + "+" + vestrel::gdb_remote::rspFrame("OK"));
  EXPECT_EQ(printedLine(printed, "vestrel-host: because"),
            "vestrel-host: because ProgramTpiu: the GDB server's answer to reading 4 bytes at 0xE000EDFC is not 4 "
            "bytes: '00'");
  EXPECT_EQ(printedLine(printed, "target running"),
            "target running: not recorded (the trace blocks could not be set up)");
  EXPECT_EQ(printedLine(printed, "session ended"), "session ended: the debugger disconnected");
  EXPECT_EQ(printedLine(printed, "vestrel-host: 1 run"),
            "vestrel-host: 1 run was not recorded: the trace blocks could not be set up (see above)");
  const std::vector<std::string> sent = server.finish();
  ASSERT_GE(sent.size(), 3u);
  EXPECT_EQ(sent.back(), "$D");
}

}  // namespace
