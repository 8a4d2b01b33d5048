// A Cortex-M target as the receiver sees it through the host's per-CPU trace
// interface: TPIU prescaler, pin protocol and ITM timestamp prescale
// registers, programmed and enabled by the receiver. Once enabled, the
// target's program sends its ITM/DWT stream down the serial line, paced at
// trace clock / (prescaler + 1) baud with 10 bits per byte (UART framing).
// If the receiver's port runs more than 5 percent off that rate, bytes
// arrive garbled, as they would from a UART sampled at the wrong rate.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>

#include "CCpuTraceInterface.h"
#include "ItmProgram.h"
#include "SerialLine.h"

namespace vestrel::target_simulator {

class SimulatedTarget final : public Kv::Orv::Trace::CCpuTraceInterface {
 public:
  SimulatedTarget(double traceClockHz, SerialLine& line);
  ~SimulatedTarget();
  SimulatedTarget(const SimulatedTarget&) = delete;
  SimulatedTarget& operator=(const SimulatedTarget&) = delete;

  std::int32_t ReleaseTrace(std::uint32_t) override { return 0; }
  std::int32_t ProgramTpiu(std::uint32_t) override;
  std::int32_t EnableTpiu(std::uint32_t) override;
  std::int32_t TraceOff(std::uint32_t) override;
  std::int32_t TraceStop(std::uint32_t) override;
  std::int32_t SetTpiuPrescaler(std::uint32_t, std::uint32_t prescaler) override;
  std::int32_t GetTraceExportStatus(std::uint32_t, std::uint32_t* status) override;
  std::int32_t AckTraceExportStatus(std::uint32_t, std::uint32_t) override { return 0; }
  std::int32_t SetPinProtocol(std::uint32_t, Kv::Orv::Trace::eSWO_ENCODING encoding) override;
  std::int32_t SetTimestampPrescaler(std::uint32_t, Kv::Orv::Trace::eSWO_TS_PRESCALAR prescale) override;

  struct Figures {
    std::uint64_t bytesSent = 0;  // accepted by the line
    std::uint64_t bytesLost = 0;  // still waiting for room on the line seconds after the halt
    bool garbled = false;         // the receiver's rate was more than 5 % off
    std::uint32_t prescaler = 0;
    std::uint32_t timestampPrescale = 0;
    std::uint32_t pinProtocol = 0;
    double swoBaud = 0;
  };
  Figures figures() const;
  // The core halts: the program sends nothing more; what it sent is still
  // on its way down the line.
  void halt() { stop(); }
  // The text the program sent per stimulus port (valid once stopped).
  const ItmProgram& program() const { return program_; }

 private:
  void start();
  void stop();
  void run();

  double traceClockHz_;
  SerialLine& line_;
  std::uint32_t prescaler_ = 0;
  std::uint32_t pinProtocol_ = 0;
  std::uint32_t timestampPrescale_ = 1;
  bool programmed_ = false;
  std::atomic<bool> running_{false};
  std::thread sender_;
  mutable std::mutex mutex_;
  Figures figures_;
  ItmProgram program_;
};

}  // namespace vestrel::target_simulator
