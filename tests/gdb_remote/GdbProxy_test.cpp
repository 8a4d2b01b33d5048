// The proxy between a scripted debugger and a scripted server: in all-stop
// mode nothing of the owner's may reach a server whose target runs, and
// nothing at all once the debugger's session is over.
#include "GdbProxy.h"

#include <gtest/gtest.h>

#include <thread>

#include "GdbError.h"
#include "ScriptedGdbServer.h"
#include "TcpTransport.h"
#include "ThrownText.h"

using namespace vestrel::gdb_remote;
using vestrel_test::packet;
using vestrel_test::ScriptedGdbServer;
using vestrel_test::thrownText;
using Strings = std::vector<std::string>;

namespace {

// The debugger's side: sends, waits for what the server answers, leaves.
void debuggerSession(unsigned short port, const std::string& send, std::size_t answerBytes) {
  TcpTransport debugger("127.0.0.1", port, std::chrono::seconds(10));
  debugger.send(send);
  std::string answer;
  char buffer[256];
  while (answer.size() < answerBytes) {
    const std::size_t got = debugger.receive(buffer, sizeof buffer, std::chrono::seconds(10));
    if (got == 0) break;
    answer.append(buffer, got);
  }
}

TEST(GdbProxyRequests, TheTargetLeftRunningWhenTheSessionEndsGetsNothingMore) {
  // The continue is acknowledged and the target runs: no stop reply.
  ScriptedGdbServer server(std::vector<vestrel_test::GdbStep>{{"c", "+"}});
  GdbProxy proxy("127.0.0.1", 0, "127.0.0.1", server.port());
  std::thread debugger([&] { debuggerSession(proxy.port(), packet("c"), 1); });
  bool couldRequestBeforeTheResume = false;
  GdbProxy::Events events;
  events.resuming = [&] { couldRequestBeforeTheResume = proxy.canRequest(); };
  const std::string ended = proxy.run(events, [] { return true; });
  debugger.join();
  EXPECT_EQ(ended, "the debugger disconnected");
  EXPECT_TRUE(couldRequestBeforeTheResume);
  EXPECT_FALSE(proxy.canRequest());
  EXPECT_EQ(thrownText<GdbError>([&] { proxy.server(); }),
            "no debugger session is open: nothing is sent to the GDB server");
  EXPECT_EQ(server.finish(), (Strings{"$c"}));
  EXPECT_EQ(server.mismatch(), "");
}

TEST(GdbProxyRequests, ADetachLetsTheTargetRunSoTheOwnerMayAskNothingMore) {
  ScriptedGdbServer server(std::vector<vestrel_test::GdbStep>{{"D", "+" + packet("OK")}});
  GdbProxy proxy("127.0.0.1", 0, "127.0.0.1", server.port());
  std::thread debugger([&] { debuggerSession(proxy.port(), packet("D"), 1 + packet("OK").size()); });
  const std::string ended = proxy.run({}, [] { return true; });
  debugger.join();
  EXPECT_EQ(ended, "the debugger disconnected");
  EXPECT_TRUE(proxy.targetRunning());
  EXPECT_FALSE(proxy.canRequest());
  EXPECT_EQ(server.finish(), (Strings{"$D"}));
  EXPECT_EQ(server.mismatch(), "");
}

TEST(GdbProxyFraming, ThePacketSizeAdvertisedIsAtMostWhatTheProxyTakes) {
  EXPECT_EQ(GdbProxy::advertisedFeatures("PacketSize=4000;hwbreak+"), "PacketSize=4000;hwbreak+");
  EXPECT_EQ(GdbProxy::advertisedFeatures("hwbreak+;PacketSize=100000;qXfer:features:read+"),
            "hwbreak+;PacketSize=10000;qXfer:features:read+");
  EXPECT_EQ(GdbProxy::advertisedFeatures("PacketSize=fffffffff"), "PacketSize=10000");
  EXPECT_EQ(GdbProxy::advertisedFeatures("PacketSize=zz;swbreak+"), "PacketSize=10000;swbreak+");
  EXPECT_EQ(GdbProxy::advertisedFeatures("swbreak+"), "swbreak+;PacketSize=10000");
  EXPECT_EQ(GdbProxy::advertisedFeatures(""), "PacketSize=10000");
}

// What the debugger receives of a session: everything up to the end.
std::string debuggerReceives(unsigned short port, const std::string& send) {
  TcpTransport debugger("127.0.0.1", port, std::chrono::seconds(10));
  std::string answer;
  char buffer[4096];
  try {
    // The proxy may close the session before all of it is sent (a packet
    // it refuses): sending fails then too.
    debugger.send(send);
    for (;;) {
      const std::size_t got = debugger.receive(buffer, sizeof buffer, std::chrono::seconds(20));
      if (got == 0) break;
      answer.append(buffer, got);
    }
  } catch (const GdbError&) {
    // the proxy closed the session
  }
  return answer;
}

TEST(GdbProxyFraming, TheDebuggerSeesTheCappedPacketSize) {
  ScriptedGdbServer server(std::vector<vestrel_test::GdbStep>{
      {"qSupported:multiprocess+", "+" + packet("PacketSize=100000;QStartNoAckMode+"), true}});
  GdbProxy proxy("127.0.0.1", 0, "127.0.0.1", server.port());
  std::string answer;
  std::thread debugger([&] { answer = debuggerReceives(proxy.port(), packet("qSupported:multiprocess+")); });
  proxy.run({}, [] { return true; });
  debugger.join();
  EXPECT_EQ(answer, "+" + packet("PacketSize=10000;QStartNoAckMode+"));
  server.finish();
}

TEST(GdbProxyFraming, AnEndlessPacketFromTheDebuggerEndsTheSessionAndReachesNoServer) {
  ScriptedGdbServer server(std::vector<vestrel_test::GdbStep>{});
  GdbProxy proxy("127.0.0.1", 0, "127.0.0.1", server.port());
  std::thread debugger([&] { debuggerReceives(proxy.port(), "$" + std::string(300000, 'a')); });
  const std::string ended = proxy.run({}, [] { return true; });
  debugger.join();
  EXPECT_EQ(ended, "the debugger sent a packet of more than 131076 bytes with no end ('#'); refused");
  EXPECT_EQ(server.finish(), Strings{});
}

TEST(GdbProxyFraming, ARunLengthBombFromTheDebuggerEndsTheSession) {
  ScriptedGdbServer server(std::vector<vestrel_test::GdbStep>{});
  GdbProxy proxy("127.0.0.1", 0, "127.0.0.1", server.port());
  std::string bomb = "$0";
  for (int i = 0; i < 1000; ++i) bomb += "*\xff";
  std::thread debugger([&] { debuggerReceives(proxy.port(), bomb + "#00"); });
  const std::string ended = proxy.run({}, [] { return true; });
  debugger.join();
  EXPECT_EQ(ended, "the debugger sent a packet that expands to more than 65536 bytes (run-length encoded); refused");
  EXPECT_EQ(server.finish(), Strings{});
}

TEST(GdbProxyFraming, APacketTheDebuggerDoesNotEndTimesOut) {
  ScriptedGdbServer server(std::vector<vestrel_test::GdbStep>{});
  GdbProxy proxy("127.0.0.1", 0, "127.0.0.1", server.port());
  std::thread debugger([&] { debuggerReceives(proxy.port(), "$m0,4"); });
  const std::string ended = proxy.run({}, [] { return true; });
  debugger.join();
  EXPECT_EQ(ended, "the debugger began a packet and did not end it within 10 s");
  EXPECT_EQ(server.finish(), Strings{});
}

}  // namespace

namespace {

struct Motion {
  int resumes = 0;
  int stops = 0;
};

// One packet from the debugger, acknowledged and answered by a stop reply.
Motion motionOf(const std::string& request) {
  ScriptedGdbServer server(std::vector<vestrel_test::GdbStep>{{request, "+" + packet("S05")}});
  GdbProxy proxy("127.0.0.1", 0, "127.0.0.1", server.port());
  std::thread debugger([&] { debuggerSession(proxy.port(), packet(request), 1 + packet("S05").size()); });
  Motion seen;
  GdbProxy::Events events;
  events.resuming = [&] { ++seen.resumes; };
  events.stopped = [&](const StopReply& stop) {
    ++seen.stops;
    EXPECT_EQ(stop.text(), "stopped by signal 5 (SIGTRAP)");
  };
  proxy.run(events, [] { return true; });
  debugger.join();
  EXPECT_EQ(server.finish(), (Strings{"$" + request})) << request;
  EXPECT_EQ(server.mismatch(), "") << request;
  EXPECT_FALSE(proxy.targetRunning()) << request;
  return seen;
}

// One packet from the debugger, acknowledged and not answered: is the target
// left running when the session ends?
bool leftRunning(const std::string& request) {
  ScriptedGdbServer server(std::vector<vestrel_test::GdbStep>{{request, "+"}});
  GdbProxy proxy("127.0.0.1", 0, "127.0.0.1", server.port());
  std::thread debugger([&] { debuggerSession(proxy.port(), packet(request), 1); });
  proxy.run({}, [] { return true; });
  debugger.join();
  EXPECT_EQ(server.finish(), (Strings{"$" + request})) << request;
  return proxy.targetRunning();
}

}  // namespace

// Every way a debugger continues is a run to record, signal or address or
// not; a step is not, but the target is not asked anything until it stops.
TEST(GdbProxyResumes, EveryFormOfContinueIsARun) {
  for (const std::string request :
       {"c", "c8000124", "C05", "C05;8000124", "vCont;c", "vCont;C05:p1.-1", "vCont;s:p1.1;c", "vCont;C0e:1;c"}) {
    const Motion seen = motionOf(request);
    EXPECT_EQ(seen.resumes, 1) << request;
    EXPECT_EQ(seen.stops, 1) << request;
    EXPECT_TRUE(leftRunning(request)) << request;
  }
}

// Until its stop reply a stepping target runs: the owner may ask nothing.
TEST(GdbProxyResumes, AStepIsNoRunButStopsAllTheSame) {
  for (const std::string request :
       {"s", "s8000124", "S05", "S05;8000124", "vCont;s", "vCont;S05:p1.-1", "vCont;r8000120,8000130:1"}) {
    const Motion seen = motionOf(request);
    EXPECT_EQ(seen.resumes, 0) << request;
    EXPECT_EQ(seen.stops, 1) << request;
    EXPECT_TRUE(leftRunning(request)) << request;
  }
}

TEST(GdbProxyResumes, PacketsThatLookAlikeAreNeither) {
  for (const std::string request : {"vCont?", "vCont;t", "Cx", "cz", "qC", "sQ"}) {
    ScriptedGdbServer server(std::vector<vestrel_test::GdbStep>{{request, "+" + packet("")}});
    GdbProxy proxy("127.0.0.1", 0, "127.0.0.1", server.port());
    std::thread debugger([&] { debuggerSession(proxy.port(), packet(request), 1 + packet("").size()); });
    int resumes = 0;
    GdbProxy::Events events;
    events.resuming = [&] { ++resumes; };
    const std::string ended = proxy.run(events, [] { return true; });
    debugger.join();
    EXPECT_EQ(resumes, 0) << request;
    EXPECT_FALSE(proxy.targetRunning()) << request;
    EXPECT_EQ(ended, "the debugger disconnected") << request;
    EXPECT_EQ(server.finish(), (Strings{"$" + request})) << request;
  }
}
