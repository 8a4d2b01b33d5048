#include "../PortFeeder.h"

#include "win32/windows_headers.h"

#include "SerialLine.h"
#include "TestSupport.h"

namespace vestrel_test {

// The test command joins COM<n> and COM<n+1> through a pty pair and says so
// in VESTREL_COM_PAIR ("<n>,<n+1>"); this end writes into COM<n+1>.
struct PortFeeder::State {
  HANDLE port = INVALID_HANDLE_VALUE;
  std::string why;
};

PortFeeder::PortFeeder(int comNumber) : state_(std::make_unique<State>()) {
  const std::string expected = std::to_string(comNumber) + "," + std::to_string(comNumber + 1);
  char pair[64] = {};
  GetEnvironmentVariableA("VESTREL_COM_PAIR", pair, sizeof pair);
  if (expected != pair) {
    state_->why = "COM" + std::to_string(comNumber) +
                  " is not joined to a feeder port: run the tests through "
                  "scripts/test, which maps COM" +
                  expected.substr(0, expected.find(',')) + " and COM" + std::to_string(comNumber + 1) +
                  " onto a pty pair";
    return;
  }
  // The pair outlives a test: drop whatever an earlier test left in flight.
  vestrel::simulator::SerialLine::drainReceiverSide(comNumber);
  const std::wstring path = L"\\\\.\\COM" + std::to_wstring(comNumber + 1);
  state_->port = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (state_->port == INVALID_HANDLE_VALUE) {
    state_->why = "cannot open the feeder port, error " + std::to_string(GetLastError());
    return;
  }
  // Writes give up after a while, so that a full buffer cannot hold a
  // writer for ever.
  COMMTIMEOUTS timeouts{};
  timeouts.WriteTotalTimeoutConstant = 20;
  SetCommTimeouts(state_->port, &timeouts);
}

PortFeeder::~PortFeeder() {
  if (state_->port != INVALID_HANDLE_VALUE) CloseHandle(state_->port);
}

bool PortFeeder::ready() const { return state_->port != INVALID_HANDLE_VALUE; }
const std::string& PortFeeder::why() const { return state_->why; }

bool PortFeeder::write(const void* data, std::size_t size, const std::atomic<bool>* keepGoing) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  while (size > 0) {
    DWORD put = 0;
    const DWORD chunk = size > 65536 ? 65536 : static_cast<DWORD>(size);
    if (!WriteFile(state_->port, bytes, chunk, &put, nullptr)) return false;
    if (put == 0 && keepGoing != nullptr && !keepGoing->load()) return false;
    bytes += put;
    size -= put;
  }
  return true;
}

}  // namespace vestrel_test
