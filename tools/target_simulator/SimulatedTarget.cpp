#include "SimulatedTarget.h"

#include <chrono>
#include <cmath>

namespace vestrel::target_simulator {

SimulatedTarget::SimulatedTarget(double traceClockHz, SerialLine& line) : traceClockHz_(traceClockHz), line_(line) {}

SimulatedTarget::~SimulatedTarget() { stop(); }

std::int32_t SimulatedTarget::SetTpiuPrescaler(std::uint32_t, std::uint32_t prescaler) {
  if (prescaler > 0x1FFF) return -1;  // the ACPR field has 13 bits
  prescaler_ = prescaler;
  return 0;
}

std::int32_t SimulatedTarget::SetPinProtocol(std::uint32_t, Kv::Orv::Trace::eSWO_ENCODING encoding) {
  if (encoding != Kv::Orv::Trace::eSWO_ENCODING_UART && encoding != Kv::Orv::Trace::eSWO_ENCODING_MANCHESTER) {
    return -1;
  }
  pinProtocol_ = encoding;
  return 0;
}

std::int32_t SimulatedTarget::SetTimestampPrescaler(std::uint32_t, Kv::Orv::Trace::eSWO_TS_PRESCALAR prescale) {
  if (prescale != 1 && prescale != 4 && prescale != 16 && prescale != 64) return -1;
  timestampPrescale_ = prescale;
  return 0;
}

std::int32_t SimulatedTarget::GetTraceExportStatus(std::uint32_t, std::uint32_t* status) {
  if (status != nullptr) *status = 0;
  return 0;
}

std::int32_t SimulatedTarget::ProgramTpiu(std::uint32_t) {
  programmed_ = true;
  return 0;
}

std::int32_t SimulatedTarget::EnableTpiu(std::uint32_t) {
  if (!programmed_ || pinProtocol_ != Kv::Orv::Trace::eSWO_ENCODING_UART) return -1;
  start();
  return 0;
}

std::int32_t SimulatedTarget::TraceOff(std::uint32_t) {
  stop();
  return 0;
}

std::int32_t SimulatedTarget::TraceStop(std::uint32_t) {
  stop();
  return 0;
}

SimulatedTarget::Figures SimulatedTarget::figures() const {
  std::lock_guard<std::mutex> guard(mutex_);
  return figures_;
}

void SimulatedTarget::start() {
  stop();
  {
    std::lock_guard<std::mutex> guard(mutex_);
    figures_.prescaler = prescaler_;
    figures_.timestampPrescale = timestampPrescale_;
    figures_.pinProtocol = pinProtocol_;
    figures_.swoBaud = traceClockHz_ / (prescaler_ + 1);
    const std::uint32_t receiver = line_.receiverBaudRate();
    figures_.garbled = receiver != 0 && std::fabs(figures_.swoBaud - receiver) / figures_.swoBaud > 0.05;
  }
  running_ = true;
  sender_ = std::thread([this] { run(); });
}

void SimulatedTarget::stop() {
  running_ = false;
  if (sender_.joinable()) sender_.join();
}

// Sends whole loop iterations as their bytes fall due at the line's rate.
// When the line is full (the receiving end is slow: a loaded or instrumented
// host), the rest of the iteration waits and nothing new is made until it
// has gone: the program's record of what it sent stays exact. What is still
// waiting when the core halts gets a few seconds to go out; what cannot is
// counted as lost.
void SimulatedTarget::run() {
  using Clock = std::chrono::steady_clock;
  const double bytesPerSecond = figures().swoBaud / 10.0;
  const bool garbled = figures().garbled;
  const auto start = Clock::now();
  double made = 0;
  std::string pending;
  auto offer = [&] {
    const std::size_t put = line_.write(pending.data(), pending.size());
    pending.erase(0, put);
    std::lock_guard<std::mutex> guard(mutex_);
    figures_.bytesSent += put;
  };
  while (running_) {
    const double due = std::chrono::duration<double>(Clock::now() - start).count() * bytesPerSecond;
    while (running_ && made < due) {
      if (!pending.empty()) {
        offer();
        if (!pending.empty()) break;  // still full: wait a little
      }
      pending = program_.nextIteration();
      if (garbled) {
        // A UART sampling at the wrong rate sees shifted, merged bits.
        for (char& c : pending) c = static_cast<char>((static_cast<unsigned char>(c) << 1) ^ 0xA5);
      }
      made += static_cast<double>(pending.size());
      offer();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  const auto giveUp = Clock::now() + std::chrono::seconds(5);
  while (!pending.empty() && Clock::now() < giveUp) {
    offer();
    if (!pending.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  std::lock_guard<std::mutex> guard(mutex_);
  figures_.bytesLost += pending.size();
}

}  // namespace vestrel::target_simulator
