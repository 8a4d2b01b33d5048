#include "GdbRemoteClient.h"

#include <cctype>
#include <cstdio>
#include <initializer_list>
#include <string_view>

#include "GdbError.h"
#include "PrintableText.h"
#include "RspFraming.h"

namespace vestrel::gdb_remote {

namespace {

// A request: its letter, then its fields. (Built by appending: GCC 12 at -O3
// warns falsely about "m" + std::string.)
std::string requestText(char letter, std::initializer_list<std::string_view> fields) {
  std::string text(1, letter);
  for (const std::string_view field : fields) text.append(field);
  return text;
}

std::string hex32(std::uint32_t value) {
  char text[12];
  std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(value));
  return text;
}

std::string address(std::uint32_t value) { return printable_text::hexWord(value); }

bool isError(const std::string& reply) {
  return reply.size() >= 3 && reply[0] == 'E' && std::isxdigit(static_cast<unsigned char>(reply[1])) &&
         std::isxdigit(static_cast<unsigned char>(reply[2]));
}

// Console output a server sends while the target runs: 'O' and hex.
bool isConsoleOutput(const std::string& reply) {
  return reply.size() > 1 && reply[0] == 'O' && fromHex(std::string_view(reply).substr(1)).has_value();
}

// A payload in a message, cut short and with its control characters escaped
// (a server's reply must not drive the user's terminal).
std::string shown(const std::string& payload) {
  return printable_text::printable(std::string_view(payload).substr(0, 40)) + (payload.size() > 40 ? "..." : "");
}
std::string quoted(const std::string& payload) { return "'" + shown(payload) + "'"; }

}  // namespace

GdbRemoteClient::GdbRemoteClient(std::unique_ptr<ByteTransport> transport, std::chrono::milliseconds timeout)
    : transport_(std::move(transport)), timeout_(timeout) {
  features_ = request("qSupported:swbreak+;hwbreak+");
  if (features_.find("QStartNoAckMode+") != std::string::npos) {
    expectOk("QStartNoAckMode", "turning acknowledgements off");
    noAck_ = true;
  }
}

GdbRemoteClient::GdbRemoteClient(std::unique_ptr<ByteTransport> transport, std::chrono::milliseconds timeout,
                                 JoinSession session)
    : transport_(std::move(transport)), timeout_(timeout), noAck_(session.noAck) {}

void GdbRemoteClient::fail(const std::string& why) {
  failure_ = why;
  throw GdbError(why);
}

std::string GdbRemoteClient::unendedPacket() const {
  return "the GDB server began a packet and did not end it within " + std::to_string(timeout_.count()) + " ms";
}

void GdbRemoteClient::requireLink() const {
  if (!failure_.empty()) throw GdbError("the connection to the GDB server failed earlier: " + failure_);
}

void GdbRemoteClient::transmit(std::string_view bytes) {
  requireLink();
  try {
    transport_->send(bytes);
  } catch (const GdbError& error) {
    fail(error.what());
  }
}

std::optional<RspReader::Item> GdbRemoteClient::nextItem(std::chrono::steady_clock::time_point deadline) {
  requireLink();
  try {
    for (;;) {
      if (auto item = incoming_.next()) return item;
      const auto now = std::chrono::steady_clock::now();
      if (const auto since = incoming_.partialSince(); since && now - *since > timeout_) {
        fail(unendedPacket());
      }
      if (now >= deadline) return std::nullopt;
      char buffer[4096];
      const std::size_t got = transport_->receive(
          buffer, sizeof buffer,
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now) + std::chrono::milliseconds(1));
      incoming_.feed(std::string_view(buffer, got));
    }
  } catch (const GdbError& error) {
    if (failure_.empty()) failure_ = error.what();
    throw;
  }
}

void GdbRemoteClient::sendPacket(const std::string& payload) {
  const std::string frame = rspFrame(payload);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    transmit(frame);
    if (noAck_) return;
    for (;;) {
      const auto item = nextItem(std::chrono::steady_clock::now() + timeout_);
      if (!item) {
        fail("no acknowledgement from the GDB server within " + std::to_string(timeout_.count()) + " ms for " +
             quoted(payload));
      }
      if (item->kind == RspReader::Item::Kind::Ack) return;
      if (item->kind == RspReader::Item::Kind::Nak) break;  // send it again
    }
  }
  fail("the GDB server refused " + quoted(payload) + " " + std::to_string(kAttempts) +
       " times (it did not receive it intact)");
}

std::optional<std::string> GdbRemoteClient::receivePacket(std::chrono::milliseconds timeout, const std::string& what) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  int garbled = 0;
  for (;;) {
    const auto item = nextItem(deadline);
    if (!item) return std::nullopt;
    if (item->kind != RspReader::Item::Kind::Packet) continue;  // a stray acknowledgement
    if (!item->checksumOk) {
      if (noAck_ || ++garbled == kAttempts) {
        fail("the reply to " + quoted(what) + " arrived garbled (bad checksum)" +
             (noAck_ ? std::string() : " " + std::to_string(kAttempts) + " times"));
      }
      transmit("-");
      continue;
    }
    if (!noAck_) transmit("+");
    return item->payload;
  }
}

std::string GdbRemoteClient::request(const std::string& payload) {
  sendPacket(payload);
  for (;;) {
    auto reply = receivePacket(timeout_, payload);
    if (!reply) {
      // A reply begun and not ended is said as such, however the time-outs fell.
      if (incoming_.partialSince()) fail(unendedPacket());
      fail("no reply from the GDB server within " + std::to_string(timeout_.count()) + " ms to " + quoted(payload));
    }
    if (running_ && isConsoleOutput(*reply)) continue;
    return *reply;
  }
}

void GdbRemoteClient::expectOk(const std::string& payload, const std::string& what) {
  const std::string reply = request(payload);
  if (reply == "OK") return;
  if (reply.empty()) throw GdbError("the GDB server does not support " + what + " (" + quoted(payload) + ")");
  throw GdbError("the GDB server refused " + what + ": " + shown(reply));
}

std::string GdbRemoteClient::readMemory(std::uint32_t at, std::uint32_t length) {
  const std::string payload = requestText('m', {hex32(at), ",", hex32(length)});
  const std::string reply = request(payload);
  const std::string what = "reading " + std::to_string(length) + " bytes at " + address(at);
  if (isError(reply)) throw GdbError("the GDB server refused " + what + ": " + shown(reply));
  auto bytes = fromHex(reply);
  if (!bytes || bytes->size() != length) {
    throw GdbError("the GDB server's answer to " + what + " is not " + std::to_string(length) +
                   " bytes: " + quoted(reply));
  }
  return *bytes;
}

void GdbRemoteClient::writeMemory(std::uint32_t at, const std::string& bytes) {
  expectOk(requestText('M', {hex32(at), ",", hex32(static_cast<std::uint32_t>(bytes.size())), ":", toHex(bytes)}),
           "writing " + std::to_string(bytes.size()) + " bytes at " + address(at));
}

std::uint32_t GdbRemoteClient::readWord(std::uint32_t at) {
  const std::string bytes = readMemory(at, 4);
  std::uint32_t value = 0;
  for (int i = 3; i >= 0; --i) value = (value << 8) | static_cast<unsigned char>(bytes[static_cast<std::size_t>(i)]);
  return value;
}

void GdbRemoteClient::writeWord(std::uint32_t at, std::uint32_t value) {
  std::string bytes(4, '\0');
  for (int i = 0; i < 4; ++i) bytes[static_cast<std::size_t>(i)] = static_cast<char>((value >> (8 * i)) & 0xFF);
  writeMemory(at, bytes);
}

StopReply GdbRemoteClient::haltReason() {
  const std::string reply = request("?");
  const auto stop = parseStopReply(reply);
  if (!stop) throw GdbError("the GDB server's answer to '?' is no stop reply: " + quoted(reply));
  return *stop;
}

void GdbRemoteClient::resume() {
  sendPacket("c");
  running_ = true;
}

std::optional<StopReply> GdbRemoteClient::waitForStop(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    const auto now = std::chrono::steady_clock::now();
    const auto left = now < deadline ? std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now)
                                     : std::chrono::milliseconds(0);
    const auto reply = receivePacket(left, "c");
    if (!reply) return std::nullopt;
    if (isConsoleOutput(*reply)) continue;
    const auto stop = parseStopReply(*reply);
    if (!stop) fail("the GDB server sent " + quoted(*reply) + " while the target ran; no stop reply");
    running_ = false;
    return stop;
  }
}

StopReply GdbRemoteClient::halt() {
  if (!running_) return haltReason();
  transmit("\x03");
  const auto stop = waitForStop(timeout_);
  if (!stop) fail("the target did not halt within " + std::to_string(timeout_.count()) + " ms of the request");
  return *stop;
}

void GdbRemoteClient::insertBreakpoint(std::uint32_t at, bool hardware, int kind) {
  expectOk(std::string(hardware ? "Z1," : "Z0,") + hex32(at) + "," + std::to_string(kind),
           std::string(hardware ? "a hardware" : "a software") + " breakpoint at " + address(at));
}

void GdbRemoteClient::removeBreakpoint(std::uint32_t at, bool hardware, int kind) {
  expectOk(std::string(hardware ? "z1," : "z0,") + hex32(at) + "," + std::to_string(kind),
           "removing the breakpoint at " + address(at));
}

}  // namespace vestrel::gdb_remote
