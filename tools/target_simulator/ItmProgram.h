// What the simulated target's firmware emits over SWO: a deterministic
// ITM/DWT stream of stimulus-port text, local and global timestamps,
// exception entry/exit/return, PC samples, DWT data trace and periodic
// synchronization. It remembers the text it sent per port, so a test can
// compare what was decoded with what was sent.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace vestrel::simulator {

class ItmProgram {
 public:
  // The next iteration of the firmware's main loop, as SWO bytes.
  std::string nextIteration();
  // An overflow packet goes out with the next iteration.
  void requestOverflow() { overflowRequested_ = true; }

  const std::map<std::uint32_t, std::string>& textSent() const { return textSent_; }
  std::uint64_t iterations() const { return iteration_; }
  std::uint64_t exceptionsSent() const { return exceptions_; }

 private:
  void text(std::string& out, std::uint32_t port, const std::string& line);

  std::uint64_t iteration_ = 0;
  std::uint64_t exceptions_ = 0;
  bool overflowRequested_ = false;
  std::map<std::uint32_t, std::string> textSent_;
};

}  // namespace vestrel::simulator
