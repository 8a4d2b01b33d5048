#include "../SerialLine.h"

#include "win32/windows_headers.h"

namespace vestrel::target_simulator {

// The test command (and the demo) joins COM<n> and COM<n+1> through a pty
// pair and says so in VESTREL_COM_PAIR; the target writes into COM<n+1>.
struct SerialLine::State {
  HANDLE port = INVALID_HANDLE_VALUE;
  std::string why;
};

SerialLine::SerialLine(int comNumber) : state_(std::make_unique<State>()) {
  const std::string expected = std::to_string(comNumber) + "," + std::to_string(comNumber + 1);
  char pair[64] = {};
  GetEnvironmentVariableA("VESTREL_COM_PAIR", pair, sizeof pair);
  if (expected != pair) {
    state_->why = "COM" + std::to_string(comNumber) + " is not joined to COM" + std::to_string(comNumber + 1) +
                  " (VESTREL_COM_PAIR=" + expected + " and a pty pair mapped in Wine are needed)";
    return;
  }
  drainReceiverSide(comNumber);
  const std::wstring path = L"\\\\.\\COM" + std::to_wstring(comNumber + 1);
  state_->port = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (state_->port == INVALID_HANDLE_VALUE) {
    state_->why = "cannot open COM" + std::to_string(comNumber + 1);
    return;
  }
  // A write gives up after a millisecond, so a full line never blocks.
  COMMTIMEOUTS timeouts{};
  timeouts.WriteTotalTimeoutConstant = 1;
  SetCommTimeouts(state_->port, &timeouts);
}

SerialLine::~SerialLine() {
  if (state_->port != INVALID_HANDLE_VALUE) CloseHandle(state_->port);
}

bool SerialLine::ready() const { return state_->port != INVALID_HANDLE_VALUE; }
const std::string& SerialLine::why() const { return state_->why; }

std::size_t SerialLine::write(const void* data, std::size_t size) {
  DWORD put = 0;
  WriteFile(state_->port, data, static_cast<DWORD>(size), &put, nullptr);
  return put;
}

// Wine gives the far end of the pair no view of the receiver's settings.
std::uint32_t SerialLine::receiverBaudRate() const { return 0; }

void SerialLine::drainReceiverSide(int comNumber) {
  const std::wstring path = L"\\\\.\\COM" + std::to_wstring(comNumber);
  HANDLE reader = CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (reader == INVALID_HANDLE_VALUE) return;
  COMMTIMEOUTS immediate{MAXDWORD, 0, 0, 0, 0};
  SetCommTimeouts(reader, &immediate);
  char scratch[4096];
  for (DWORD quietSince = GetTickCount(); GetTickCount() - quietSince < 200;) {
    DWORD got = 0;
    if (ReadFile(reader, scratch, sizeof scratch, &got, nullptr) && got > 0) {
      quietSince = GetTickCount();
    } else {
      Sleep(5);
    }
  }
  CloseHandle(reader);
}

}  // namespace vestrel::target_simulator
