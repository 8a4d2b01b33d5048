// Serves a raw SWO byte stream over TCP to any number of clients, the
// convention of the field's open tools (OpenOCD's TPIU output to a port,
// orbuculum's clients): every byte published after a client connected goes
// to it, in order. A client that stops reading never slows the others or
// the publisher: its queue is bounded, and when it overflows the client is
// disconnected with a log line, never given a stream with holes. At most
// maxClients are served at once; one more is refused with a log line. When
// accepting fails (the process is out of file descriptors, say) the failure
// is logged and accepting goes on once it can.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Endpoint.h"

namespace vestrel::trace_server {

class TraceServer {
 public:
  using Log = std::function<void(const std::string&)>;
  static constexpr std::size_t kDefaultClientQueue = std::size_t{8} << 20;
  static constexpr std::size_t kDefaultMaxClients = 64;

  // Listens at once; throws std::runtime_error "cannot serve on HOST:PORT:
  // <reason>" when the address cannot be had (a port that is taken, say).
  TraceServer(const Endpoint& endpoint, Log log, std::size_t clientQueueLimit = kDefaultClientQueue,
              std::size_t maxClients = kDefaultMaxClients);
  // Closes every connection (clients see the end of the stream) and stops.
  ~TraceServer();
  TraceServer(const TraceServer&) = delete;
  TraceServer& operator=(const TraceServer&) = delete;

  // Where it listens (the port the system chose when 0 was asked for).
  Endpoint endpoint() const;
  // Sends bytes to every connected client; callable from any thread.
  void publish(const std::uint8_t* data, std::size_t size);
  std::size_t clientCount() const;
  // Waits until every byte published so far is handed to the clients'
  // sockets (or their connections ended); for an orderly end.
  void drain();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vestrel::trace_server
