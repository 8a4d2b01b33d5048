// The GDB Remote Serial Protocol's framing: "$payload#xx" with a modulo-256
// checksum in two hex digits, '}' escapes ('#', '$', '}' and '*' sent as '}'
// and the byte xor 0x20), run-length encoding in replies ("0* " is four
// zeros), acknowledgements ('+', '-') and the interrupt byte (0x03).
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vestrel::gdb_remote {

std::uint8_t rspChecksum(std::string_view payload);

// "$" payload (escaped) "#" checksum.
std::string rspFrame(std::string_view payload);

// Bytes as lower-case hex, and back (nullopt when not hex of whole bytes).
std::string toHex(std::string_view bytes);
std::optional<std::string> fromHex(std::string_view hex);

// The largest payload taken from either end once escapes and run lengths
// are undone; a proxy advertises it to the debugger as PacketSize. A frame
// may be twice as long on the wire (every byte escaped).
constexpr std::size_t kMaxPacketPayload = 0x10000;
constexpr std::size_t kMaxPacketFrame = 2 * kMaxPacketPayload + 4;

// What arrives from the other end, taken apart as it comes in pieces. A
// packet too long, on the wire or expanded, is a GdbError naming the sender.
class RspReader {
 public:
  struct Item {
    enum class Kind { Ack, Nak, Interrupt, Packet } kind = Kind::Packet;
    std::string payload;     // unescaped, run-lengths expanded
    bool checksumOk = true;  // a packet whose checksum did not match
    std::string raw;         // the bytes as they came (what a proxy passes on)
  };

  explicit RspReader(std::string sender = "the other end") : sender_(std::move(sender)) {}
  void feed(std::string_view bytes);
  // The next whole item, if one has arrived. Bytes before a '$' that are
  // no acknowledgement or interrupt are skipped.
  std::optional<Item> next();
  // Since when a packet has been arriving without its end (nullopt: none
  // is), for a time-out of the caller's.
  std::optional<std::chrono::steady_clock::time_point> partialSince() const;

 private:
  std::string pending_;
  std::size_t scanned_ = 0;  // pending_ holds no '#' before this
  std::optional<std::chrono::steady_clock::time_point> partialSince_;
  std::string sender_;
};

// Undoes run-length encoding and '}' escapes in a received payload;
// nullopt when it would grow past limit bytes.
std::optional<std::string> rspDecode(std::string_view raw, std::size_t limit = kMaxPacketPayload);

}  // namespace vestrel::gdb_remote
