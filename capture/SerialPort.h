// The serial port and capture file as the collector sees them. Operations
// mirror the Win32 communications calls one for one, so the collector's
// sequence of calls is the same on every platform; the state record carries
// every member of the Win32 device control block, so that "copy the state,
// change exactly these members" holds everywhere.
#pragma once

#include <cstdint>
#include <string>

namespace Kv::Orv::Trace::Vestrel {

// The members of the Win32 DCB, in its order.
struct PortState {
  std::uint32_t DCBlength = 0;
  std::uint32_t BaudRate = 0;
  std::uint32_t fBinary = 0;
  std::uint32_t fParity = 0;
  std::uint32_t fOutxCtsFlow = 0;
  std::uint32_t fOutxDsrFlow = 0;
  std::uint32_t fDtrControl = 0;
  std::uint32_t fDsrSensitivity = 0;
  std::uint32_t fTXContinueOnXoff = 0;
  std::uint32_t fOutX = 0;
  std::uint32_t fInX = 0;
  std::uint32_t fErrorChar = 0;
  std::uint32_t fNull = 0;
  std::uint32_t fRtsControl = 0;
  std::uint32_t fAbortOnError = 0;
  std::uint16_t XonLim = 0;
  std::uint16_t XoffLim = 0;
  std::uint8_t ByteSize = 0;
  std::uint8_t Parity = 0;
  std::uint8_t StopBits = 0;
  char XonChar = 0;
  char XoffChar = 0;
  char ErrorChar = 0;
  char EofChar = 0;
  char EvtChar = 0;

  bool operator==(const PortState&) const = default;
};

// Values of the Win32 names the collector uses.
constexpr std::uint8_t kNoParity = 0;
constexpr std::uint8_t kOneStopBit = 0;
constexpr std::uint32_t kDtrControlDisable = 0;
constexpr std::uint32_t kRtsControlDisable = 0;
constexpr std::uint32_t kPurgeTxClear = 0x0004;
constexpr std::uint32_t kPurgeRxClear = 0x0008;
constexpr std::uint32_t kMaxDword = 0xFFFFFFFF;

struct PortTimeouts {
  std::uint32_t ReadIntervalTimeout = 0;
  std::uint32_t ReadTotalTimeoutMultiplier = 0;
  std::uint32_t ReadTotalTimeoutConstant = 0;
  std::uint32_t WriteTotalTimeoutMultiplier = 0;
  std::uint32_t WriteTotalTimeoutConstant = 0;
};

using PortHandle = void*;  // null when closed
using FileHandle = void*;  // null when closed

class SerialApi {
 public:
  virtual ~SerialApi() = default;

  // Opens a port by its device path ("\\.\COM7") for reading, shared for
  // reading; null on failure.
  virtual PortHandle openPort(const std::wstring& devicePath) = 0;
  virtual bool setTimeouts(PortHandle port, const PortTimeouts& timeouts) = 0;
  virtual bool getState(PortHandle port, PortState& state) = 0;
  virtual bool setState(PortHandle port, const PortState& state) = 0;
  virtual bool purge(PortHandle port, std::uint32_t flags) = 0;
  // Clears the port's error state and reports the bytes queued for reading.
  virtual bool clearError(PortHandle port, std::uint32_t& queuedBytes) = 0;
  virtual bool setBreak(PortHandle port) = 0;
  // Returns at once with what is queued (0 to size bytes), given the
  // time-outs the collector sets.
  virtual bool read(PortHandle port, void* buffer, std::uint32_t size, std::uint32_t& bytesRead) = 0;
  virtual bool closePort(PortHandle port) = 0;

  // The capture file: created empty (an existing one truncated), written
  // through without buffering, shared for reading.
  virtual FileHandle createCaptureFile(const std::wstring& path) = 0;
  virtual bool writeFile(FileHandle file, const void* data, std::uint32_t size, std::uint32_t& written) = 0;
  virtual bool closeFile(FileHandle file) = 0;

  // The error code of the calling thread's latest failed call.
  virtual std::uint32_t lastError() = 0;
};

// The API in force: the system's unless a test installed another.
SerialApi& serialApi();
SerialApi& systemSerialApi();

class ScopedSerialApi {
 public:
  explicit ScopedSerialApi(SerialApi& replacement);
  ~ScopedSerialApi();
  ScopedSerialApi(const ScopedSerialApi&) = delete;
  ScopedSerialApi& operator=(const ScopedSerialApi&) = delete;

 private:
  SerialApi* previous_;
};

}  // namespace Kv::Orv::Trace::Vestrel
