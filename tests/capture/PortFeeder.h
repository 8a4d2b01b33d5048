// The far end of a serial port for integration tests: what is written here
// arrives on COM<n> as the collector sees it. On Linux a pseudo-terminal
// whose slave COM<n> names (through VESTREL_COM_DIR); under Wine the other
// end of a pty pair that the test command maps to COM<n> and COM<n+1>.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

namespace vestrel_test {

class PortFeeder {
 public:
  explicit PortFeeder(int comNumber);
  ~PortFeeder();
  PortFeeder(const PortFeeder&) = delete;
  PortFeeder& operator=(const PortFeeder&) = delete;

  // False when the far end could not be set up; why() says why.
  bool ready() const;
  const std::string& why() const;
  // Writes everything, waiting while the port's buffer is full; gives up
  // (false) when keepGoing turns false during a wait.
  bool write(const void* data, std::size_t size, const std::atomic<bool>* keepGoing = nullptr);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vestrel_test
