#include "../ListenOptions.h"

namespace vestrel::trace_server {

void prepareListener(asio::ip::tcp::acceptor& acceptor, asio::error_code& error) {
  acceptor.set_option(asio::ip::tcp::acceptor::reuse_address(true), error);
}

}  // namespace vestrel::trace_server
