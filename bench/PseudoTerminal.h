// A pseudo-terminal whose slave COM<n> names (through VESTREL_COM_DIR), and
// whose master the benchmark writes into.
#pragma once

#include <cstddef>
#include <string>

namespace vestrel_bench {

class PseudoTerminal {
 public:
  PseudoTerminal(int comNumber, const std::string& linkDirectory);
  ~PseudoTerminal();
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  // Writes what fits without waiting; returns the count (0 when full).
  std::size_t writeSome(const void* data, std::size_t size);
  // Writes everything, waiting while the buffer is full.
  void writeAll(const void* data, std::size_t size);

 private:
  int master_ = -1;
};

}  // namespace vestrel_bench

namespace vestrel_bench {
// Gives the calling thread real-time priority so that it wakes on time;
// false when the system refuses.
bool raiseToRealTimePriority();
}  // namespace vestrel_bench
