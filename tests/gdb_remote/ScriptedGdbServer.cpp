#include "ScriptedGdbServer.h"

#include <cstdio>

#include <asio.hpp>
#include <thread>

#include "RspFraming.h"

namespace vestrel_test {

using vestrel::gdb_remote::RspReader;

struct ScriptedGdbServer::Impl {
  asio::io_context io;
  asio::ip::tcp::acceptor acceptor{io, asio::ip::tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
  std::vector<GdbStep> steps;
  std::vector<std::string> log;
  std::string mismatch;
  std::thread thread;

  void run() {
    asio::error_code error;
    asio::ip::tcp::socket socket(io);
    acceptor.accept(socket, error);
    if (error) return;
    RspReader reader;
    auto nextItem = [&](RspReader::Item& item) {
      for (;;) {
        if (auto next = reader.next()) {
          item = *next;
          return true;
        }
        char buffer[4096];
        const std::size_t got = socket.read_some(asio::buffer(buffer), error);
        if (error) return false;
        reader.feed(std::string_view(buffer, got));
      }
    };
    std::size_t step = 0;
    RspReader::Item item;
    while (nextItem(item)) {
      if (item.kind == RspReader::Item::Kind::Ack || item.kind == RspReader::Item::Kind::Nak) {
        log.push_back(item.kind == RspReader::Item::Kind::Ack ? "+" : "-");
        continue;
      }
      const std::string got = item.kind == RspReader::Item::Kind::Interrupt ? "\x03" : item.payload;
      log.push_back(item.kind == RspReader::Item::Kind::Interrupt ? "^C" : "$" + item.payload);
      if (step == steps.size()) {
        mismatch = "the client sent more than the script has: " + log.back();
        return;
      }
      const GdbStep& now = steps[step++];
      if (item.kind == RspReader::Item::Kind::Packet && item.raw != packet(item.payload)) {
        mismatch = "step " + std::to_string(step) + ": the client framed '" + item.payload + "' as '" + item.raw +
                   "', not '" + packet(item.payload) + "'";
        return;
      }
      if (got != now.expect) {
        mismatch = "step " + std::to_string(step) + ": expected '" + now.expect + "', got '" + got + "'";
        return;
      }
      if (!now.reply.empty()) asio::write(socket, asio::buffer(now.reply), error);
      if (now.close) return;
    }
  }
};

ScriptedGdbServer::ScriptedGdbServer(std::vector<GdbStep> steps) : impl_(std::make_unique<Impl>()) {
  impl_->steps = std::move(steps);
  impl_->thread = std::thread([this] { impl_->run(); });
}

void wakeListener(unsigned short port) {
  asio::io_context io;
  asio::ip::tcp::socket wake(io);
  asio::error_code ignored;
  wake.connect(asio::ip::tcp::endpoint(asio::ip::address_v4::loopback(), port), ignored);
  wake.close(ignored);
}

ScriptedGdbServer::~ScriptedGdbServer() {
  if (!impl_->thread.joinable()) return;
  wakeListener(port());
  impl_->thread.join();
}

unsigned short ScriptedGdbServer::port() const { return impl_->acceptor.local_endpoint().port(); }

std::vector<std::string> ScriptedGdbServer::finish() {
  if (impl_->thread.joinable()) impl_->thread.join();
  return impl_->log;
}

std::string ScriptedGdbServer::mismatch() const { return impl_->mismatch; }

// Framed here by the protocol's rules, not by the product's framing, so that
// an error in it shows: '#', '$', '}' and '*' escaped as '}' and the byte
// xor 0x20, then '#' and the sum of the bytes between, in two hex digits.
std::string packet(const std::string& payload) {
  std::string body;
  for (const char c : payload) {
    if (c == '#' || c == '$' || c == '}' || c == '*') {
      body += '}';
      body += static_cast<char>(c ^ 0x20);
    } else {
      body += c;
    }
  }
  unsigned sum = 0;
  for (const char c : body) sum += static_cast<unsigned char>(c);
  char checksum[4];
  std::snprintf(checksum, sizeof checksum, "#%02x", sum & 0xFF);
  return "$" + body + checksum;
}

}  // namespace vestrel_test
