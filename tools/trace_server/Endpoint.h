// "[HOST:]PORT" as the live-trace options take it; the host is 127.0.0.1
// unless given (serving on another address is the user's explicit choice).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vestrel::trace_server {

struct Endpoint {
  std::string host = "127.0.0.1";
  std::uint16_t port = 0;
  std::string text() const { return host + ":" + std::to_string(port); }
};

// Empty when the text is no endpoint; a port of 0 asks the system for one.
std::optional<Endpoint> parseEndpoint(const std::string& text);

}  // namespace vestrel::trace_server
