// Test helpers: bytes decoded, dated and written as text or JSON Lines.
#pragma once

#include <cstdint>
#include <string>

#include "DecodeChain.h"
#include "JsonWriter.h"
#include "TextWriter.h"

namespace vestrel::decoder::testing {

inline std::string outputOf(const std::string& bytes, bool json, Timing timing = {}, bool raw = true) {
  OutputBuffer out;
  TextWriter text(out, timing);
  JsonWriter lines(out, timing, raw);
  DecodeChain chain({json ? static_cast<PacketSink*>(&lines) : &text});
  chain.feed(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  chain.finish();
  return out.text();
}

inline std::string textOf(const std::string& bytes, Timing timing = {}) { return outputOf(bytes, false, timing); }
inline std::string jsonOf(const std::string& bytes, Timing timing = {}) { return outputOf(bytes, true, timing); }
// JSON Lines without --raw: what the text carries.
inline std::string eventsOf(const std::string& bytes) { return outputOf(bytes, true, {}, false); }

// One-byte stimulus writes of text on port 0.
inline std::string portText(const std::string& text) {
  std::string bytes;
  for (const char c : text) {
    bytes += '\x01';
    bytes += c;
  }
  return bytes;
}

}  // namespace vestrel::decoder::testing
