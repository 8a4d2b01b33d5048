// A real target behind a GDB server, as record --gdb drives it: the
// connection, the host's trace interface that programs the target's trace
// blocks over it, and the target's memory lent to the probe software (the
// probe simulator's target adapter) so that automatic clock detection reads
// the real device's registers over the same connection.
#pragma once

#include <functional>
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
  trace_blocks::TraceSettings trace;
  std::optional<std::uint32_t> breakAt;  // a hardware breakpoint that ends the recording
  bool leaveRunning = false;
};

// The target's memory lent to the probe software's target adapter (the
// probe simulator's, through its one extra export), so that automatic clock
// detection reads the real device's registers over the host's connection.
// The adapter library is loaded here first: the platform loader hands the
// receiver the same instance. Taken back at destruction.
class ProbeMemoryLoan {
 public:
  ~ProbeMemoryLoan();
  // client() is asked at each read (a proxy's connection exists only once
  // its session runs; null: the read fails). False, and why, when the
  // loaded adapter cannot take it.
  bool lend(std::function<gdb_remote::GdbRemoteClient*()> client, std::string& why);

 private:
  static int read(void* context, std::uint32_t address, void* destination, std::uint32_t size);

  KV_ORV::uDll adapter_;
  void (*lend_)(int (*)(void*, std::uint32_t, void*, std::uint32_t), void*) = nullptr;
  std::function<gdb_remote::GdbRemoteClient*()> client_;
};

class GdbTarget {
 public:
  // Connects; throws gdb_remote::GdbError with the reason.
  explicit GdbTarget(const GdbTargetSettings& settings);
  GdbTarget(const GdbTarget&) = delete;
  GdbTarget& operator=(const GdbTarget&) = delete;

  gdb_remote::GdbRemoteClient& client() { return *client_; }
  trace_blocks::GdbTraceInterface& traceInterface() { return *trace_; }
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
  std::unique_ptr<gdb_remote::GdbRemoteClient> client_;
  std::unique_ptr<trace_blocks::GdbMemory> memory_;
  std::unique_ptr<trace_blocks::GdbTraceInterface> trace_;
  std::vector<std::string> mismatches_;
  ProbeMemoryLoan loan_;
};

}  // namespace vestrel::host
