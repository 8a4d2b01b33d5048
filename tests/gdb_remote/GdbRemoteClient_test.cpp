// The client against a scripted server on a loopback port: the handshake
// with and without acknowledgements, memory, run and halt, breakpoints, and
// every failure (a NAK, a garbled reply, an error reply, silence, a dropped
// connection, no server at all), each with its text.
#include "GdbRemoteClient.h"

#include <gtest/gtest.h>

#include <regex>

#include "GdbError.h"
#include "ScriptedGdbServer.h"
#include "TcpTransport.h"
#include "ThrownText.h"

using namespace vestrel::gdb_remote;
using vestrel_test::GdbStep;
using vestrel_test::packet;
using vestrel_test::ScriptedGdbServer;
using vestrel_test::thrownText;
using Strings = std::vector<std::string>;

namespace {

constexpr auto kTimeout = std::chrono::milliseconds(300);
const std::string kSupported = "qSupported:swbreak+;hwbreak+";

// The handshake of a server that turns acknowledgements off.
std::vector<GdbStep> noAckHandshake() {
  return {{kSupported, "+" + packet("PacketSize=4000;QStartNoAckMode+")}, {"QStartNoAckMode", "+" + packet("OK")}};
}

std::vector<GdbStep> with(std::vector<GdbStep> first, const std::vector<GdbStep>& then) {
  first.insert(first.end(), then.begin(), then.end());
  return first;
}

std::unique_ptr<GdbRemoteClient> connect(const ScriptedGdbServer& server,
                                         std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
  return std::make_unique<GdbRemoteClient>(std::make_unique<TcpTransport>("127.0.0.1", server.port(), kTimeout * 10),
                                           timeout);
}

TEST(GdbRemoteClient, TurnsAcknowledgementsOffWhenTheServerCan) {
  ScriptedGdbServer server(with(noAckHandshake(), {{"m20000000,4", packet("2a000000")}}));
  {
    auto client = connect(server);
    EXPECT_TRUE(client->noAckMode());
    EXPECT_EQ(client->features(), "PacketSize=4000;QStartNoAckMode+");
    EXPECT_EQ(client->readWord(0x20000000), 42u);
  }
  // The two replies before no-ack mode are acknowledged, the one after not.
  EXPECT_EQ(server.finish(), (Strings{"$" + kSupported, "+", "$QStartNoAckMode", "+", "$m20000000,4"}));
  EXPECT_EQ(server.mismatch(), "");
}

TEST(GdbRemoteClient, AcknowledgesEveryReplyWhenTheServerCannotTurnThemOff) {
  ScriptedGdbServer server({{kSupported, "+" + packet("PacketSize=4000")},
                            {"M20000004,4:78563412", "+" + packet("OK")},
                            {"m20000004,4", "+" + packet("78563412")}});
  {
    auto client = connect(server);
    EXPECT_FALSE(client->noAckMode());
    client->writeWord(0x20000004, 0x12345678);
    EXPECT_EQ(client->readWord(0x20000004), 0x12345678u);
  }
  EXPECT_EQ(server.finish(), (Strings{"$" + kSupported, "+", "$M20000004,4:78563412", "+", "$m20000004,4", "+"}));
}

TEST(GdbRemoteClient, SendsAPacketAgainAfterANak) {
  ScriptedGdbServer server({{kSupported, "+" + packet("")},
                            {"m0,2", "-"},
                            {"m0,2", "+$0* #7a"}});  // "0000" run-length encoded: 48 + 42 + 32 = 0x7a
  {
    auto client = connect(server);
    EXPECT_EQ(client->readMemory(0, 2), std::string(2, '\0'));
  }
  EXPECT_EQ(server.finish(), (Strings{"$" + kSupported, "+", "$m0,2", "$m0,2", "+"}));
}

TEST(GdbRemoteClient, GivesUpAfterThreeNaks) {
  ScriptedGdbServer server({{kSupported, "+" + packet("")}, {"m0,4", "-"}, {"m0,4", "-"}, {"m0,4", "-"}});
  EXPECT_EQ(thrownText<GdbError>([&] { connect(server)->readMemory(0, 4); }),
            "the GDB server refused 'm0,4' 3 times (it did not receive it intact)");
  // Sent three times in all, and not a fourth.
  EXPECT_EQ(server.finish(), (Strings{"$" + kSupported, "+", "$m0,4", "$m0,4", "$m0,4"}));
  EXPECT_EQ(server.mismatch(), "");
}

TEST(GdbRemoteClient, AsksAgainForAGarbledReply) {
  // The server's first reply is garbled; the client's '-' brings the second.
  ScriptedGdbServer resending({{kSupported, "+" + packet("")}, {"m0,4", "+$2a000000#00" + packet("2a000000")}});
  {
    auto client = connect(resending);
    EXPECT_EQ(client->readWord(0), 42u);
  }
  EXPECT_EQ(resending.finish(), (Strings{"$" + kSupported, "+", "$m0,4", "-", "+"}));
}

TEST(GdbRemoteClient, GivesUpOnAReplyGarbledThreeTimes) {
  ScriptedGdbServer server({{kSupported, "+" + packet("")}, {"m0,4", "+$2a000000#00$2a000000#00$2a000000#00"}});
  EXPECT_EQ(thrownText<GdbError>([&] { connect(server)->readWord(0); }),
            "the reply to 'm0,4' arrived garbled (bad checksum) 3 times");
  EXPECT_EQ(server.finish(), (Strings{"$" + kSupported, "+", "$m0,4", "-", "-"}));
}

TEST(GdbRemoteClient, AnErrorReplyNamesTheRequest) {
  ScriptedGdbServer server(with(noAckHandshake(), {{"me0040010,4", packet("E14")}}));
  EXPECT_EQ(thrownText<GdbError>([&] { connect(server)->readWord(0xE0040010); }),
            "the GDB server refused reading 4 bytes at 0xE0040010: E14");
  server.finish();
}

TEST(GdbRemoteClient, ANonsenseMemoryReplyIsAnError) {
  ScriptedGdbServer server(with(noAckHandshake(), {{"m0,4", packet("2a00")}}));
  EXPECT_EQ(thrownText<GdbError>([&] { connect(server)->readWord(0); }),
            "the GDB server's answer to reading 4 bytes at 0x00000000 is not 4 bytes: '2a00'");
  server.finish();
}

TEST(GdbRemoteClient, SilenceIsATimeOut) {
  ScriptedGdbServer server(with(noAckHandshake(), {{"m0,4", ""}}));
  EXPECT_EQ(thrownText<GdbError>([&] { connect(server, kTimeout)->readWord(0); }),
            "no reply from the GDB server within 300 ms to 'm0,4'");
  server.finish();
}

TEST(GdbRemoteClient, NoAcknowledgementIsATimeOut) {
  ScriptedGdbServer server({{kSupported, ""}});
  EXPECT_EQ(thrownText<GdbError>([&] { connect(server, kTimeout); }),
            "no acknowledgement from the GDB server within 300 ms for '" + kSupported + "'");
  server.finish();
}

TEST(GdbRemoteClient, ADroppedConnectionIsSaid) {
  ScriptedGdbServer server(with(noAckHandshake(), {{"m0,4", "", true}}));
  const std::string port = std::to_string(server.port());
  EXPECT_EQ(thrownText<GdbError>([&] { connect(server)->readWord(0); }),
            "the GDB server at 127.0.0.1:" + port + " closed the connection");
  server.finish();
}

TEST(GdbRemoteClient, AfterTheLinkFailsEveryRequestFailsAtOnceWithTheFirstReason) {
  ScriptedGdbServer server(with(noAckHandshake(), {{"m0,4", packet("2a00") + "$garbled#00"}}));
  auto client = connect(server, kTimeout);
  EXPECT_EQ(thrownText<GdbError>([&] { client->readWord(0); }),
            "the GDB server's answer to reading 4 bytes at 0x00000000 is not 4 bytes: '2a00'");
  EXPECT_EQ(client->failure(), "") << "a wrong answer is no broken link";
  client->resume();
  EXPECT_EQ(thrownText<GdbError>([&] { client->waitForStop(kTimeout); }),
            "the reply to 'c' arrived garbled (bad checksum)");
  EXPECT_EQ(thrownText<GdbError>([&] { client->halt(); }),
            "the connection to the GDB server failed earlier: the reply to 'c' arrived garbled (bad checksum)");
  EXPECT_EQ(thrownText<GdbError>([&] { client->readWord(4); }),
            "the connection to the GDB server failed earlier: the reply to 'c' arrived garbled (bad checksum)");
  client.reset();
  const Strings sent = server.finish();
  EXPECT_EQ(sent.back(), "$c") << "nothing goes to a server after its link failed";
}

TEST(GdbRemoteClient, ControlCharactersInARepliesAreEscapedInTheMessage) {
  ScriptedGdbServer server(
      with(noAckHandshake(), {{"m0,4", packet("\x1b[2J\x07ok")}, {"M0,1:00", packet("E01\x1b]0;x")}}));
  auto client = connect(server);
  EXPECT_EQ(thrownText<GdbError>([&] { client->readWord(0); }),
            "the GDB server's answer to reading 4 bytes at 0x00000000 is not 4 bytes: '\\x1B[2J\\x07ok'");
  EXPECT_EQ(thrownText<GdbError>([&] { client->writeMemory(0, std::string(1, '\0')); }),
            "the GDB server refused writing 1 bytes at 0x00000000: E01\\x1B]0;x");
  client.reset();
  server.finish();
}

TEST(GdbRemoteClient, APacketThatDoesNotEndWithinTheTimeOutFails) {
  ScriptedGdbServer server(with(noAckHandshake(), {{"m0,4", "$0000"}}));
  auto client = connect(server, kTimeout);
  EXPECT_EQ(thrownText<GdbError>([&] { client->readWord(0); }),
            "the GDB server began a packet and did not end it within 300 ms");
  client.reset();
  server.finish();
}

TEST(GdbRemoteClient, NoServerAtAll) {
  unsigned short port = 0;
  {
    ScriptedGdbServer server({});
    port = server.port();
    auto transport = std::make_unique<TcpTransport>("127.0.0.1", port, kTimeout * 10);  // takes its connection
  }
  const std::string text = thrownText<GdbError>([&] { TcpTransport("127.0.0.1", port, kTimeout * 10); });
  EXPECT_TRUE(std::regex_match(
      text, std::regex("cannot connect to the GDB server at 127\\.0\\.0\\.1:" + std::to_string(port) + ": .+")))
      << text;
}

TEST(GdbRemoteClient, RunsHaltsAndSeesTheTargetStopByItself) {
  ScriptedGdbServer server(with(noAckHandshake(), {{"?", packet("S05")},
                                                   {"c", ""},
                                                   {"\x03", packet("O48690a") + packet("T02thread:01;")},
                                                   {"Z0,8c,2", packet("OK")},
                                                   {"c", packet("T05swbreak:;")},
                                                   {"z0,8c,2", packet("OK")},
                                                   {"c", packet("W00")}}));
  {
    auto client = connect(server);
    EXPECT_EQ(client->haltReason().text(), "stopped by signal 5 (SIGTRAP)");
    client->resume();
    EXPECT_TRUE(client->running());
    // Console output while it runs is passed over.
    const StopReply halted = client->halt();
    EXPECT_EQ(halted.text(), "stopped by signal 2 (SIGINT)");
    EXPECT_FALSE(client->running());
    client->insertBreakpoint(0x8C);
    client->resume();
    const auto atBreakpoint = client->waitForStop(std::chrono::seconds(5));
    ASSERT_TRUE(atBreakpoint);
    EXPECT_EQ(atBreakpoint->details, "swbreak:;");
    client->removeBreakpoint(0x8C);
    client->resume();
    const auto exited = client->waitForStop(std::chrono::seconds(5));
    ASSERT_TRUE(exited);
    EXPECT_EQ(exited->kind, StopReply::Kind::Exited);
  }
  server.finish();
  EXPECT_EQ(server.mismatch(), "");
}

TEST(GdbRemoteClient, ATargetThatKeepsRunningIsNoStop) {
  ScriptedGdbServer server(with(noAckHandshake(), {{"c", ""}}));
  {
    auto client = connect(server);
    client->resume();
    EXPECT_FALSE(client->waitForStop(std::chrono::milliseconds(50)));
    EXPECT_TRUE(client->running());
  }
  server.finish();
}

TEST(GdbRemoteClient, UnsupportedRequestsAreSaid) {
  ScriptedGdbServer server(with(noAckHandshake(), {{"Z1,100,2", packet("")}, {"M0,1:00", packet("E01")}}));
  {
    auto client = connect(server);
    EXPECT_EQ(thrownText<GdbError>([&] { client->insertBreakpoint(0x100, true); }),
              "the GDB server does not support a hardware breakpoint at 0x00000100 ('Z1,100,2')");
    EXPECT_EQ(thrownText<GdbError>([&] { client->writeMemory(0, std::string(1, '\0')); }),
              "the GDB server refused writing 1 bytes at 0x00000000: E01");
  }
  server.finish();
}

}  // namespace
