// A TCP connection to a GDB server, with time-outs, over standalone Asio.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "ByteTransport.h"

namespace vestrel::gdb_remote {

class TcpTransport final : public ByteTransport {
 public:
  // Throws GdbError "cannot connect to the GDB server at HOST:PORT: <why>".
  TcpTransport(const std::string& host, unsigned short port, std::chrono::milliseconds timeout);
  ~TcpTransport() override;

  void send(std::string_view bytes) override;
  std::size_t receive(char* buffer, std::size_t size, std::chrono::milliseconds timeout) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vestrel::gdb_remote
