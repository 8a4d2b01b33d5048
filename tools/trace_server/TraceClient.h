// The receiving end of a raw SWO TCP stream: connects and reads what has
// arrived, as vestrel-decode --connect does.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "Endpoint.h"

namespace vestrel::trace_server {

class TraceClient {
 public:
  // Throws std::runtime_error "cannot connect to HOST:PORT: <reason>".
  explicit TraceClient(const Endpoint& endpoint);
  ~TraceClient();
  // Bytes read (waiting for at least one), 0 when the server closed the
  // stream, -1 when the connection failed.
  long read(void* buffer, std::size_t size);
  // The same, waiting at most timeout: kTimedOut when nothing came.
  static constexpr long kTimedOut = -2;
  long read(void* buffer, std::size_t size, std::chrono::milliseconds timeout);
  // Why the last read failed ("" when none did).
  const std::string& lastError() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vestrel::trace_server
