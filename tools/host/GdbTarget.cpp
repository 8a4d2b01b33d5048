#include "GdbTarget.h"

#include <cstring>
#include <utility>

#include "Endpoint.h"
#include "GdbError.h"
#include "TcpTransport.h"

namespace vestrel::host {

GdbTarget::GdbTarget(const GdbTargetSettings& settings) : settings_(settings) {
  const auto endpoint = trace_server::parseEndpoint(settings.server);
  if (!endpoint || endpoint->port == 0) throw gdb_remote::GdbError("--gdb takes HOST:PORT, not " + settings.server);
  client_ = std::make_unique<gdb_remote::GdbRemoteClient>(
      std::make_unique<gdb_remote::TcpTransport>(endpoint->host, endpoint->port, std::chrono::seconds(10)),
      std::chrono::seconds(10));
  memory_ = std::make_unique<trace_blocks::GdbMemory>(*client_);
  trace_ = std::make_unique<trace_blocks::GdbTraceInterface>(
      *memory_, settings.trace, [this](const std::string& m) { mismatches_.push_back(m); });
}

ProbeMemoryLoan::~ProbeMemoryLoan() {
  if (lend_ != nullptr) lend_(nullptr, nullptr);
}

int ProbeMemoryLoan::read(void* context, std::uint32_t address, void* destination, std::uint32_t size) {
  try {
    gdb_remote::GdbRemoteClient* client = static_cast<ProbeMemoryLoan*>(context)->client_();
    if (client == nullptr) return -1;
    const std::string bytes = client->readMemory(address, size);
    std::memcpy(destination, bytes.data(), bytes.size());
    return 0;
  } catch (const std::exception&) {
    return -1;
  }
}

bool ProbeMemoryLoan::lend(std::function<gdb_remote::GdbRemoteClient*()> client, std::string& why) {
  if (!adapter_.FindAndLoad("ICETargetAdapter", 0xFFFFFFFF)) {
    why = adapter_.LastError();
    return false;
  }
  lend_ = reinterpret_cast<decltype(lend_)>(adapter_.GetSymbol("VestrelSimulatorUseHostMemory"));
  if (lend_ == nullptr) {
    why = "the probe software's ICETargetAdapter takes no memory from the host (only the probe simulator does)";
    return false;
  }
  client_ = std::move(client);
  lend_(&ProbeMemoryLoan::read, this);
  return true;
}

std::vector<std::string> GdbTarget::takeMismatches() { return std::exchange(mismatches_, {}); }

bool GdbTarget::lendMemory(std::string& why) {
  return loan_.lend([this] { return client_.get(); }, why);
}

}  // namespace vestrel::host

namespace vestrel::host {

std::string GdbTarget::prepare() {
  const gdb_remote::StopReply now = client_->haltReason();
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
