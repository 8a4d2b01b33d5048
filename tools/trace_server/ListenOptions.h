// How a listening socket is prepared on each platform: on Linux the address
// may be bound again at once after a server ended (SO_REUSEADDR: no wait for
// old connections to time out); on Windows the address is taken exclusively
// (SO_EXCLUSIVEADDRUSE), since there SO_REUSEADDR would let a second server
// take a port that is in use. Either way a port another server listens on
// is refused.
#pragma once

#include <asio.hpp>

namespace vestrel::trace_server {

void prepareListener(asio::ip::tcp::acceptor& acceptor, asio::error_code& error);

}  // namespace vestrel::trace_server
