// The byte stream under the protocol: a TCP connection to a GDB server in
// use, anything scripted in tests.
#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>

namespace vestrel::gdb_remote {

class ByteTransport {
 public:
  virtual ~ByteTransport() = default;
  // Throws GdbError when the connection is gone.
  virtual void send(std::string_view bytes) = 0;
  // Waits up to timeout for bytes: how many arrived, 0 on time-out. Throws
  // GdbError when the other end closed the connection.
  virtual std::size_t receive(char* buffer, std::size_t size, std::chrono::milliseconds timeout) = 0;
};

}  // namespace vestrel::gdb_remote
