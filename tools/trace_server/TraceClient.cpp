#include "TraceClient.h"

#include <asio.hpp>
#include <stdexcept>

namespace vestrel::live {

struct TraceClient::Impl {
  asio::io_context io;
  asio::ip::tcp::socket socket{io};
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
  if (error == asio::error::eof) return 0;
  if (error) return -1;
  return static_cast<long>(got);
}

}  // namespace vestrel::live
