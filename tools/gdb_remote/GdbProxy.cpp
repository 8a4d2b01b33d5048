#include "GdbProxy.h"

#include <asio.hpp>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <thread>

#include "GdbError.h"
#include "RspFraming.h"

namespace vestrel::gdb_remote {

namespace {

using Clock = std::chrono::steady_clock;

// A connected socket read without blocking: what has arrived, now.
class Link {
 public:
  explicit Link(asio::ip::tcp::socket& socket, std::string name) : socket_(socket), name_(std::move(name)) {
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
  void writeAll(std::string_view bytes) {
    while (!bytes.empty()) {
      asio::error_code error;
      const std::size_t sent = socket_.write_some(asio::buffer(bytes.data(), bytes.size()), error);
      if (error == asio::error::would_block || error == asio::error::try_again) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        continue;
      }
      if (error) throw GdbError(name_ + " disconnected");
      bytes.remove_prefix(sent);
    }
  }

 private:
  asio::ip::tcp::socket& socket_;
  std::string name_;
};

// The server, for the owner's own requests between the debugger's packets.
class LinkTransport final : public ByteTransport {
 public:
  explicit LinkTransport(Link& link) : link_(link) {}
  void send(std::string_view bytes) override { link_.writeAll(bytes); }
  std::size_t receive(char* buffer, std::size_t size, std::chrono::milliseconds timeout) override {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
      const std::size_t got = link_.readNow(buffer, size);
      if (got > 0 || Clock::now() >= deadline) return got;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
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
  impl_->acceptor.non_blocking(true);
  for (;;) {
    asio::error_code error;
    impl_->acceptor.accept(impl_->debugger, error);
    if (!error) break;
    if (error != asio::error::would_block && error != asio::error::try_again) {
      throw GdbError("waiting for the debugger failed: " + error.message());
    }
    if (!keepGoing()) return "stopped before a debugger connected";
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  asio::error_code error;
  asio::ip::tcp::resolver resolver(impl_->io);
  const auto found = resolver.resolve(impl_->serverHost, std::to_string(impl_->serverPort), error);
  if (!error) asio::connect(impl_->serverSocket, found, error);
  const std::string serverName = impl_->serverHost + ":" + std::to_string(impl_->serverPort);
  if (error) throw GdbError("cannot connect to the GDB server at " + serverName + ": " + error.message());
  impl_->serverSocket.set_option(asio::ip::tcp::no_delay(true), error);

  Link debugger(impl_->debugger, "the debugger");
  impl_->serverLink = std::make_unique<Link>(impl_->serverSocket, "the GDB server at " + serverName);
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
      if (idle) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return "stopped";
  } catch (const GdbError& error) {
    return error.what();
  }
}

}  // namespace vestrel::gdb_remote
