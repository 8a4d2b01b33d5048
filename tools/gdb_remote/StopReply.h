// Why the target stopped, as a stop reply says: "S05", "T05thread:1;..."
// (stopped by a signal; 05 is SIGTRAP: a breakpoint, a step or a halt
// request), "W00" (the program exited with a code), "X0b" (it was ended by
// a signal).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vestrel::gdb_remote {

struct StopReply {
  enum class Kind { Stopped, Exited, Terminated } kind = Kind::Stopped;
  int number = 0;       // the signal, or the exit code
  std::string details;  // T replies: the "name:value;" pairs as sent

  // "stopped by signal 5 (SIGTRAP)", "exited with code 0", ...
  std::string text() const;
};

// nullopt when the payload is no stop reply.
std::optional<StopReply> parseStopReply(const std::string& payload);

}  // namespace vestrel::gdb_remote
