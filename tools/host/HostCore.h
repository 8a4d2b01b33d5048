// What every vestrel-host command shares: the receiver library loaded by
// name with its two entry points, the simulated probe software, a receiver
// session in a profile folder, and how errors are reported.
#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "CReceiver.h"
#include "CaptureMetadata.h"
#include "PassiveTarget.h"
#include "cHexkitError.h"
#include "uDll.h"

namespace vestrel::host {

namespace fs = std::filesystem;

// A command that cannot start as given (an output that is there or cannot
// be written, ...): exit status 2. Other errors while working: 1.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The simulated target's CPU in the demo and the CPU record captures for.
constexpr const char* kDemoCpu = "Sim/CortexM4";
constexpr const char* kRecordCpu = "Probe/Core";

// The receiver library, loaded by name and searched the way the platform
// loader searches (the host's folder first), with its two entry points.
struct ReceiverLibrary {
  KV_ORV::uDll dll;
  CreateRcvrFunction create = nullptr;
  DestroyRcvrFunction destroy = nullptr;

  // Says why on standard error when it cannot.
  bool load();
};

// Writes a whole file; throws std::runtime_error naming the path and the
// reason when it does not all reach the file.
void writeFile(const fs::path& path, const std::string& content);

std::string statusOf(Kv::Orv::Trace::CChannelDriver& driver);

// "vestrel-host: <what> error (severity n): <message>" on standard error.
void reportHexkitError(const char* what, const Kv::Orv::Hexkit::cHexkitError& error);

// The probe software the simulator libraries play: a Calder probe with SWD
// and SWO on TDO, and a Larkin device whose clock registers read 6 MHz.
void writeProbeScenario(const fs::path& dir);

// A receiver and its driver for one CPU, let go in order however the scope
// is left: end() when all went well (what it meets is thrown), the
// destructor on an error path (what it meets is said, never thrown), so that
// no error leaves a receiver, its probe libraries or its driver behind.
class ReceiverSession {
 public:
  // Creates both; throws what the receiver throws (nothing is left then).
  ReceiverSession(const ReceiverLibrary& library, const char* cpu, Kv::Orv::Trace::CCpuTraceInterface* target);
  ~ReceiverSession();
  ReceiverSession(const ReceiverSession&) = delete;
  ReceiverSession& operator=(const ReceiverSession&) = delete;

  Kv::Orv::Trace::CReceiver* receiver() const { return receiver_; }
  Kv::Orv::Trace::CChannelDriver* driver() const { return driver_; }
  void end();

 private:
  const ReceiverLibrary& library_;
  Kv::Orv::Trace::CReceiver* receiver_ = nullptr;
  Kv::Orv::Trace::CChannelDriver* driver_ = nullptr;
};

// A receiver with a driver for a CPU behind the simulated probe, in a profile
// folder of its own: what the attributes and export commands look at.
struct ProbeSession {
  ReceiverLibrary library;
  target_simulator::PassiveTarget target;
  Kv::Orv::Trace::CReceiver* receiver = nullptr;
  Kv::Orv::Trace::CChannelDriver* driver = nullptr;

  bool open(const fs::path& profile, const char* cpu);
  ~ProbeSession();
};

// An output the host checks after the receiver wrote it: a regular file (or
// one not there yet). A device or a pipe cannot be checked, so it is refused
// before anything is written. Throws UsageError with the path and why.
void requireCheckableOutput(const fs::path& path);

// How a recording must be read (for its metadata file and the live
// decoder): the trace clock (knownClockHz when the command line gave it, else
// what the driver reports) and the timestamp prescale the driver programmed.
capture_metadata::CaptureMetadata recordingMetadata(Kv::Orv::Trace::CChannelDriver& driver, double knownClockHz,
                                                    const std::string& recordedBy);

// "decode it: vestrel-decode <capture>" and the like, with the clock and
// prescale as options (for a stream, which carries no metadata file).
std::string decodeCommandFor(const std::string& input, const capture_metadata::CaptureMetadata& metadata,
                             bool withTiming);

// An output about to be written, checked before anything is recorded: a
// regular file (or none yet), not there already unless force (option names
// the command's option for another name), and one this process can write.
// Throws UsageError with the path and the reason; the check leaves nothing
// behind.
void requireWritableOutput(const fs::path& path, bool force, const char* option);

// The file of run n of a command that saves every run: "capture.bin" gives
// "capture-1.bin", "capture-2.bin", ...
fs::path numberedOutput(const fs::path& output, int n);

// Refuses (UsageError) when a numbered file of output is there
// already, unless force.
void requireNoNumberedOutputs(const fs::path& output, bool force, const char* option);

// The demo's output folder: no earlier demo's files in it unless force.
void requireFreshDemoFolder(const fs::path& folder, bool force);

// Throws std::runtime_error naming the path when the file does not hold
// exactly bytes bytes: a full disk or a failed write cut it short.
void requireFileSize(const fs::path& path, std::uint64_t bytes);

}  // namespace vestrel::host
