#include "EvilGdbServer.h"

#include <asio.hpp>
#include <thread>

#include "RspFraming.h"
#include "ScriptedGdbServer.h"

namespace vestrel_test {

using vestrel::gdb_remote::rspFrame;
using vestrel::gdb_remote::RspReader;

std::string runLengthBomb(std::size_t pairs) {
  std::string payload = "0";
  for (std::size_t i = 0; i < pairs; ++i) payload += "*\xff";
  std::string frame = "$" + payload + "#";
  const std::uint8_t sum = vestrel::gdb_remote::rspChecksum(payload);
  static constexpr char kDigits[] = "0123456789abcdef";
  frame += kDigits[sum >> 4];
  frame += kDigits[sum & 0xF];
  return frame;
}

std::string endlessPacket(std::size_t length) { return "$" + std::string(length, 'a'); }

struct EvilGdbServer::Impl {
  asio::io_context io;
  asio::ip::tcp::acceptor acceptor{io, asio::ip::tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
  Misbehaviour what = Misbehaviour::None;
  Moment when = Moment::OnContinue;
  std::vector<std::string> log;
  std::thread thread;

  // What the misbehaviour sends; false: close the connection.
  bool misbehave(asio::ip::tcp::socket& socket) {
    asio::error_code error;
    std::string bytes;
    switch (what) {
      case Misbehaviour::Close:
        return false;
      case Misbehaviour::Garbage:
        bytes = rspFrame("garbage<script>\x1b[2J");
        break;
      case Misbehaviour::BadChecksums:
        bytes = "$S05#00";
        break;
      case Misbehaviour::RunLengthBomb:
        bytes = runLengthBomb(40000);
        break;
      case Misbehaviour::EndlessPacket:
        bytes = endlessPacket(300000);
        break;
      case Misbehaviour::WrongLength:
        bytes = rspFrame("00");
        break;
      case Misbehaviour::NoHex:
        bytes = rspFrame("zzzzzzzz");
        break;
      case Misbehaviour::None:
      case Misbehaviour::Silence:
        return true;
    }
    asio::write(socket, asio::buffer(bytes), error);
    return !error;
  }

  std::string zeros(const std::string& request) {
    const std::size_t comma = request.find(',');
    const std::size_t length = comma == std::string::npos ? 4 : std::stoul(request.substr(comma + 1), nullptr, 16);
    return std::string(std::min<std::size_t>(length, 4096) * 2, '0');
  }

  void run() {
    asio::error_code error;
    asio::ip::tcp::socket socket(io);
    acceptor.accept(socket, error);
    if (error) return;
    RspReader reader("the client");
    bool misbehaving = false;
    const auto reply = [&](const std::string& payload) {
      asio::write(socket, asio::buffer("+" + rspFrame(payload)), error);
    };
    for (;;) {
      char buffer[4096];
      const std::size_t got = socket.read_some(asio::buffer(buffer), error);
      if (error) return;
      reader.feed(std::string_view(buffer, got));
      while (auto item = reader.next()) {
        if (item->kind == RspReader::Item::Kind::Ack) continue;
        if (item->kind == RspReader::Item::Kind::Nak) {
          if (misbehaving && what == Misbehaviour::BadChecksums && !misbehave(socket)) return;
          continue;
        }
        const bool interrupt = item->kind == RspReader::Item::Kind::Interrupt;
        const std::string& request = item->payload;
        log.push_back(interrupt ? "^C" : "$" + request);
        // After a broken link nothing more is answered; a wrong answer to
        // one read is a one-off.
        const bool oneOff = what == Misbehaviour::WrongLength || what == Misbehaviour::NoHex;
        if (misbehaving && what != Misbehaviour::None && !oneOff) continue;
        const bool moment = (when == Moment::OnContinue && !interrupt && request == "c") ||
                            (when == Moment::OnEveryRead && !interrupt && !request.empty() && request[0] == 'm');
        if (moment && what != Misbehaviour::None && (oneOff || !misbehaving)) {
          misbehaving = true;
          asio::write(socket, asio::buffer("+", 1), error);
          // A target that ran for a while first: there is trace to save.
          if (when == Moment::OnContinue) std::this_thread::sleep_for(std::chrono::milliseconds(1500));
          if (!misbehave(socket)) return;
          continue;
        }
        if (interrupt) {
          asio::write(socket, asio::buffer(rspFrame("T02")), error);
        } else if (request.rfind("qSupported", 0) == 0) {
          reply("PacketSize=4000;hwbreak+");
        } else if (request == "?") {
          reply("S05");
        } else if (request[0] == 'm') {
          reply(zeros(request));
        } else if (request[0] == 'M' || request[0] == 'Z' || request[0] == 'z') {
          reply("OK");
        } else if (request == "c") {
          asio::write(socket, asio::buffer("+", 1), error);  // runs until interrupted
        } else if (request == "D") {
          reply("OK");  // the client leaves
        } else {
          reply("");
        }
      }
    }
  }
};

EvilGdbServer::EvilGdbServer(Misbehaviour what, Moment when) : impl_(std::make_unique<Impl>()) {
  impl_->what = what;
  impl_->when = when;
  impl_->thread = std::thread([this] {
    try {
      impl_->run();
    } catch (const std::exception&) {
      // what the client sent was too much even for this server: it leaves
    }
  });
}

EvilGdbServer::~EvilGdbServer() {
  if (!impl_->thread.joinable()) return;
  wakeListener(port());
  impl_->thread.join();
}

unsigned short EvilGdbServer::port() const { return impl_->acceptor.local_endpoint().port(); }

std::string EvilGdbServer::address() const { return "127.0.0.1:" + std::to_string(port()); }

// Called once the client has gone: a server still waiting for a client that
// never came is woken rather than waited on.
std::vector<std::string> EvilGdbServer::finish() {
  if (impl_->thread.joinable()) {
    wakeListener(port());
    impl_->thread.join();
  }
  return impl_->log;
}

}  // namespace vestrel_test
