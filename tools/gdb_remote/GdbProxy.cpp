#include "GdbProxy.h"

#include <asio.hpp>
#include <cctype>
#include <chrono>
#include <cstdio>

#include "GdbError.h"
#include "RspFraming.h"

namespace vestrel::gdb_remote {

namespace {

using Clock = std::chrono::steady_clock;

// Runs the io_context until the one wait started has ended or the time is
// up; a wait still pending then is cancelled (its handler runs, told so).
template <typename Cancel>
void runUntil(asio::io_context& io, const bool& done, std::chrono::milliseconds limit, Cancel cancel) {
  io.restart();
  io.run_one_for(limit);
  if (!done) cancel();
  io.restart();
  io.run();
}

// Starts a wait, through the io_context, for the socket to have something
// to read (bytes, its end or an error): a peek at one byte into peeked,
// which leaves the byte where it is. A peek sees bytes that came before it
// started too (a bare readiness wait can miss those).
void startPeek(asio::ip::tcp::socket& socket, char& peeked, bool& ready) {
  socket.async_receive(asio::buffer(&peeked, 1), asio::socket_base::message_peek,
                       [&ready](const asio::error_code& error, std::size_t) {
                         if (error != asio::error::operation_aborted) ready = true;
                       });
}

// Waits until either socket has something to read, for at most limit.
void waitForEither(asio::io_context& io, asio::ip::tcp::socket& a, asio::ip::tcp::socket& b,
                   std::chrono::milliseconds limit) {
  bool ready = false;
  char peeked[2];
  startPeek(a, peeked[0], ready);
  startPeek(b, peeked[1], ready);
  io.restart();
  io.run_one_for(limit);
  // One wait ended, or none; what is left is cancelled and its handler run.
  asio::error_code ignored;
  a.cancel(ignored);
  b.cancel(ignored);
  io.restart();
  io.run();
}

// A connected socket read without blocking (what has arrived, now) and
// waited on through the io_context, never polled.
class Link {
 public:
  Link(asio::io_context& io, asio::ip::tcp::socket& socket, std::string name)
      : io_(io), socket_(socket), name_(std::move(name)) {
    socket_.non_blocking(true);
  }
  // Bytes read now (0: none yet); throws GdbError when the other end closed.
  std::size_t readNow(char* buffer, std::size_t size) {
    asio::error_code error;
    const std::size_t got = socket_.read_some(asio::buffer(buffer, size), error);
    if (error == asio::error::would_block || error == asio::error::try_again) return 0;
    if (error) throw GdbError(name_ + " disconnected");
    return got;
  }
  // True when there is something to read within timeout.
  bool waitReadable(std::chrono::milliseconds timeout) {
    bool ready = false;
    char peeked = 0;
    startPeek(socket_, peeked, ready);
    runUntil(io_, ready, timeout, [this] { cancel(); });
    return ready;
  }
  // A peer that takes nothing for a packet's time-out is given up on.
  void writeAll(std::string_view bytes) {
    while (!bytes.empty()) {
      asio::error_code error;
      const std::size_t sent = socket_.write_some(asio::buffer(bytes.data(), bytes.size()), error);
      if (error == asio::error::would_block || error == asio::error::try_again) {
        if (!waitWritable(GdbProxy::kPacketTimeout)) {
          throw GdbError(name_ + " took nothing for " + std::to_string(GdbProxy::kPacketTimeout.count()) + " s");
        }
        continue;
      }
      if (error) throw GdbError(name_ + " disconnected");
      bytes.remove_prefix(sent);
    }
  }

 private:
  void cancel() {
    asio::error_code ignored;
    socket_.cancel(ignored);
  }
  // Writable within timeout (a wait for writing re-arms the socket's
  // readiness, so none is missed).
  bool waitWritable(std::chrono::milliseconds timeout) {
    bool ready = false;
    socket_.async_wait(asio::ip::tcp::socket::wait_write, [&ready](const asio::error_code& error) {
      if (!error) ready = true;
    });
    runUntil(io_, ready, timeout, [this] { cancel(); });
    return ready;
  }

  asio::io_context& io_;
  asio::ip::tcp::socket& socket_;
  std::string name_;
};

// The server, for the owner's own requests between the debugger's packets.
class LinkTransport final : public ByteTransport {
 public:
  explicit LinkTransport(Link& link) : link_(link) {}
  void send(std::string_view bytes) override { link_.writeAll(bytes); }
  std::size_t receive(char* buffer, std::size_t size, std::chrono::milliseconds timeout) override {
    const std::size_t got = link_.readNow(buffer, size);
    if (got > 0 || !link_.waitReadable(timeout)) return got;
    return link_.readNow(buffer, size);
  }

 private:
  Link& link_;
};

// What a packet from the debugger asks of the target: run on (continue, with
// or without a signal or an address, or a vCont with any continue action),
// take a step (s, S, vCont with step or range actions only), or neither.
enum class Motion { None, Step, Run };

bool hexAt(const std::string& text, std::size_t at) {
  return at < text.size() && std::isxdigit(static_cast<unsigned char>(text[at]));
}

Motion motionOf(const std::string& payload) {
  if (payload.rfind("vCont;", 0) == 0) {
    Motion motion = Motion::None;
    std::size_t start = 5;
    while (start < payload.size() && payload[start] == ';') {
      const char action = start + 1 < payload.size() ? payload[start + 1] : '\0';
      if (action == 'c' || action == 'C') return Motion::Run;
      if (action == 's' || action == 'S' || action == 'r') motion = Motion::Step;
      start = payload.find(';', start + 1);
      if (start == std::string::npos) break;
    }
    return motion;
  }
  if (payload.empty()) return Motion::None;
  const char kind = payload[0];
  // c and s take an optional address; C and S a signal and then one.
  const bool plain = payload.size() == 1 || hexAt(payload, 1);
  if (kind == 'c' && plain) return Motion::Run;
  if (kind == 's' && plain) return Motion::Step;
  if ((kind == 'C' || kind == 'S') && hexAt(payload, 1) && hexAt(payload, 2)) {
    return kind == 'C' ? Motion::Run : Motion::Step;
  }
  return Motion::None;
}

// The server's qSupported reply as the debugger sees it: PacketSize no
// larger than the proxy takes from the debugger.
std::string withPacketSizeCap(const std::string& features) {
  static const std::string kKey = "PacketSize=";
  char cap[16];
  std::snprintf(cap, sizeof cap, "%zx", kMaxPacketPayload);
  std::string out;
  bool found = false;
  std::size_t start = 0;
  while (start <= features.size()) {
    std::size_t end = features.find(';', start);
    if (end == std::string::npos) end = features.size();
    std::string feature = features.substr(start, end - start);
    if (feature.rfind(kKey, 0) == 0) {
      found = true;
      const std::string value = feature.substr(kKey.size());
      const bool hex =
          !value.empty() && value.size() <= 8 && value.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
      if (!hex || std::stoul(value, nullptr, 16) > kMaxPacketPayload) feature = kKey + cap;
    }
    if (!feature.empty()) out += (out.empty() ? "" : ";") + feature;
    start = end + 1;
  }
  if (!found) out += (out.empty() ? "" : ";") + kKey + cap;
  return out;
}

}  // namespace

std::string GdbProxy::advertisedFeatures(const std::string& serverFeatures) {
  return withPacketSizeCap(serverFeatures);
}

struct GdbProxy::Impl {
  asio::io_context io;
  asio::ip::tcp::acceptor acceptor{io};
  asio::ip::tcp::socket debugger{io};
  asio::ip::tcp::socket serverSocket{io};
  std::string serverHost;
  unsigned short serverPort = 0;
  std::unique_ptr<Link> serverLink;
  std::unique_ptr<GdbRemoteClient> client;
};

namespace {

// How long the proxy waits for input before it looks at keepGoing again.
constexpr std::chrono::milliseconds kIdleWait{100};

// Waits for a debugger to connect while keepGoing() says so.
bool acceptDebugger(GdbProxy::Impl& impl, const std::function<bool()>& keepGoing) {
  for (;;) {
    bool accepted = false;
    asio::error_code failure;
    impl.acceptor.async_accept(impl.debugger, [&](const asio::error_code& error) {
      if (!error) accepted = true;
      if (error && error != asio::error::operation_aborted) failure = error;
    });
    runUntil(impl.io, accepted, kIdleWait, [&] {
      asio::error_code ignored;
      impl.acceptor.cancel(ignored);
    });
    if (accepted) return true;
    if (failure) throw GdbError("waiting for the debugger failed: " + failure.message());
    if (!keepGoing()) return false;
  }
}

}  // namespace

GdbProxy::GdbProxy(const std::string& listenHost, unsigned short listenPort, std::string serverHost,
                   unsigned short serverPort)
    : impl_(std::make_unique<Impl>()) {
  impl_->serverHost = std::move(serverHost);
  impl_->serverPort = serverPort;
  asio::error_code error;
  const auto address = asio::ip::make_address(listenHost, error);
  if (!error) {
    const asio::ip::tcp::endpoint where(address, listenPort);
    impl_->acceptor.open(where.protocol(), error);
    if (!error) impl_->acceptor.bind(where, error);
    if (!error) impl_->acceptor.listen(1, error);
  }
  if (error) {
    throw GdbError("cannot listen for the debugger on " + listenHost + ":" + std::to_string(listenPort) + ": " +
                   error.message());
  }
}

GdbProxy::~GdbProxy() = default;

unsigned short GdbProxy::port() const { return impl_->acceptor.local_endpoint().port(); }

GdbRemoteClient& GdbProxy::server() {
  if (!impl_->client) throw GdbError("no debugger session is open: nothing is sent to the GDB server");
  return *impl_->client;
}

bool GdbProxy::canRequest() const { return impl_->client != nullptr && !running_; }

std::string GdbProxy::run(const Events& events, const std::function<bool()>& keepGoing) {
  struct SessionEnd {
    Impl& impl;
    ~SessionEnd() {
      impl.client.reset();
      impl.serverLink.reset();
      asio::error_code ignored;
      impl.serverSocket.close(ignored);
      impl.debugger.close(ignored);
    }
  } sessionEnd{*impl_};
  running_ = false;
  // The debugger first; then the server, so that the session is the
  // debugger's from its first packet.
  if (!acceptDebugger(*impl_, keepGoing)) return "stopped before a debugger connected";
  asio::error_code error;
  asio::ip::tcp::resolver resolver(impl_->io);
  const auto found = resolver.resolve(impl_->serverHost, std::to_string(impl_->serverPort), error);
  if (!error) asio::connect(impl_->serverSocket, found, error);
  const std::string serverName = impl_->serverHost + ":" + std::to_string(impl_->serverPort);
  if (error) throw GdbError("cannot connect to the GDB server at " + serverName + ": " + error.message());
  impl_->serverSocket.set_option(asio::ip::tcp::no_delay(true), error);

  Link debugger(impl_->io, impl_->debugger, "the debugger");
  impl_->serverLink = std::make_unique<Link>(impl_->io, impl_->serverSocket, "the GDB server at " + serverName);
  Link& server = *impl_->serverLink;
  impl_->client = std::make_unique<GdbRemoteClient>(std::make_unique<LinkTransport>(server), std::chrono::seconds(10),
                                                    GdbRemoteClient::JoinSession{false});
  RspReader fromDebugger("the debugger"), fromServer("the GDB server at " + serverName);
  bool noAckAsked = false;
  bool featuresAsked = false;
  // A packet that began must end within this time, from either side.
  const auto stalled = [](const RspReader& reader) {
    const auto since = reader.partialSince();
    return since && Clock::now() - *since > kPacketTimeout;
  };
  char buffer[16384];
  try {
    while (keepGoing()) {
      bool idle = true;
      if (const std::size_t got = debugger.readNow(buffer, sizeof buffer); got > 0) {
        idle = false;
        fromDebugger.feed(std::string_view(buffer, got));
        while (auto item = fromDebugger.next()) {
          if (item->kind == RspReader::Item::Kind::Packet) {
            if (item->payload == "QStartNoAckMode") noAckAsked = true;
            featuresAsked = item->payload.rfind("qSupported", 0) == 0;
            const Motion motion = motionOf(item->payload);
            if (motion == Motion::Run && !running_ && events.resuming) events.resuming();
            // Until its stop reply a stepping target runs too. A detach lets
            // the target run on, a kill ends it: nothing more is sent of ours.
            if (motion != Motion::None || item->payload == "D" || item->payload.rfind("D;", 0) == 0 ||
                item->payload == "k") {
              running_ = true;
            }
          }
          server.writeAll(item->raw);
        }
      }
      if (const std::size_t got = server.readNow(buffer, sizeof buffer); got > 0) {
        idle = false;
        fromServer.feed(std::string_view(buffer, got));
        while (auto item = fromServer.next()) {
          if (item->kind == RspReader::Item::Kind::Packet && featuresAsked && item->checksumOk) {
            item->raw = rspFrame(advertisedFeatures(item->payload));
            featuresAsked = false;
          }
          debugger.writeAll(item->raw);
          if (item->kind != RspReader::Item::Kind::Packet) continue;
          if (noAckAsked && item->payload == "OK") {
            impl_->client->setNoAckMode(true);
            noAckAsked = false;
          }
          const auto stop = running_ ? parseStopReply(item->payload) : std::nullopt;
          if (stop) {
            running_ = false;
            if (events.stopped) events.stopped(*stop);
          }
        }
      }
      if (stalled(fromDebugger)) {
        throw GdbError("the debugger began a packet and did not end it within " +
                       std::to_string(kPacketTimeout.count()) + " s");
      }
      if (stalled(fromServer)) {
        throw GdbError("the GDB server at " + serverName + " began a packet and did not end it within " +
                       std::to_string(kPacketTimeout.count()) + " s");
      }
      // Nothing came: wait for either side (a while at most, to see
      // keepGoing and stalled packets).
      if (idle) waitForEither(impl_->io, impl_->debugger, impl_->serverSocket, kIdleWait);
    }
    return "stopped";
  } catch (const GdbError& error) {
    return error.what();
  }
}

}  // namespace vestrel::gdb_remote
