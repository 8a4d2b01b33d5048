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

using namespace vestrel::gdb;
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

}  // namespace
