// gdb-proxy: the user's own debugger stays in control of a real target; its
// GDB session passes through vestrel-host unchanged, and the target's runs
// become recordings: when the debugger resumes the halted target the
// receiver is told that it runs (and programs the trace blocks through the
// server first), when the server reports the target stopped the receiver is
// told that it halted.
#include <csignal>
#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "Endpoint.h"
#include "GdbError.h"
#include "GdbProxy.h"
#include "HostCore.h"
#include "RecordSetup.h"

namespace vestrel::host {

using Kv::Orv::Hexkit::cHexkitError;
using Kv::Orv::Trace::CChannelDriver;
using Kv::Orv::Trace::CReceiver;

namespace {

volatile std::sig_atomic_t interrupted = 0;
void onInterrupt(int) { interrupted = 1; }

// Target memory through the proxy's server connection, only while a session
// is open and its target halted: in all-stop mode nothing but the interrupt
// byte may reach a server whose target runs, so a request then is refused
// here and never sent.
class ProxyMemory final : public trace_blocks::TargetMemory {
 public:
  explicit ProxyMemory(gdb_remote::GdbProxy& proxy) : proxy_(proxy) {}
  std::uint32_t read32(std::uint32_t address) override { return server().readWord(address); }
  void write32(std::uint32_t address, std::uint32_t value) override { server().writeWord(address, value); }

 private:
  gdb_remote::GdbRemoteClient& server() {
    if (!proxy_.canRequest()) {
      throw gdb_remote::GdbError("not sent: the target runs or no debugger session is open (all-stop mode)");
    }
    return proxy_.server();
  }
  gdb_remote::GdbProxy& proxy_;
};

// The receiver's side of a proxied debugger's sessions: a run is recorded
// from the debugger's resume to the next stop (or the session's end), and
// saved at once as a numbered capture with how it is read.
class ProxyRecorder {
 public:
  ProxyRecorder(const RecordSettings& recording, CReceiver& receiver, CChannelDriver& driver,
                trace_blocks::GdbTraceInterface& target)
      : recording_(recording), receiver_(receiver), driver_(driver), target_(target) {}

  gdb_remote::GdbProxy::Events events() {
    gdb_remote::GdbProxy::Events events;
    events.resuming = [this] { resuming(); };
    events.stopped = [this](const gdb_remote::StopReply& stop) { stopped(stop); };
    return events;
  }

  // A session ended: a run it left going ends here too.
  void sessionEnded() {
    if (toldRunning_ && !recordingNow_) halted();
    if (recordingNow_) {
      // The target runs on without a debugger: its recording ends here, and
      // the trace blocks are left as they are (nothing may be sent).
      halted();
      std::cout << "the target was left running: its recording ends with the session" << std::endl;
      saveRun();
    }
  }

  // What was and was not recorded; the exit status.
  int report() const {
    if (unrecorded_ > 0) {
      std::cerr << "vestrel-host: " << unrecorded_ << " run" << (unrecorded_ == 1 ? " was" : "s were")
                << " not recorded: the trace blocks could not be set up (see above)\n";
      return 1;
    }
    if (runs_ == 0) std::cout << "no run was recorded: no debugger let the target run\n";
    return 0;
  }

 private:
  void resuming() {
    toldRunning_ = true;
    try {
      receiver_.OnTargetStateChanged(kRecordCpu, Kv::Orv::Trace::eTARGET_RUNNING);
    } catch (const cHexkitError& e) {
      // The debugger's session goes on; this run is not recorded.
      reportHexkitError("receiver", e);
      if (!target_.lastError().empty()) std::cerr << "vestrel-host: because " << target_.lastError() << "\n";
      std::cout << "target running: not recorded (the trace blocks could not be set up)" << std::endl;
      ++unrecorded_;
      return;
    }
    if (!target_.lastError().empty()) std::cerr << "vestrel-host: " << target_.lastError() << "\n";
    recordingNow_ = true;
    std::cout << "target running: " << statusOf(driver_) << std::endl;
  }

  void stopped(const gdb_remote::StopReply& stop) {
    if (toldRunning_ && !recordingNow_) {
      halted();
      std::cout << "target " << stop.text() << std::endl;
    }
    if (!recordingNow_) return;
    halted();
    std::cout << "target " << stop.text() << ": " << statusOf(driver_) << ", " << driver_.GetNumSamples() << " samples"
              << std::endl;
    saveRun();
  }

  void halted() {
    receiver_.OnTargetStateChanged(kRecordCpu, Kv::Orv::Trace::eTARGET_HALTED);
    recordingNow_ = false;
    toldRunning_ = false;
  }

  // The run just ended, saved at once with how it is read.
  void saveRun() {
    const std::uint32_t samples = driver_.GetNumSamples();
    const fs::path output = numberedOutput(recording_.output, ++runs_);
    driver_.SaveToFile(fs::absolute(output).string(), 2);
    requireFileSize(output, samples * 8ull);
    const capture_metadata::CaptureMetadata reading =
        recordingMetadata(driver_, recording_.clockHz, "vestrel-host gdb-proxy");
    capture_metadata::writeMetadataBeside(fs::absolute(output).string(), reading);
    std::cout << "saved " << output.string() << " (run " << runs_ << ", " << samples
              << " samples); decode it: " << decodeCommandFor(output.string(), reading, false) << std::endl;
  }

  const RecordSettings& recording_;
  CReceiver& receiver_;
  CChannelDriver& driver_;
  trace_blocks::GdbTraceInterface& target_;
  bool recordingNow_ = false;
  bool toldRunning_ = false;
  int runs_ = 0;
  int unrecorded_ = 0;  // runs whose trace blocks could not be set up
};

}  // namespace

int gdbProxy(const ProxySettings& settings) {
  const RecordSettings& recording = settings.record;
  const auto listen = trace_server::parseEndpoint(settings.listen);
  const auto server = trace_server::parseEndpoint(recording.gdbTarget.server);
  if (!listen || !server || server->port == 0) {
    std::cerr << "vestrel-host: gdb-proxy takes --listen [HOST:]PORT and --gdb HOST:PORT\n";
    return 2;
  }
  // Every run is saved as a capture of its own: <output>-1.bin, -2, ...
  requireNoNumberedOutputs(recording.output, recording.force, "--output");
  requireWritableOutput(numberedOutput(recording.output, 1), recording.force, "--output");
  const fs::path dir = fs::absolute("vestrel-record");
  if (const int failed = prepareRecordFolder(recording, dir); failed != 0) return failed;

  gdb_remote::GdbProxy proxy(listen->host, listen->port, server->host, server->port);
  ProbeMemoryLoan loan;
  if (recording.clockAuto) {
    std::string why;
    if (!loan.lend([&] { return proxy.canRequest() ? &proxy.server() : nullptr; }, why)) {
      std::cerr << "vestrel-host: --clock auto: " << why << "\n";
      return 2;
    }
  }
  ProxyMemory memory(proxy);
  trace_blocks::GdbTraceInterface target(memory, recording.gdbTarget.trace, [](const std::string& mismatch) {
    std::cerr << "vestrel-host: warning: " << mismatch << "\n";
  });
  ReceiverLibrary library;
  if (!library.load()) return 1;  // said why
  try {
    ReceiverSession session(library, kRecordCpu, &target);
    session.driver()->SetConfiguration((dir / "options.xml").string().c_str());
    ProxyRecorder recorder(recording, *session.receiver(), *session.driver(), target);
    const gdb_remote::GdbProxy::Events events = recorder.events();
    std::signal(SIGINT, onInterrupt);
    for (int n = 1; interrupted == 0 && (settings.sessions == 0 || n <= settings.sessions); ++n) {
      std::cout << "waiting for your debugger: target remote " << listen->host << ":" << proxy.port() << std::endl;
      const std::string ended = proxy.run(events, [] { return interrupted == 0; });
      std::cout << "session ended: " << ended << std::endl;
      recorder.sessionEnded();
    }
    const int status = recorder.report();
    session.end();
    return status;
  } catch (const cHexkitError& e) {
    reportHexkitError("receiver", e);
    return 1;
  } catch (const gdb_remote::GdbError& e) {
    std::cerr << "vestrel-host: " << e.what() << "\n";
    return 1;
  }
}

}  // namespace vestrel::host
