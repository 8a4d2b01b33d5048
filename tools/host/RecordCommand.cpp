// record: captures from a real probe's serial port. The target's trace
// blocks are set up by the user's own debugger, or, with --gdb, by the
// receiver through a GDB server, which then also runs and halts the target.
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "Commands.h"
#include "EnterWatcher.h"
#include "GdbError.h"
#include "HostCore.h"
#include "LiveTrace.h"
#include "PortPath.h"
#include "RecordSetup.h"
#include "Terminal.h"

namespace vestrel::host {

using Kv::Orv::Hexkit::cHexkitError;
using Kv::Orv::Trace::CChannelDriver;
using Kv::Orv::Trace::CReceiver;

namespace {

// A recording that received nothing: what usually causes it.
void explainNoBytes(const RecordSettings& settings) {
  std::cerr << "vestrel-host: nothing arrived on the port. Likely causes:\n"
            << "  - the baud rate: the line runs at trace clock / (prescaler + 1); check --clock and --prescaler\n"
            << "  - the TPIU is not in UART (NRZ) mode, or its formatter is on\n"
            << "  - the ITM or its stimulus ports are not enabled, or the firmware writes nothing\n"
            << "  - the wrong port: `vestrel-host ports` lists the probes' serial ports\n";
  if (!settings.gdbTarget.server.empty()) {
    std::cerr << "  (the TPIU, ITM and DWT registers were read back after programming: see the warnings above)\n";
  }
}

// The receiver's error, and for a port that would not open, which device
// that is and why.
void reportReceiverError(const cHexkitError& e, const RecordSettings& settings) {
  reportHexkitError("receiver", e);
  if (std::string(e.GetMessage()).find("COM port") != std::string::npos) {
    std::cerr << "vestrel-host: --port " << settings.port << ": " << describePort(settings.port)
              << "; `vestrel-host ports` lists the probes' serial ports found\n";
  }
}

// How a recording ended.
struct RecordingEnd {
  std::optional<std::string> stoppedByItself;  // the target halted on its own: how
  std::optional<std::string> linkFailure;      // the GDB link failed: why
};

// With --gdb: the server's target, halted and ready; the exit status when
// it cannot be (0 when it is, or when no server was named).
int connectGdbTarget(const RecordSettings& settings, std::unique_ptr<GdbTarget>& gdbTarget) {
  if (settings.gdbTarget.server.empty()) return 0;
  gdbTarget = std::make_unique<GdbTarget>(settings.gdbTarget);
  std::string why;
  if (settings.clockAuto && !gdbTarget->lendMemory(why)) {
    std::cerr << "vestrel-host: --clock auto: " << why << "\n";
    return 2;
  }
  std::cout << "GDB server " << settings.gdbTarget.server << ": target " << gdbTarget->prepare() << "\n";
  return 0;
}

// Told that the target runs, the receiver programs the trace blocks (through
// the GDB server, while the target is still halted); then the target runs.
// False when the receiver failed (said why).
bool startTracing(CReceiver& receiver, GdbTarget* gdbTarget, const RecordSettings& settings) {
  try {
    receiver.OnTargetStateChanged(kRecordCpu, Kv::Orv::Trace::eTARGET_RUNNING);
  } catch (const cHexkitError& e) {
    // The receiver's words say which step failed; the trace interface knows
    // why (asked now, before the teardown's own calls).
    reportReceiverError(e, settings);
    if (gdbTarget && !gdbTarget->traceInterface().lastError().empty()) {
      std::cerr << "vestrel-host: because " << gdbTarget->traceInterface().lastError() << "\n";
    }
    return false;
  }
  if (gdbTarget) {
    for (const std::string& mismatch : gdbTarget->takeMismatches()) {
      std::cerr << "vestrel-host: warning: " << mismatch << "\n";
    }
    if (!gdbTarget->traceInterface().lastError().empty()) {
      std::cerr << "vestrel-host: " << gdbTarget->traceInterface().lastError() << "\n";
    }
    gdbTarget->resume();
  }
  return true;
}

// Records until Enter (or the time is up, the target stops by itself, or
// the GDB link fails), keeping the live status line, and says why it ended.
RecordingEnd recordUntilEnd(const RecordSettings& settings, CChannelDriver& driver, GdbTarget* gdbTarget,
                            LiveConsole& console, LiveTrace& liveTrace, bool live) {
  const auto start = std::chrono::steady_clock::now();
  const auto secondsSince = [&start] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  std::optional<EnterWatcher> enter;
  if (settings.seconds <= 0) enter.emplace();
  LiveStatus status;
  RecordingEnd end;
  while (settings.seconds > 0 ? secondsSince() < settings.seconds : !enter->pressed()) {
    if (gdbTarget) {
      try {
        end.stoppedByItself = gdbTarget->stoppedByItself(std::chrono::milliseconds(50));
      } catch (const gdb_remote::GdbError& error) {
        end.linkFailure = error.what();
        break;
      }
      if (end.stoppedByItself) break;
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(settings.seconds > 0 ? 50 : 100));
    }
    if (live) {
      const LiveCounts counts = liveTrace.counts();
      console.status(
          status.line(secondsSince(), driver.GetNumSamples() * 8.0, liveTrace.decodes() ? &counts : nullptr));
    }
  }
  if (end.linkFailure) {
    console.endStatus();
    std::cerr << "vestrel-host: the GDB link failed while the target ran: " << *end.linkFailure << "\n";
    std::cout << "recording ended: the GDB link failed; what arrived is saved\n";
  } else if (end.stoppedByItself) {
    std::cout << "the target " << *end.stoppedByItself << "\n";
  } else {
    std::cout << "recording ended: "
              << (settings.seconds > 0  ? "its time was up (--seconds)"
                  : enter->inputEnded() ? "standard input ended"
                                        : "Enter was pressed")
              << "\n";
  }
  return end;
}

// Halts a target that still runs; a link that fails doing it is the end's
// link failure.
void haltTarget(GdbTarget& gdbTarget, RecordingEnd& end) {
  if (end.stoppedByItself || end.linkFailure) return;
  try {
    std::cout << gdbTarget.finish() << "\n";
  } catch (const gdb_remote::GdbError& error) {
    end.linkFailure = error.what();
    std::cerr << "vestrel-host: the target could not be halted: " << *end.linkFailure << "\n";
  }
}

// The receiver's capture saved as --output, with its metadata; a save that
// fails says where the capture still is, and is thrown on.
void saveCapture(CChannelDriver& driver, const RecordSettings& settings, const std::string& receiverCapture,
                 const capture_metadata::CaptureMetadata& reading) {
  const std::uint32_t samples = driver.GetNumSamples();
  try {
    driver.SaveToFile(fs::absolute(settings.output).string(), 2);
    requireFileSize(settings.output, samples * 8ull);
  } catch (...) {
    std::cerr << "vestrel-host: " << settings.output << " was not saved; the capture is still in " << receiverCapture
              << ": vestrel-host export --from vestrel-record --binary <file>\n";
    throw;
  }
  capture_metadata::writeMetadataBeside(fs::absolute(settings.output).string(), reading);
  std::cout << "saved " << settings.output << "\n";
  std::cout << "decode it: " << decodeCommandFor(settings.output, reading, false) << "\n";
}

// A target that stopped by itself is let go once the capture is saved; the
// exit status.
int releaseStoppedTarget(GdbTarget* gdbTarget, const RecordingEnd& end) {
  if (!end.stoppedByItself || !gdbTarget) return 0;
  try {
    const std::string done = gdbTarget->finish();
    if (!done.empty()) std::cout << done << "\n";
  } catch (const gdb_remote::GdbError& error) {
    std::cerr << "vestrel-host: " << error.what() << "\n";
    return 1;
  }
  return 0;
}

}  // namespace

int record(const RecordSettings& settings) {
  // Checked before anything is made or recorded, not after an hour of it.
  requireWritableOutput(settings.output, settings.force, "--output");
  const fs::path dir = fs::absolute("vestrel-record");
  if (const int failed = prepareRecordFolder(settings, dir); failed != 0) return failed;
  const bool live = host::isTerminal(stdout);
  LiveConsole console(live);
  LiveTrace liveTrace(settings.live, console);  // a taken port fails here, before anything records
  ReceiverLibrary library;
  if (!library.load()) return 1;  // said why
  target_simulator::PassiveTarget passive;
  std::unique_ptr<GdbTarget> gdbTarget;
  if (const int failed = connectGdbTarget(settings, gdbTarget); failed != 0) return failed;
  Kv::Orv::Trace::CCpuTraceInterface& target =
      gdbTarget ? static_cast<Kv::Orv::Trace::CCpuTraceInterface&>(gdbTarget->traceInterface()) : passive;
  try {
    ReceiverSession session(library, kRecordCpu, &target);
    CChannelDriver* driver = session.driver();
    driver->SetConfiguration((dir / "options.xml").string().c_str());
    if (!startTracing(*session.receiver(), gdbTarget.get(), settings)) return 1;
    // How the bytes are read, beside the receiver's capture from the start
    // (for vestrel-decode --follow) and beside the saved one at the end.
    const capture_metadata::CaptureMetadata reading =
        recordingMetadata(*driver, settings.clockHz, "vestrel-host record");
    const std::string receiverCapture = (dir / ".KV-trace" / "data" / "swotrace_Core.bin").string();
    try {
      capture_metadata::writeMetadataBeside(receiverCapture, reading);
    } catch (const std::exception& error) {
      std::cerr << "vestrel-host: warning: " << error.what() << "\n";
    }
    liveTrace.start(receiverCapture, reading);
    console.lines("recording: " + statusOf(*driver) + (settings.seconds > 0 ? "" : " (Enter stops)") + "\n");
    RecordingEnd end = recordUntilEnd(settings, *driver, gdbTarget.get(), console, liveTrace, live);
    if (gdbTarget) haltTarget(*gdbTarget, end);
    session.receiver()->OnTargetStateChanged(kRecordCpu, Kv::Orv::Trace::eTARGET_HALTED);
    liveTrace.finish();
    console.endStatus();
    std::cout << "stopped: " << statusOf(*driver) << ", " << driver->GetNumSamples() << " samples\n";
    if (driver->GetNumSamples() == 0 && !end.linkFailure) explainNoBytes(settings);
    saveCapture(*driver, settings, receiverCapture, reading);
    session.end();
    const int released = releaseStoppedTarget(gdbTarget.get(), end);
    return released != 0 || end.linkFailure ? 1 : 0;
  } catch (const cHexkitError& e) {
    reportReceiverError(e, settings);
    return 1;
  }
}

}  // namespace vestrel::host
