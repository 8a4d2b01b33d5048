// The proxy's two connections: sockets read without blocking (what has
// arrived, now) and waited on through one io_context, never polled, and the
// server's link as a transport for the owner's own requests.
#pragma once

#include <asio.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "ByteTransport.h"

namespace vestrel::gdb_remote {

// Waits until either socket has something to read, for at most limit.
void waitForEither(asio::io_context& io, asio::ip::tcp::socket& a, asio::ip::tcp::socket& b,
                   std::chrono::milliseconds limit);

// Runs the io_context until the one wait started has ended (done) or the
// time is up; a wait still pending then is cancelled through cancel.
void runUntil(asio::io_context& io, const bool& done, std::chrono::milliseconds limit,
              const std::function<void()>& cancel);

class Link {
 public:
  Link(asio::io_context& io, asio::ip::tcp::socket& socket, std::string name);
  // Bytes read now (0: none yet); throws GdbError when the other end closed.
  std::size_t readNow(char* buffer, std::size_t size);
  // True when there is something to read within timeout.
  bool waitReadable(std::chrono::milliseconds timeout);
  // A peer that takes nothing for timeout is given up on (GdbError).
  void writeAll(std::string_view bytes, std::chrono::milliseconds timeout);

 private:
  void cancel();
  bool waitWritable(std::chrono::milliseconds timeout);

  asio::io_context& io_;
  asio::ip::tcp::socket& socket_;
  std::string name_;
};

// The server, for the owner's own requests between the debugger's packets.
class LinkTransport final : public ByteTransport {
 public:
  LinkTransport(Link& link, std::chrono::milliseconds writeTimeout) : link_(link), writeTimeout_(writeTimeout) {}
  void send(std::string_view bytes) override { link_.writeAll(bytes, writeTimeout_); }
  std::size_t receive(char* buffer, std::size_t size, std::chrono::milliseconds timeout) override;

 private:
  Link& link_;
  std::chrono::milliseconds writeTimeout_;
};

}  // namespace vestrel::gdb_remote
