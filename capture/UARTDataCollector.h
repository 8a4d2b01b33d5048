// Owns the probe's auxiliary serial port for one recording: opens and
// programs it for the SWO bit rate (calibrating the prescaler when asked),
// and, run on a thread of its own, appends every byte that arrives to the raw
// capture file until stopped. Destruction puts the port back as it was found.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "SerialPort.h"
#include "uRunnable.h"

namespace Kv::Orv::Trace::Vestrel {

class UARTDataCollector : public KV_ORV::uRunnable {
 public:
  // Opens COM<portNumber> at traceClockHz / (prescaler + 1) baud and creates
  // the capture file. With autoPrescaler the prescaler is searched from 0
  // and the result written back into prescaler. Throws cHexkitError when
  // the port or the file cannot be set up.
  UARTDataCollector(std::uint32_t portNumber, double traceClockHz, bool autoPrescaler, std::uint32_t& prescaler,
                    std::string captureFilePath, bool sendBreakOnStop);
  // Must only run once isFinished() is true (or run() never started).
  ~UARTDataCollector() override;
  UARTDataCollector(const UARTDataCollector&) = delete;
  UARTDataCollector& operator=(const UARTDataCollector&) = delete;

  // The thread body: capture until stopped, then drain when asked.
  void run() override;
  void stop() { running_.store(false); }
  bool isFinished() const { return finished_.load(); }

  // The state the collector gives a port it found in state found: raw 8N1
  // at baudRate, no flow control, abort on errors; every other member as
  // found.
  static PortState ProgrammedState(const PortState& found, std::uint32_t baudRate);

  std::uint32_t portNumber() const { return portNumber_; }
  std::uint32_t baudRate() const { return baudRate_; }
  bool running() const { return running_.load(); }
  const PortState& savedState() const { return savedState_; }

  static constexpr const char* kTag = "Vestrel_UARTCollector";
  static constexpr std::uint32_t kMaximumPrescaler = 8191;  // the TPIU's 13-bit field
  // A line rate a port can be given: at least 1 baud and below 2^32.
  static bool rateFits(double rate) { return rate >= 1.0 && rate < 4294967296.0; }
  static constexpr std::uint32_t kReadSize = 100;

 private:
  [[noreturn]] void closePortAndFail(const char* logFormat, const char* message);
  void programPort(double traceClockHz, bool autoPrescaler, std::uint32_t& prescaler);
  void calibrate(PortState& state, double traceClockHz, std::uint32_t& prescaler);
  void discardQueuedInput();
  bool drain();

  std::uint32_t portNumber_;
  std::uint32_t baudRate_ = 0;
  std::atomic<bool> running_{false};
  PortHandle port_ = nullptr;
  FileHandle captureFile_ = nullptr;
  PortState savedState_;
  std::atomic<bool> finished_{false};
  bool sendBreakOnStop_;
};

}  // namespace Kv::Orv::Trace::Vestrel
