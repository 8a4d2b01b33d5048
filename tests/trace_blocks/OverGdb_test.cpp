// The trace blocks programmed over a GDB connection: the packets on the
// wire, against a scripted server.
#include <gtest/gtest.h>

#include "GdbTraceInterface.h"
#include "ScriptedGdbServer.h"
#include "TcpTransport.h"

using namespace vestrel::trace_blocks;
using namespace Kv::Orv::Trace;
using vestrel_test::GdbStep;
using vestrel_test::packet;

namespace {

TEST(TraceBlocksOverGdb, ProgrammingIsTheseMemoryPackets) {
  const std::string ok = packet("OK");
  vestrel_test::ScriptedGdbServer server({
      {"qSupported:swbreak+;hwbreak+", "+" + packet("QStartNoAckMode+")},
      {"QStartNoAckMode", "+" + ok},
      {"me000edfc,4", packet("00000000")},
      {"Me000edfc,4:00000001", ok},  // little-endian: 0x01000000, TRCENA
      {"me000edfc,4", packet("00000001")},
      {"Me0040004,4:01000000", ok},
      {"me0040004,4", packet("01000000")},
      {"Me0040010,4:05000000", ok},
      {"me0040010,4", packet("05000000")},
      {"Me00400f0,4:02000000", ok},
      {"me00400f0,4", packet("02000000")},
      {"Me0040304,4:00010000", ok},
      {"me0040304,4", packet("00010000")},
      {"Me0000fb0,4:55ceacc5", ok},
      {"Me0000e80,4:00000000", ok},
      {"me0000e80,4", packet("00000000")},
      {"Me0000e40,4:00000000", ok},
      {"me0000e40,4", packet("00000000")},
      {"Me0000e00,4:ffffffff", ok},
      {"me0000e00,4", packet("ffffffff")},
      {"me0001000,4", packet("00000040")},
  });
  {
    vestrel::gdb_remote::GdbRemoteClient client(
        std::make_unique<vestrel::gdb_remote::TcpTransport>("127.0.0.1", server.port(), std::chrono::seconds(5)));
    GdbMemory memory(client);
    std::vector<std::string> mismatches;
    GdbTraceInterface trace(memory, TraceSettings{}, [&](const std::string& m) { mismatches.push_back(m); });
    trace.SetTpiuPrescaler(0, 5);
    trace.SetPinProtocol(0, eSWO_ENCODING_UART);
    EXPECT_EQ(trace.ProgramTpiu(0), 0) << trace.lastError();
    EXPECT_TRUE(mismatches.empty());
  }
  server.finish();
  EXPECT_EQ(server.mismatch(), "");
}

}  // namespace
