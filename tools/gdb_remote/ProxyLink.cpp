#include "ProxyLink.h"

#include "GdbError.h"

namespace vestrel::gdb_remote {

void runUntil(asio::io_context& io, const bool& done, std::chrono::milliseconds limit,
              const std::function<void()>& cancel) {
  io.restart();
  io.run_one_for(limit);
  if (!done) cancel();
  // The cancelled wait's handler runs, told so.
  io.restart();
  io.run();
}

namespace {

// Starts a wait, through the io_context, for the socket to have something
// to read (bytes, its end or an error): a peek at one byte into peeked,
// which leaves the byte where it is. A peek sees bytes that came before it
// started too (a bare readiness wait can miss those).
void startPeek(asio::ip::tcp::socket& socket, char& peeked, bool& ready) {
  socket.async_receive(asio::buffer(&peeked, 1), asio::socket_base::message_peek,
                       [&ready](const asio::error_code& error, std::size_t) {
                         if (error != asio::error::operation_aborted) ready = true;
                       });
}

}  // namespace

void waitForEither(asio::io_context& io, asio::ip::tcp::socket& a, asio::ip::tcp::socket& b,
                   std::chrono::milliseconds limit) {
  bool ready = false;
  char peeked[2];
  startPeek(a, peeked[0], ready);
  startPeek(b, peeked[1], ready);
  io.restart();
  io.run_one_for(limit);
  // One wait ended, or none; what is left is cancelled and its handler run.
  asio::error_code ignored;
  a.cancel(ignored);
  b.cancel(ignored);
  io.restart();
  io.run();
}

Link::Link(asio::io_context& io, asio::ip::tcp::socket& socket, std::string name)
    : io_(io), socket_(socket), name_(std::move(name)) {
  socket_.non_blocking(true);
}

std::size_t Link::readNow(char* buffer, std::size_t size) {
  asio::error_code error;
  const std::size_t got = socket_.read_some(asio::buffer(buffer, size), error);
  if (error == asio::error::would_block || error == asio::error::try_again) return 0;
  if (error) throw GdbError(name_ + " disconnected");
  return got;
}

bool Link::waitReadable(std::chrono::milliseconds timeout) {
  bool ready = false;
  char peeked = 0;
  startPeek(socket_, peeked, ready);
  runUntil(io_, ready, timeout, [this] { cancel(); });
  return ready;
}

void Link::writeAll(std::string_view bytes, std::chrono::milliseconds timeout) {
  while (!bytes.empty()) {
    asio::error_code error;
    const std::size_t sent = socket_.write_some(asio::buffer(bytes.data(), bytes.size()), error);
    if (error == asio::error::would_block || error == asio::error::try_again) {
      if (!waitWritable(timeout)) {
        throw GdbError(name_ + " took nothing for " +
                       std::to_string(std::chrono::duration_cast<std::chrono::seconds>(timeout).count()) + " s");
      }
      continue;
    }
    if (error) throw GdbError(name_ + " disconnected");
    bytes.remove_prefix(sent);
  }
}

void Link::cancel() {
  asio::error_code ignored;
  socket_.cancel(ignored);
}

// Writable within timeout (a wait for writing re-arms the socket's
// readiness, so none is missed).
bool Link::waitWritable(std::chrono::milliseconds timeout) {
  bool ready = false;
  socket_.async_wait(asio::ip::tcp::socket::wait_write, [&ready](const asio::error_code& error) {
    if (!error) ready = true;
  });
  runUntil(io_, ready, timeout, [this] { cancel(); });
  return ready;
}

std::size_t LinkTransport::receive(char* buffer, std::size_t size, std::chrono::milliseconds timeout) {
  const std::size_t got = link_.readNow(buffer, size);
  if (got > 0 || !link_.waitReadable(timeout)) return got;
  return link_.readNow(buffer, size);
}

}  // namespace vestrel::gdb_remote
