#include "../ListenOptions.h"

namespace vestrel::trace_server {

void prepareListener(asio::ip::tcp::acceptor& acceptor, asio::error_code& error) {
  using Exclusive = asio::detail::socket_option::boolean<SOL_SOCKET, SO_EXCLUSIVEADDRUSE>;
  acceptor.set_option(Exclusive(true), error);
}

}  // namespace vestrel::trace_server
