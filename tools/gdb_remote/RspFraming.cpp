#include "RspFraming.h"

#include <algorithm>

#include "GdbError.h"

namespace vestrel::gdb_remote {

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

constexpr char kDigits[] = "0123456789abcdef";

}  // namespace

std::uint8_t rspChecksum(std::string_view payload) {
  unsigned sum = 0;
  for (const char c : payload) sum += static_cast<unsigned char>(c);
  return static_cast<std::uint8_t>(sum & 0xFF);
}

std::string rspFrame(std::string_view payload) {
  std::string escaped;
  escaped.reserve(payload.size() + 4);
  for (const char c : payload) {
    if (c == '#' || c == '$' || c == '}' || c == '*') {
      escaped += '}';
      escaped += static_cast<char>(c ^ 0x20);
    } else {
      escaped += c;
    }
  }
  const std::uint8_t sum = rspChecksum(escaped);
  return "$" + escaped + "#" + kDigits[sum >> 4] + kDigits[sum & 0xF];
}

std::string toHex(std::string_view bytes) {
  std::string hex;
  hex.reserve(bytes.size() * 2);
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 0xF];
  }
  return hex;
}

std::optional<std::string> fromHex(std::string_view hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  bytes.reserve(hex.size() / 2);
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    const int high = hexDigit(hex[i]);
    const int low = hexDigit(hex[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes += static_cast<char>(high * 16 + low);
  }
  return bytes;
}

std::optional<std::string> rspDecode(std::string_view raw, std::size_t limit) {
  std::string out;
  out.reserve(std::min(raw.size(), limit));
  for (std::size_t i = 0; i < raw.size(); ++i) {
    const char c = raw[i];
    if (c == '}' && i + 1 < raw.size()) {
      out += static_cast<char>(raw[++i] ^ 0x20);
    } else if (c == '*' && !out.empty() && i + 1 < raw.size()) {
      // The previous character again, (count - 29) more times.
      const int repeats = static_cast<unsigned char>(raw[++i]) - 29;
      if (repeats > 0) {
        if (out.size() + static_cast<std::size_t>(repeats) > limit) return std::nullopt;
        out.append(static_cast<std::size_t>(repeats), out.back());
      }
    } else {
      out += c;
    }
    if (out.size() > limit) return std::nullopt;
  }
  return out;
}

void RspReader::feed(std::string_view bytes) {
  pending_.append(bytes);
  if (!partialSince_ && !pending_.empty() && pending_[0] == '$') partialSince_ = std::chrono::steady_clock::now();
}

std::optional<std::chrono::steady_clock::time_point> RspReader::partialSince() const { return partialSince_; }

std::optional<RspReader::Item> RspReader::next() {
  for (;;) {
    if (pending_.empty()) {
      partialSince_.reset();
      return std::nullopt;
    }
    const char first = pending_[0];
    if (first == '+' || first == '-' || first == '\x03') {
      pending_.erase(0, 1);
      Item item;
      item.kind = first == '+' ? Item::Kind::Ack : first == '-' ? Item::Kind::Nak : Item::Kind::Interrupt;
      item.raw.assign(1, first);
      return item;
    }
    if (first != '$') {
      // Noise between packets, skipped in one step up to what may start an
      // item.
      const std::size_t start = pending_.find_first_of("$+-\x03");
      pending_.erase(0, start == std::string::npos ? pending_.size() : start);
      scanned_ = 0;
      continue;
    }
    if (!partialSince_) partialSince_ = std::chrono::steady_clock::now();
    const std::size_t hash = pending_.find('#', std::max<std::size_t>(scanned_, 1));
    if (hash == std::string::npos) {
      scanned_ = pending_.size();
      if (pending_.size() > kMaxPacketFrame) {
        throw GdbError(sender_ + " sent a packet of more than " + std::to_string(kMaxPacketFrame) +
                       " bytes with no end ('#'); refused");
      }
      return std::nullopt;  // not all here yet
    }
    if (hash > kMaxPacketFrame) {
      throw GdbError(sender_ + " sent a packet of " + std::to_string(hash + 3) + " bytes, more than " +
                     std::to_string(kMaxPacketFrame) + "; refused");
    }
    if (pending_.size() < hash + 3) return std::nullopt;
    const std::string_view raw(pending_.data() + 1, hash - 1);
    const int high = hexDigit(pending_[hash + 1]);
    const int low = hexDigit(pending_[hash + 2]);
    Item item;
    item.checksumOk = high >= 0 && low >= 0 && rspChecksum(raw) == high * 16 + low;
    auto payload = rspDecode(raw);
    if (!payload) {
      throw GdbError(sender_ + " sent a packet that expands to more than " + std::to_string(kMaxPacketPayload) +
                     " bytes (run-length encoded); refused");
    }
    item.payload = std::move(*payload);
    item.raw = pending_.substr(0, hash + 3);
    pending_.erase(0, hash + 3);
    scanned_ = 0;
    partialSince_.reset();
    return item;
  }
}

}  // namespace vestrel::gdb_remote
