// The GDB Remote Serial Protocol's framing: "$payload#xx" with a modulo-256
// checksum in two hex digits, '}' escapes ('#', '$', '}' and '*' sent as '}'
// and the byte xor 0x20), run-length encoding in replies ("0* " is four
// zeros), acknowledgements ('+', '-') and the interrupt byte (0x03).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vestrel::gdb {

std::uint8_t rspChecksum(std::string_view payload);

// "$" payload (escaped) "#" checksum.
std::string rspFrame(std::string_view payload);

// Bytes as lower-case hex, and back (nullopt when not hex of whole bytes).
std::string toHex(std::string_view bytes);
std::optional<std::string> fromHex(std::string_view hex);

// What arrives from the other end, taken apart as it comes in pieces.
class RspReader {
 public:
  struct Item {
    enum class Kind { Ack, Nak, Interrupt, Packet } kind = Kind::Packet;
    std::string payload;     // unescaped, run-lengths expanded
    bool checksumOk = true;  // a packet whose checksum did not match
    std::string raw;         // the bytes as they came (what a proxy passes on)
  };

  void feed(std::string_view bytes) { pending_.append(bytes); }
  // The next whole item, if one has arrived. Bytes before a '$' that are
  // no acknowledgement or interrupt are skipped.
  std::optional<Item> next();

 private:
  std::string pending_;
};

// Undoes run-length encoding and '}' escapes in a received payload.
std::string rspDecode(std::string_view raw);

}  // namespace vestrel::gdb
