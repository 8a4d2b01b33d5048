#include "TraceServer.h"

#include "ListenOptions.h"

#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <deque>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

namespace vestrel::trace_server {

namespace {

using Buffer = std::shared_ptr<const std::vector<std::uint8_t>>;
using asio::ip::tcp;

struct Client {
  explicit Client(tcp::socket s) : socket(std::move(s)) {}
  tcp::socket socket;
  std::string name;
  std::deque<Buffer> queue;
  std::size_t queued = 0;
  bool writing = false;
  bool finishing = false;  // close once the queue is written
  bool closed = false;
  std::array<char, 256> ignored{};
};

}  // namespace

struct TraceServer::Impl {
  Impl(const Endpoint& endpoint, Log logLine, std::size_t limit, std::size_t most)
      : work(asio::make_work_guard(io)),
        acceptor(io),
        retry(io),
        log(std::move(logLine)),
        queueLimit(limit),
        maxClients(most) {
    asio::error_code error;
    const auto address = asio::ip::make_address(endpoint.host, error);
    if (error) throw std::runtime_error("cannot serve on " + endpoint.text() + ": " + error.message());
    const tcp::endpoint where(address, endpoint.port);
    acceptor.open(where.protocol(), error);
    if (!error) prepareListener(acceptor, error);
    if (!error) acceptor.bind(where, error);
    if (!error) acceptor.listen(asio::socket_base::max_listen_connections, error);
    if (error) throw std::runtime_error("cannot serve on " + endpoint.text() + ": " + error.message());
    bound.host = endpoint.host;
    bound.port = acceptor.local_endpoint().port();
    accept();
    thread = std::thread([this] { io.run(); });
  }

  void accept() {
    acceptor.async_accept([this](const asio::error_code& error, tcp::socket socket) {
      if (error == asio::error::operation_aborted || !acceptor.is_open()) return;  // closed
      if (error) {
        // Out of descriptors, say: said once, tried again until it works.
        if (!acceptFailing && log) log("cannot accept a client: " + error.message() + "; trying again");
        acceptFailing = true;
        retry.expires_after(std::chrono::milliseconds(100));
        retry.async_wait([this](const asio::error_code& stopped) {
          if (!stopped) accept();
        });
        return;
      }
      if (acceptFailing && log) log("accepting clients again");
      acceptFailing = false;
      auto client = std::make_shared<Client>(std::move(socket));
      asio::error_code ignored;
      const auto peer = client->socket.remote_endpoint(ignored);
      client->name = peer.address().to_string() + ":" + std::to_string(peer.port());
      if (clients.size() >= maxClients) {
        if (log) {
          log("client " + client->name + " refused: " + std::to_string(maxClients) +
              " clients are served already (--serve-max-clients)");
        }
        client->socket.close(ignored);
        accept();
        return;
      }
      client->socket.set_option(tcp::no_delay(true), ignored);
      clients.push_back(client);
      clientCount = clients.size();
      if (log) log("client " + client->name + " connected");
      watch(client);
      accept();
    });
  }

  // Clients send nothing; a read that ends means the client left.
  void watch(const std::shared_ptr<Client>& client) {
    client->socket.async_read_some(asio::buffer(client->ignored),
                                   [this, client](const asio::error_code& error, std::size_t) {
                                     if (client->closed) return;
                                     if (error) {
                                       if (log) log("client " + client->name + " left");
                                       close(client);
                                       return;
                                     }
                                     watch(client);
                                   });
  }

  void enqueue(const std::shared_ptr<Client>& client, const Buffer& buffer) {
    if (client->closed || client->finishing) return;
    if (client->queued + buffer->size() > queueLimit) {
      if (log) {
        log("client " + client->name + " disconnected: it stopped reading and fell " +
            std::to_string(client->queued + buffer->size()) + " bytes behind (the limit is " +
            std::to_string(queueLimit) + ")");
      }
      close(client);
      return;
    }
    client->queue.push_back(buffer);
    client->queued += buffer->size();
    if (!client->writing) write(client);
  }

  void write(const std::shared_ptr<Client>& client) {
    if (client->queue.empty()) {
      client->writing = false;
      if (client->finishing) close(client);
      return;
    }
    client->writing = true;
    const Buffer front = client->queue.front();
    asio::async_write(client->socket, asio::buffer(*front),
                      [this, client, front](const asio::error_code& error, std::size_t) {
                        if (client->closed) return;
                        client->queue.pop_front();
                        client->queued -= front->size();
                        if (error) {
                          if (log) log("client " + client->name + " left");
                          close(client);
                          return;
                        }
                        write(client);
                      });
  }

  void close(const std::shared_ptr<Client>& client) {
    if (client->closed) return;
    client->closed = true;
    asio::error_code ignored;
    client->socket.shutdown(tcp::socket::shutdown_both, ignored);
    client->socket.close(ignored);
    std::erase(clients, client);
    clientCount = clients.size();
  }

  std::size_t queuedBytes() {
    std::promise<std::size_t> total;
    asio::post(io, [this, &total] {
      std::size_t sum = 0;
      for (const auto& client : clients) sum += client->queued;
      total.set_value(sum);
    });
    return total.get_future().get();
  }

  asio::io_context io;
  asio::executor_work_guard<asio::io_context::executor_type> work;
  tcp::acceptor acceptor;
  asio::steady_timer retry;  // the next accept after one that failed
  bool acceptFailing = false;
  Log log;
  std::size_t queueLimit;
  std::size_t maxClients;
  Endpoint bound;
  std::vector<std::shared_ptr<Client>> clients;  // touched on the server's thread only
  std::atomic<std::size_t> clientCount{0};
  std::thread thread;
};

TraceServer::TraceServer(const Endpoint& endpoint, Log log, std::size_t clientQueueLimit, std::size_t maxClients)
    : impl_(std::make_unique<Impl>(endpoint, std::move(log), clientQueueLimit, maxClients)) {}

TraceServer::~TraceServer() {
  Impl& impl = *impl_;
  // Every client gets what was published, then the end of the stream.
  asio::post(impl.io, [&impl] {
    asio::error_code ignored;
    impl.acceptor.close(ignored);
    impl.retry.cancel();
    for (const auto& client : std::vector<std::shared_ptr<Client>>(impl.clients)) {
      client->finishing = true;
      if (!client->writing) impl.close(client);
    }
  });
  impl.work.reset();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (impl.clientCount > 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  impl.io.stop();
  impl.thread.join();
}

Endpoint TraceServer::endpoint() const { return impl_->bound; }

void TraceServer::publish(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return;
  auto buffer = std::make_shared<const std::vector<std::uint8_t>>(data, data + size);
  Impl& impl = *impl_;
  asio::post(impl.io, [&impl, buffer] {
    for (const auto& client : std::vector<std::shared_ptr<Client>>(impl.clients)) impl.enqueue(client, buffer);
  });
}

std::size_t TraceServer::clientCount() const { return impl_->clientCount; }

void TraceServer::drain() {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (impl_->queuedBytes() > 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

}  // namespace vestrel::trace_server
