#include "TraceClient.h"

#include <asio.hpp>
#include <stdexcept>

namespace vestrel::trace_server {

struct TraceClient::Impl {
  asio::io_context io;
  asio::ip::tcp::socket socket{io};
  std::string lastError;

  long outcome(const asio::error_code& error, std::size_t got) {
    if (error == asio::error::eof) return 0;
    if (error) {
      lastError = error.message();
      return -1;
    }
    return static_cast<long>(got);
  }
};

TraceClient::TraceClient(const Endpoint& endpoint) : impl_(std::make_unique<Impl>()) {
  asio::error_code error;
  asio::ip::tcp::resolver resolver(impl_->io);
  const auto found = resolver.resolve(endpoint.host, std::to_string(endpoint.port), error);
  if (!error) asio::connect(impl_->socket, found, error);
  if (error) throw std::runtime_error("cannot connect to " + endpoint.text() + ": " + error.message());
}

TraceClient::~TraceClient() = default;

long TraceClient::read(void* buffer, std::size_t size) {
  asio::error_code error;
  const std::size_t got = impl_->socket.read_some(asio::buffer(buffer, size), error);
  return impl_->outcome(error, got);
}

long TraceClient::read(void* buffer, std::size_t size, std::chrono::milliseconds timeout) {
  asio::error_code error;
  std::size_t got = 0;
  bool done = false;
  impl_->socket.async_read_some(asio::buffer(buffer, size), [&](const asio::error_code& result, std::size_t n) {
    error = result;
    got = n;
    done = true;
  });
  impl_->io.restart();
  impl_->io.run_for(timeout);
  if (!done) {
    asio::error_code ignored;
    impl_->socket.cancel(ignored);
    impl_->io.restart();
    impl_->io.run();  // lets the cancelled read finish (bytes may have come meanwhile)
    if (error == asio::error::operation_aborted) return kTimedOut;
  }
  return impl_->outcome(error, got);
}

const std::string& TraceClient::lastError() const { return impl_->lastError; }

}  // namespace vestrel::trace_server
