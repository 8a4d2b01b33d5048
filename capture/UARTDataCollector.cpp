#include "UARTDataCollector.h"

#include <cmath>

#include "LogControl.h"
#include "TraceStartup.h"
#include "cHexkitError.h"
#include "uThread.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;
using KV_ORV::kLogError;

// Every collector line is written at the error level, so that the port's
// set-up always shows in the log.
#define COLLECTOR_LOG(...) KV_LOG(1, kLogError, __VA_ARGS__)

namespace {

// The collector module sets up the trace environment and its log on its own,
// as every module that logs does; a failure leaves logging as it was.
void startLogging() {
  static KV_ORV::TraceStartup startup;
  try {
    startup.run();
    KV_ORV::LogControl::Instance().Init(startup.logFileName().c_str(), KV_ORV::TraceStartup::kLoggingVariable,
                                        KV_ORV::TraceStartup::kLoggingDirVariable, true);
  } catch (...) {
  }
}

// Rates are truncated toward zero, never rounded. The driver refuses rates
// outside 1 .. 2^32 - 1 before a collector is made; should one reach here all
// the same it becomes 0, which no port accepts.
std::uint32_t rateFor(double traceClockHz, std::uint32_t prescaler) {
  const double rate = traceClockHz / (static_cast<double>(prescaler) + 1.0);
  return UARTDataCollector::rateFits(rate) ? static_cast<std::uint32_t>(rate) : 0;
}

// Byte for byte, with no code-page conversion.
std::wstring widen(const std::string& text) {
  std::wstring wide;
  for (char c : text) wide += static_cast<wchar_t>(static_cast<unsigned char>(c));
  return wide;
}

}  // namespace

UARTDataCollector::UARTDataCollector(std::uint32_t portNumber, double traceClockHz, bool autoPrescaler,
                                     std::uint32_t& prescaler, std::string captureFilePath, bool sendBreakOnStop)
    : portNumber_(portNumber), sendBreakOnStop_(sendBreakOnStop) {
  startLogging();
  SerialApi& api = serialApi();

  // The device namespace prefix makes ports above 9 work.
  const std::wstring devicePath = L"\\\\.\\COM" + std::to_wstring(portNumber);
  port_ = api.openPort(devicePath);
  if (port_ == nullptr) {
    COLLECTOR_LOG("%s: Failed to open COM%d with error code = %d", kTag, static_cast<int>(portNumber),
                  static_cast<int>(api.lastError()));
    Hexkit::throwHexkitError("Failed to open COM port");
  }

  // Reads return at once with whatever is queued; the run loop relies on it.
  PortTimeouts timeouts;
  timeouts.ReadIntervalTimeout = kMaxDword;
  if (!api.setTimeouts(port_, timeouts)) {
    closePortAndFail("%s: Failed to set COM port Comm Timeouts with error code = %d",
                     "Failed to setup COM port communication");
  }

  if (!api.getState(port_, savedState_) || savedState_.DCBlength == 0) {
    closePortAndFail("%s: Failed to get current Comm state with error code = %d", "Failed to get COM port state");
  }
  COLLECTOR_LOG("%s: Original emulator Baud rate = %d", kTag, static_cast<int>(savedState_.BaudRate));

  programPort(traceClockHz, autoPrescaler, prescaler);
  discardQueuedInput();

  PortState programmed;
  if (!api.getState(port_, programmed) || programmed.DCBlength == 0) {
    closePortAndFail("%s: Failed to get programmed Comm state with error code = %d",
                     "Failed to get programmed COM port state");
  }
  COLLECTOR_LOG("%s: UART configuration: Target: Trace Clock = %lf, Baud rate=%d, Prescalar=%d", kTag, traceClockHz,
                static_cast<int>(baudRate_), static_cast<int>(prescaler));
  COLLECTOR_LOG("%s: UART configuration: Emulator: Baud rate=%d", kTag, static_cast<int>(programmed.BaudRate));

  // Shared for reading, so that samples can be read while the file grows.
  captureFile_ = api.createCaptureFile(widen(captureFilePath));
  if (captureFile_ == nullptr) {
    api.closePort(port_);
    COLLECTOR_LOG("%s: Failed to open binary file %s with error code %d", kTag, captureFilePath.c_str(),
                  static_cast<int>(api.lastError()));
    Hexkit::throwHexkitError("Failed to open binary file for trace data storage");
  }
  running_.store(true);
}

// The port is closed before the error code is fetched, so the code logged is
// the one that follows the close.
void UARTDataCollector::closePortAndFail(const char* logFormat, const char* message) {
  SerialApi& api = serialApi();
  api.closePort(port_);
  port_ = nullptr;
  COLLECTOR_LOG(logFormat, kTag, static_cast<int>(api.lastError()));
  Hexkit::throwHexkitError(message);
}

PortState UARTDataCollector::ProgrammedState(const PortState& found, std::uint32_t baudRate) {
  // Only these members change; everything else stays as the port had it.
  PortState state = found;
  state.BaudRate = baudRate;
  state.ByteSize = 8;
  state.Parity = kNoParity;
  state.StopBits = kOneStopBit;
  state.fBinary = 1;
  state.fParity = 0;
  state.fOutxCtsFlow = 0;
  state.fOutxDsrFlow = 0;
  state.fDtrControl = kDtrControlDisable;
  state.fDsrSensitivity = 0;
  state.fOutX = 0;
  state.fInX = 0;
  state.fNull = 0;
  state.fRtsControl = kRtsControlDisable;
  state.fAbortOnError = 1;
  return state;
}

void UARTDataCollector::programPort(double traceClockHz, bool autoPrescaler, std::uint32_t& prescaler) {
  if (autoPrescaler) prescaler = 0;
  baudRate_ = rateFor(traceClockHz, prescaler);

  PortState state = ProgrammedState(savedState_, baudRate_);
  if (!serialApi().setState(port_, state)) {
    closePortAndFail("%s: Failed to set Comm state with error code = %d", "Failed to set requested COM port state");
  }
  if (autoPrescaler) calibrate(state, traceClockHz, prescaler);
}

// Raises the prescaler from 0 until the rate the port reports lies within 5
// percent of the exact rate asked for.
void UARTDataCollector::calibrate(PortState& state, double traceClockHz, std::uint32_t& prescaler) {
  static const char* const kCalibrationFailed =
      "Failed to calibrate prescalar automatically. Please set prescalar manually in Receiver settings";
  SerialApi& api = serialApi();
  double expected = traceClockHz;
  for (;;) {
    if (!api.getState(port_, state) || state.DCBlength == 0) {
      closePortAndFail("%s: Failed to get programmed Comm state with error code = %d", kCalibrationFailed);
    }
    const double deviation = (expected - static_cast<double>(state.BaudRate)) * 100.0 / expected;
    if (std::fabs(deviation) <= 5.0) {
      COLLECTOR_LOG("%s: Auto Prescalar is = %d", kTag, static_cast<int>(prescaler));
      return;
    }
    // The last value the TPIU can take was refused too. The port stays open
    // here, unlike on every other calibration failure.
    // So is a rate that would fall below 1 baud.
    if (prescaler == kMaximumPrescaler || !rateFits(traceClockHz / (static_cast<double>(prescaler) + 2.0))) {
      Hexkit::throwHexkitError(kCalibrationFailed);
    }

    ++prescaler;
    expected = traceClockHz / static_cast<double>(prescaler + 1);
    baudRate_ = static_cast<std::uint32_t>(expected);
    state.BaudRate = baudRate_;
    if (!api.setState(port_, state)) {
      closePortAndFail("%s: Failed to set Comm state with error code = %d",
                       "Failed to configure COM port during prescalar calibration. Please set prescalar manually in "
                       "Receiver settings");
    }
  }
}

// Whatever the port held before it was programmed is not trace data.
void UARTDataCollector::discardQueuedInput() {
  SerialApi& api = serialApi();
  api.purge(port_, kPurgeTxClear | kPurgeRxClear);
  std::uint32_t queued = 0;
  api.clearError(port_, queued);
  for (std::uint32_t i = 0; i < queued; ++i) {
    unsigned char stale = 0;
    std::uint32_t got = 0;
    api.read(port_, &stale, 1, got);
  }
}

UARTDataCollector::~UARTDataCollector() {
  running_.store(false);
  SerialApi& api = serialApi();
  if (port_ != nullptr) {
    if (!api.purge(port_, kPurgeTxClear | kPurgeRxClear)) {
      COLLECTOR_LOG("%s: Purge Comm failed with error code = %d.", kTag, static_cast<int>(api.lastError()));
    }
    if (!api.setState(port_, savedState_)) {
      COLLECTOR_LOG("%s: Restoring communication state failed with error code %d", kTag,
                    static_cast<int>(api.lastError()));
    }
    if (!api.closePort(port_)) {
      COLLECTOR_LOG("%s: Releasing port handle failed with error code %d", kTag, static_cast<int>(api.lastError()));
    }
  }
  port_ = nullptr;
  if (captureFile_ != nullptr) {
    api.closeFile(captureFile_);
    captureFile_ = nullptr;
  }
}

void UARTDataCollector::run() {
  SerialApi& api = serialApi();
  unsigned char buffer[kReadSize];
  std::uint32_t bytesRead = 0;
  std::uint32_t bytesWritten = 0;

  // Capture: poll the port without pause, so that nothing is lost at high
  // SWO rates. Empty reads are written too (a zero-length write).
  while (running_.load()) {
    if (!api.read(port_, buffer, kReadSize, bytesRead)) {
      COLLECTOR_LOG("%s: Reading COM port failed with error code %d", kTag, static_cast<int>(api.lastError()));
      break;
    }
    if (!api.writeFile(captureFile_, buffer, bytesRead, bytesWritten)) {
      COLLECTOR_LOG("%s: Writing to binary file failed with error code %d", kTag, static_cast<int>(api.lastError()));
      break;
    }
  }
  if (sendBreakOnStop_) drain();
  finished_.store(true);
}

// Signals the probe with a line break and keeps what still arrives for ten
// passes (about 10 ms). The break stays set until the port is restored.
bool UARTDataCollector::drain() {
  SerialApi& api = serialApi();
  if (!api.setBreak(port_)) {
    COLLECTOR_LOG("%s: Failed to send Comm break state with error code = %d", kTag, static_cast<int>(api.lastError()));
  }
  unsigned char buffer[kReadSize];
  for (int pass = 0; pass < 10; ++pass) {
    std::uint32_t bytesRead = 0;
    if (!api.read(port_, buffer, kReadSize, bytesRead)) {
      COLLECTOR_LOG("%s: Reading COM port failed with error code %d", kTag, static_cast<int>(api.lastError()));
      return false;
    }
    if (bytesRead > 0) {
      std::uint32_t written = 0;
      if (!api.writeFile(captureFile_, buffer, bytesRead, written)) {
        COLLECTOR_LOG("%s: Writing to binary file failed with error code %d", kTag, static_cast<int>(api.lastError()));
        return false;
      }
    }
    KV_ORV::sleepMs(1);
  }
  return true;
}

}  // namespace Kv::Orv::Trace::Vestrel
