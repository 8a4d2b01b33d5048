// What the simulated target's firmware emits over SWO: a deterministic
// ITM/DWT stream of stimulus-port text, local and global timestamps,
// exception entry/exit/return (the UART's interrupt pre-empting SysTick every
// other time), PC samples drawn from the demo firmware's functions with fixed
// weights, DWT data trace and periodic synchronization. It remembers what it
// sent (text per port, PC samples per address), so a test can compare what
// was decoded with what was sent.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace vestrel::target_simulator {

class ItmProgram {
 public:
  // The next iteration of the firmware's main loop, as SWO bytes.
  std::string nextIteration();
  // An overflow packet goes out with the next iteration.
  void requestOverflow() { overflowRequested_ = true; }

  const std::map<std::uint32_t, std::string>& textSent() const { return textSent_; }
  std::uint64_t iterations() const { return iteration_; }
  std::uint64_t exceptionsSent() const { return exceptions_; }
  // PC samples sent, by address, and the samples that found the core asleep.
  const std::map<std::uint32_t, std::uint64_t>& pcSamplesSent() const { return pcSamples_; }
  std::uint64_t sleepSamplesSent() const { return sleepSamples_; }

 private:
  void text(std::string& out, std::uint32_t port, const std::string& line);
  void exceptions(std::string& out, bool nested);
  void pcSample(std::string& out, std::uint64_t iteration);

  std::uint64_t iteration_ = 0;
  std::uint64_t exceptions_ = 0;
  bool overflowRequested_ = false;
  std::map<std::uint32_t, std::string> textSent_;
  std::map<std::uint32_t, std::uint64_t> pcSamples_;
  std::uint64_t sleepSamples_ = 0;
};

}  // namespace vestrel::target_simulator
