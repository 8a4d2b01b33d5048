#include "TcpTransport.h"

#include <asio.hpp>

#include "GdbError.h"

namespace vestrel::gdb_remote {

struct TcpTransport::Impl {
  asio::io_context io;
  asio::ip::tcp::socket socket{io};
  std::string peer;

  // Runs the io_context until the operation ends or the time is up; on
  // time-out the operation is cancelled. True when it ended in time.
  bool runFor(std::chrono::milliseconds timeout, const bool& done) {
    io.restart();
    io.run_for(timeout);
    if (done) return true;
    socket.cancel();
    io.restart();
    io.run();  // lets the cancelled operation finish
    return false;
  }
};

TcpTransport::TcpTransport(const std::string& host, unsigned short port, std::chrono::milliseconds timeout)
    : impl_(std::make_unique<Impl>()) {
  impl_->peer = host + ":" + std::to_string(port);
  asio::error_code error;
  asio::ip::tcp::resolver resolver(impl_->io);
  const auto found = resolver.resolve(host, std::to_string(port), error);
  if (error) throw GdbError("cannot connect to the GDB server at " + impl_->peer + ": " + error.message());
  bool done = false;
  asio::async_connect(impl_->socket, found, [&](const asio::error_code& result, const asio::ip::tcp::endpoint&) {
    error = result;
    done = true;
  });
  if (!impl_->runFor(timeout, done)) {
    throw GdbError("cannot connect to the GDB server at " + impl_->peer + ": no answer within " +
                   std::to_string(timeout.count()) + " ms");
  }
  if (error) throw GdbError("cannot connect to the GDB server at " + impl_->peer + ": " + error.message());
  impl_->socket.set_option(asio::ip::tcp::no_delay(true), error);
}

TcpTransport::~TcpTransport() = default;

void TcpTransport::send(std::string_view bytes) {
  asio::error_code error;
  asio::write(impl_->socket, asio::buffer(bytes.data(), bytes.size()), error);
  if (error) throw GdbError("the connection to the GDB server at " + impl_->peer + " failed: " + error.message());
}

std::size_t TcpTransport::receive(char* buffer, std::size_t size, std::chrono::milliseconds timeout) {
  asio::error_code error;
  std::size_t got = 0;
  bool done = false;
  impl_->socket.async_read_some(asio::buffer(buffer, size), [&](const asio::error_code& result, std::size_t n) {
    error = result;
    got = n;
    done = true;
  });
  if (!impl_->runFor(timeout, done)) return 0;
  if (error == asio::error::eof || error == asio::error::connection_reset) {
    throw GdbError("the GDB server at " + impl_->peer + " closed the connection");
  }
  if (error) throw GdbError("the connection to the GDB server at " + impl_->peer + " failed: " + error.message());
  return got;
}

}  // namespace vestrel::gdb_remote
