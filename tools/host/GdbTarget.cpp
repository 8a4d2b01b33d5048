#include "GdbTarget.h"

#include <cstring>
#include <utility>

#include "Endpoint.h"
#include "GdbError.h"
#include "TcpTransport.h"

namespace vestrel::host {

namespace {

// The probe software's memory reads, answered through the GDB connection.
int readThroughGdb(void* context, std::uint32_t address, void* destination, std::uint32_t size) {
  try {
    const std::string bytes = static_cast<gdb::GdbRemoteClient*>(context)->readMemory(address, size);
    std::memcpy(destination, bytes.data(), bytes.size());
    return 0;
  } catch (const std::exception&) {
    return -1;
  }
}

}  // namespace

GdbTarget::GdbTarget(const GdbTargetSettings& settings) : settings_(settings) {
  const auto endpoint = live::parseEndpoint(settings.server);
  if (!endpoint || endpoint->port == 0) throw gdb::GdbError("--gdb takes HOST:PORT, not " + settings.server);
  client_ = std::make_unique<gdb::GdbRemoteClient>(
      std::make_unique<gdb::TcpTransport>(endpoint->host, endpoint->port, std::chrono::seconds(10)),
      std::chrono::seconds(10));
  memory_ = std::make_unique<trace::GdbMemory>(*client_);
  trace_ = std::make_unique<trace::GdbTraceInterface>(*memory_, settings.trace,
                                                      [this](const std::string& m) { mismatches_.push_back(m); });
}

GdbTarget::~GdbTarget() {
  if (lend_ != nullptr) lend_(nullptr, nullptr);
}

std::vector<std::string> GdbTarget::takeMismatches() { return std::exchange(mismatches_, {}); }

bool GdbTarget::lendMemory(std::string& why) {
  // The same library the receiver loads (the platform loader hands out one
  // instance per process), loaded first so that the loan is in place when
  // the receiver asks for the clock.
  if (!adapter_.FindAndLoad("ICETargetAdapter", 0xFFFFFFFF)) {
    why = adapter_.LastError();
    return false;
  }
  lend_ = reinterpret_cast<decltype(lend_)>(adapter_.GetSymbol("VestrelSimulatorUseHostMemory"));
  if (lend_ == nullptr) {
    why = "the probe software's ICETargetAdapter takes no memory from the host (only the probe simulator does)";
    return false;
  }
  lend_(readThroughGdb, client_.get());
  return true;
}

}  // namespace vestrel::host

namespace vestrel::host {

std::string GdbTarget::prepare() {
  const gdb::StopReply now = client_->haltReason();
  if (settings_.breakAt) client_->insertBreakpoint(*settings_.breakAt, true);
  return now.text();
}

std::optional<std::string> GdbTarget::stoppedByItself(std::chrono::milliseconds timeout) {
  if (!client_->running()) return std::nullopt;
  const auto stop = client_->waitForStop(timeout);
  if (!stop) return std::nullopt;
  return stop->text();
}

std::string GdbTarget::finish() {
  std::string done;
  if (client_->running()) done = "halted the target (" + client_->halt().text() + ")";
  if (settings_.breakAt) client_->removeBreakpoint(*settings_.breakAt, true);
  if (settings_.leaveRunning) {
    client_->resume();
    done += done.empty() ? "left the target running" : "; left it running";
  }
  return done;
}

}  // namespace vestrel::host
