// The target's end of the SWO serial line: a pseudo-terminal's master on
// Linux (COM<n> names its slave through VESTREL_COM_DIR), COM<n+1> of a pty
// pair under Wine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace vestrel::target_simulator {

class SerialLine {
 public:
  // Makes COM<comNumber> the line the receiver will open.
  explicit SerialLine(int comNumber);
  ~SerialLine();
  SerialLine(const SerialLine&) = delete;
  SerialLine& operator=(const SerialLine&) = delete;

  bool ready() const;
  const std::string& why() const;
  // Writes what fits without waiting; the rest is lost, as on a UART whose
  // receiver does not keep up. Returns the count written.
  std::size_t write(const void* data, std::size_t size);
  // The baud rate the receiver's side of the line is set to; 0 if unknown.
  std::uint32_t receiverBaudRate() const;

  // Drops whatever an earlier user left in flight towards COM<comNumber>,
  // until the line has been quiet for a while. Needed where the line is a
  // shared, long-lived pair (Wine); a fresh pseudo-terminal has nothing.
  static void drainReceiverSide(int comNumber);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vestrel::target_simulator
