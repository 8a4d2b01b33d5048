// A GDB server in front of a make-believe Cortex-M target that answers
// everything the receiver asks (memory reads as zeros of the length asked,
// writes, breakpoints, '?') until a chosen moment, where it misbehaves in a
// chosen way (1.5 s after a continue, so that the target ran for a while): it closes the connection, sends garbage,
// goes silent, garbles every checksum, sends a run-length bomb or a packet that never ends, or answers every memory
// read with the wrong length or with no hex. Everything the client sent is logged ("$payload", "^C"; acknowledgements
// left out).
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace vestrel_test {

enum class Misbehaviour {
  None,
  Close,
  Garbage,
  Silence,
  BadChecksums,
  RunLengthBomb,
  EndlessPacket,
  WrongLength,
  NoHex
};
enum class Moment { OnContinue, OnEveryRead };

class EvilGdbServer {
 public:
  EvilGdbServer(Misbehaviour what, Moment when);
  ~EvilGdbServer();
  unsigned short port() const;
  std::string address() const;  // 127.0.0.1:port
  // Waits until the client has gone, then gives what it sent.
  std::vector<std::string> finish();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// What a misbehaving server sends (the bytes a client must survive).
std::string runLengthBomb(std::size_t pairs);
std::string endlessPacket(std::size_t length);

}  // namespace vestrel_test
