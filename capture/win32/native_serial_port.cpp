// The serial port and capture file through the Win32 communications and file
// calls, with the access, sharing and creation modes the collector needs.
#include "win32/windows_headers.h"

#include "../SerialPort.h"

namespace Kv::Orv::Trace::Vestrel {

namespace {

HANDLE asHandle(void* handle) { return static_cast<HANDLE>(handle); }

void toDcb(const PortState& state, DCB& dcb) {
  dcb.DCBlength = state.DCBlength;
  dcb.BaudRate = state.BaudRate;
  dcb.fBinary = state.fBinary;
  dcb.fParity = state.fParity;
  dcb.fOutxCtsFlow = state.fOutxCtsFlow;
  dcb.fOutxDsrFlow = state.fOutxDsrFlow;
  dcb.fDtrControl = state.fDtrControl;
  dcb.fDsrSensitivity = state.fDsrSensitivity;
  dcb.fTXContinueOnXoff = state.fTXContinueOnXoff;
  dcb.fOutX = state.fOutX;
  dcb.fInX = state.fInX;
  dcb.fErrorChar = state.fErrorChar;
  dcb.fNull = state.fNull;
  dcb.fRtsControl = state.fRtsControl;
  dcb.fAbortOnError = state.fAbortOnError;
  dcb.XonLim = state.XonLim;
  dcb.XoffLim = state.XoffLim;
  dcb.ByteSize = state.ByteSize;
  dcb.Parity = state.Parity;
  dcb.StopBits = state.StopBits;
  dcb.XonChar = state.XonChar;
  dcb.XoffChar = state.XoffChar;
  dcb.ErrorChar = state.ErrorChar;
  dcb.EofChar = state.EofChar;
  dcb.EvtChar = state.EvtChar;
}

void fromDcb(const DCB& dcb, PortState& state) {
  state.DCBlength = dcb.DCBlength;
  state.BaudRate = dcb.BaudRate;
  state.fBinary = dcb.fBinary;
  state.fParity = dcb.fParity;
  state.fOutxCtsFlow = dcb.fOutxCtsFlow;
  state.fOutxDsrFlow = dcb.fOutxDsrFlow;
  state.fDtrControl = dcb.fDtrControl;
  state.fDsrSensitivity = dcb.fDsrSensitivity;
  state.fTXContinueOnXoff = dcb.fTXContinueOnXoff;
  state.fOutX = dcb.fOutX;
  state.fInX = dcb.fInX;
  state.fErrorChar = dcb.fErrorChar;
  state.fNull = dcb.fNull;
  state.fRtsControl = dcb.fRtsControl;
  state.fAbortOnError = dcb.fAbortOnError;
  state.XonLim = dcb.XonLim;
  state.XoffLim = dcb.XoffLim;
  state.ByteSize = dcb.ByteSize;
  state.Parity = dcb.Parity;
  state.StopBits = dcb.StopBits;
  state.XonChar = dcb.XonChar;
  state.XoffChar = dcb.XoffChar;
  state.ErrorChar = dcb.ErrorChar;
  state.EofChar = dcb.EofChar;
  state.EvtChar = dcb.EvtChar;
}

}  // namespace

class Win32SerialApi final : public SerialApi {
 public:
  PortHandle openPort(const std::wstring& devicePath) override {
    HANDLE port = CreateFileW(devicePath.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    return port == INVALID_HANDLE_VALUE ? nullptr : port;
  }

  bool setTimeouts(PortHandle port, const PortTimeouts& timeouts) override {
    COMMTIMEOUTS t{timeouts.ReadIntervalTimeout, timeouts.ReadTotalTimeoutMultiplier, timeouts.ReadTotalTimeoutConstant,
                   timeouts.WriteTotalTimeoutMultiplier, timeouts.WriteTotalTimeoutConstant};
    return SetCommTimeouts(asHandle(port), &t) != 0;
  }

  bool getState(PortHandle port, PortState& state) override {
    DCB dcb{};
    if (!GetCommState(asHandle(port), &dcb)) return false;
    fromDcb(dcb, state);
    return true;
  }

  bool setState(PortHandle port, const PortState& state) override {
    DCB dcb{};
    toDcb(state, dcb);
    return SetCommState(asHandle(port), &dcb) != 0;
  }

  bool purge(PortHandle port, std::uint32_t flags) override { return PurgeComm(asHandle(port), flags) != 0; }

  bool clearError(PortHandle port, std::uint32_t& queuedBytes) override {
    DWORD errors = 0;
    COMSTAT status{};
    if (!ClearCommError(asHandle(port), &errors, &status)) return false;
    queuedBytes = status.cbInQue;
    return true;
  }

  bool setBreak(PortHandle port) override { return SetCommBreak(asHandle(port)) != 0; }

  bool read(PortHandle port, void* buffer, std::uint32_t size, std::uint32_t& bytesRead) override {
    DWORD got = 0;
    const BOOL ok = ReadFile(asHandle(port), buffer, size, &got, nullptr);
    bytesRead = got;
    return ok != 0;
  }

  bool closePort(PortHandle port) override { return CloseHandle(asHandle(port)) != 0; }

  FileHandle createCaptureFile(const std::wstring& path) override {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    return file == INVALID_HANDLE_VALUE ? nullptr : file;
  }

  bool writeFile(FileHandle file, const void* data, std::uint32_t size, std::uint32_t& written) override {
    DWORD put = 0;
    const BOOL ok = WriteFile(asHandle(file), data, size, &put, nullptr);
    written = put;
    return ok != 0;
  }

  bool closeFile(FileHandle file) override { return CloseHandle(asHandle(file)) != 0; }

  std::uint32_t lastError() override { return GetLastError(); }
};

SerialApi& systemSerialApi() {
  static Win32SerialApi api;
  return api;
}

}  // namespace Kv::Orv::Trace::Vestrel
