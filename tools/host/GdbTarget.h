// A real target behind a GDB server, as record --gdb drives it: the
// connection, the host's trace interface that programs the target's trace
// blocks over it, and the target's memory lent to the probe software (the
// probe simulator's target adapter) so that automatic clock detection reads
// the real device's registers over the same connection.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "GdbRemoteClient.h"
#include "GdbTraceInterface.h"
#include "uDll.h"

namespace vestrel::host {

struct GdbTargetSettings {
  std::string server;      // HOST:PORT; empty: no GDB target
  std::string deviceFile;  // device_id and register lines for the probe software
  trace::TraceSettings trace;
  std::optional<std::uint32_t> breakAt;  // a hardware breakpoint that ends the recording
  bool leaveRunning = false;
};

class GdbTarget {
 public:
  // Connects; throws gdb::GdbError with the reason.
  explicit GdbTarget(const GdbTargetSettings& settings);
  ~GdbTarget();
  GdbTarget(const GdbTarget&) = delete;
  GdbTarget& operator=(const GdbTarget&) = delete;

  gdb::GdbRemoteClient& client() { return *client_; }
  trace::GdbTraceInterface& traceInterface() { return *trace_; }
  // Read-back mismatches since the last call.
  std::vector<std::string> takeMismatches();

  // Lends the connection to the probe software's target adapter; false (and
  // why) when the loaded adapter cannot take it.
  bool lendMemory(std::string& why);

  // Before the receiver is told the target runs: the target halted, the
  // breakpoint set. Returns why it was stopped.
  std::string prepare();
  void resume() { client_->resume(); }
  // Why the target stopped by itself, if it did within timeout.
  std::optional<std::string> stoppedByItself(std::chrono::milliseconds timeout);
  // Halts the target if it runs; clears the breakpoint; resumes it when
  // asked to leave it running. Returns what was done, for the user.
  std::string finish();

 private:
  GdbTargetSettings settings_;
  std::unique_ptr<gdb::GdbRemoteClient> client_;
  std::unique_ptr<trace::GdbMemory> memory_;
  std::unique_ptr<trace::GdbTraceInterface> trace_;
  std::vector<std::string> mismatches_;
  KV_ORV::uDll adapter_;
  void (*lend_)(int (*)(void*, std::uint32_t, void*, std::uint32_t), void*) = nullptr;
};

}  // namespace vestrel::host
