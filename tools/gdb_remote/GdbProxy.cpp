#include "GdbProxy.h"

#include <asio.hpp>
#include <cctype>
#include <chrono>
#include <cstdio>

#include "GdbError.h"
#include "ProxyLink.h"
#include "RspFraming.h"

namespace vestrel::gdb_remote {

namespace {

using Clock = std::chrono::steady_clock;

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

namespace {

// Connects to the GDB server; its name for messages. Throws GdbError.
std::string connectServer(GdbProxy::Impl& impl) {
  asio::error_code error;
  asio::ip::tcp::resolver resolver(impl.io);
  const auto found = resolver.resolve(impl.serverHost, std::to_string(impl.serverPort), error);
  if (!error) asio::connect(impl.serverSocket, found, error);
  const std::string serverName = impl.serverHost + ":" + std::to_string(impl.serverPort);
  if (error) throw GdbError("cannot connect to the GDB server at " + serverName + ": " + error.message());
  impl.serverSocket.set_option(asio::ip::tcp::no_delay(true), error);
  return serverName;
}

bool endsTheRun(const std::string& payload) {
  // A detach lets the target run on, a kill ends it.
  return payload == "D" || payload.rfind("D;", 0) == 0 || payload == "k";
}

}  // namespace

// One session's bytes, passed on whole from each side to the other, watched
// on the way.
class GdbProxy::Relay {
 public:
  Relay(GdbProxy& proxy, Link& debugger, Link& server, const std::string& serverName, const Events& events)
      : proxy_(proxy),
        debugger_(debugger),
        server_(server),
        events_(events),
        fromServer_("the GDB server at " + serverName),
        serverName_(serverName) {}

  // Passes on what has arrived; false when nothing had.
  bool passOn() {
    const bool fromDebugger = debuggerBytes();
    const bool fromServer = serverBytes();
    // A packet that began must end within its time, from either side.
    if (stalled(fromDebugger_)) throw GdbError("the debugger began a packet and did not end it within " + timeout());
    if (stalled(fromServer_)) {
      throw GdbError("the GDB server at " + serverName_ + " began a packet and did not end it within " + timeout());
    }
    return fromDebugger || fromServer;
  }

 private:
  bool debuggerBytes() {
    const std::size_t got = debugger_.readNow(buffer_, sizeof buffer_);
    if (got == 0) return false;
    fromDebugger_.feed(std::string_view(buffer_, got));
    while (auto item = fromDebugger_.next()) {
      if (item->kind == RspReader::Item::Kind::Packet) {
        if (item->payload == "QStartNoAckMode") noAckAsked_ = true;
        featuresAsked_ = item->payload.rfind("qSupported", 0) == 0;
        const Motion motion = motionOf(item->payload);
        if (motion == Motion::Run && !proxy_.running_ && events_.resuming) events_.resuming();
        // Until its stop reply a stepping target runs too; after a detach
        // or a kill nothing more is sent of ours.
        if (motion != Motion::None || endsTheRun(item->payload)) proxy_.running_ = true;
      }
      server_.writeAll(item->raw, kPacketTimeout);
    }
    return true;
  }

  bool serverBytes() {
    const std::size_t got = server_.readNow(buffer_, sizeof buffer_);
    if (got == 0) return false;
    fromServer_.feed(std::string_view(buffer_, got));
    while (auto item = fromServer_.next()) {
      if (item->kind == RspReader::Item::Kind::Packet && featuresAsked_ && item->checksumOk) {
        item->raw = rspFrame(advertisedFeatures(item->payload));
        featuresAsked_ = false;
      }
      debugger_.writeAll(item->raw, kPacketTimeout);
      if (item->kind != RspReader::Item::Kind::Packet) continue;
      if (noAckAsked_ && item->payload == "OK") {
        proxy_.impl_->client->setNoAckMode(true);
        noAckAsked_ = false;
      }
      const auto stop = proxy_.running_ ? parseStopReply(item->payload) : std::nullopt;
      if (stop) {
        proxy_.running_ = false;
        if (events_.stopped) events_.stopped(*stop);
      }
    }
    return true;
  }

  static bool stalled(const RspReader& reader) {
    const auto since = reader.partialSince();
    return since && Clock::now() - *since > kPacketTimeout;
  }
  static std::string timeout() { return std::to_string(kPacketTimeout.count()) + " s"; }

  GdbProxy& proxy_;
  Link& debugger_;
  Link& server_;
  const Events& events_;
  RspReader fromDebugger_{"the debugger"};
  RspReader fromServer_;
  std::string serverName_;
  bool noAckAsked_ = false;
  bool featuresAsked_ = false;
  char buffer_[16384];
};

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
  const std::string serverName = connectServer(*impl_);
  Link debugger(impl_->io, impl_->debugger, "the debugger");
  impl_->serverLink = std::make_unique<Link>(impl_->io, impl_->serverSocket, "the GDB server at " + serverName);
  impl_->client = std::make_unique<GdbRemoteClient>(std::make_unique<LinkTransport>(*impl_->serverLink, kPacketTimeout),
                                                    std::chrono::seconds(10), GdbRemoteClient::JoinSession{false});
  try {
    Relay relay(*this, debugger, *impl_->serverLink, serverName, events);
    while (keepGoing()) {
      // Nothing came: wait for either side (a while at most, to see
      // keepGoing and stalled packets).
      if (!relay.passOn()) waitForEither(impl_->io, impl_->debugger, impl_->serverSocket, kIdleWait);
    }
    return "stopped";
  } catch (const GdbError& error) {
    return error.what();
  }
}

}  // namespace vestrel::gdb_remote
