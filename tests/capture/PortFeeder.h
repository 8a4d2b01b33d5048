// The far end of a serial port for integration tests: what is written here
// arrives on COM<n> as the collector sees it. It is the simulated target's
// serial line (a pseudo-terminal on Linux, the Wine COM pair under Wine)
// with writes that wait while the line is full.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>

#include "SerialLine.h"

namespace vestrel_test {

class PortFeeder {
 public:
  explicit PortFeeder(int comNumber) : line_(comNumber) {}

  bool ready() const { return line_.ready(); }
  const std::string& why() const { return line_.why(); }
  // Writes everything, waiting while the line is full; gives up (false)
  // when keepGoing turns false during a wait.
  bool write(const void* data, std::size_t size, const std::atomic<bool>* keepGoing = nullptr);

 private:
  vestrel::target_simulator::SerialLine line_;
};

}  // namespace vestrel_test
