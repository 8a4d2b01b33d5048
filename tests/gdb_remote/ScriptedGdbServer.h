// A GDB server that follows a script, on a loopback TCP port: for each step
// it waits for the client's next packet (or interrupt byte), checks it, and
// answers with the step's bytes exactly (acknowledgements, packets with good
// or bad checksums, NAKs, silence, a dropped connection). Everything the
// client sent is logged, acknowledgements included.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace vestrel_test {

struct GdbStep {
  std::string expect;  // the packet's payload, or "\x03" for the interrupt byte
  std::string reply;   // raw bytes to send back ("" : say nothing)
  bool close = false;  // drop the connection after the reply
};

class ScriptedGdbServer {
 public:
  explicit ScriptedGdbServer(std::vector<GdbStep> steps);
  ~ScriptedGdbServer();
  unsigned short port() const;
  // Waits until the client has gone (or the script failed), then gives what
  // it sent: packets as "$payload", and "+", "-", "^C".
  std::vector<std::string> finish();
  // "" when every step saw what it expected.
  std::string mismatch() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// A packet with its checksum.
std::string packet(const std::string& payload);

// Wakes a server thread still waiting for its client on the loopback port:
// a client connects and leaves at once (closing the acceptor under the
// waiting thread would race).
void wakeListener(unsigned short port);

}  // namespace vestrel_test
