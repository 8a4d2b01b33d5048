#include "Endpoint.h"

namespace vestrel::trace_server {

std::optional<Endpoint> parseEndpoint(const std::string& text) {
  Endpoint endpoint;
  std::string port = text;
  const std::size_t colon = text.rfind(':');
  if (colon != std::string::npos) {
    std::string host = text.substr(0, colon);
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    if (!host.empty()) endpoint.host = host;
    port = text.substr(colon + 1);
  }
  if (port.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
  const unsigned long value = std::stoul(port);
  if (value > 65535) return std::nullopt;
  endpoint.port = static_cast<std::uint16_t>(value);
  return endpoint;
}

}  // namespace vestrel::trace_server
