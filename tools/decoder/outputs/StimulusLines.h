#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ItmDecoder.h"
#include "PacketTimer.h"

namespace vestrel::decoder {

// Stimulus text per port, cut into lines at each newline. A line carries the
// time of the packet that ended it. A line longer than kMaxLineBytes is
// given in parts (on UTF-8 character boundaries), each but the last marked
// as continuing, so that memory stays bounded whatever the target sends.
class StimulusLines {
 public:
  static constexpr std::size_t kMaxLineBytes = 16 * 1024;

  struct Line {
    std::uint32_t port;
    const std::string& text;  // the bytes as sent, carriage returns and zeros left out
    std::uint64_t offset;
    PacketTime time;
    bool continues = false;  // a part of a longer line: the next part follows
  };
  // Adds an instrumentation packet's bytes; calls done for each line ended.
  template <typename Done>
  void add(const Packet& packet, PacketTime time, Done done) {
    if (packet.port >= ports_.size()) ports_.resize(packet.port + 1);
    Pending& pending = ports_[packet.port];
    for (std::uint8_t i = 0; i < packet.size; ++i) {
      const char c = static_cast<char>((packet.value >> (8 * i)) & 0xFF);
      if (pending.text.empty()) pending.offset = packet.offset;
      pending.time = time;
      if (c == '\n') {
        done(Line{packet.port, pending.text, pending.offset, time});
        pending.text.clear();
      } else if (c != '\0' && c != '\r') {
        pending.text.push_back(c);
        if (pending.text.size() >= kMaxLineBytes) {
          const std::size_t cut = partEnd(pending.text);
          const std::string part = pending.text.substr(0, cut);
          done(Line{packet.port, part, pending.offset, time, true});
          pending.text.erase(0, cut);
          pending.offset = packet.offset;
        }
      }
    }
  }
  // Calls done for every line still waiting for its newline.
  template <typename Done>
  void finish(Done done) {
    for (std::uint32_t port = 0; port < ports_.size(); ++port) {
      Pending& pending = ports_[port];
      if (!pending.text.empty()) done(Line{port, pending.text, pending.offset, pending.time});
      pending.text.clear();
    }
  }

 private:
  struct Pending {
    std::string text;
    std::uint64_t offset = 0;
    PacketTime time;
  };
  // Where a part of text ends: before a UTF-8 sequence not yet complete.
  static std::size_t partEnd(const std::string& text);
  std::vector<Pending> ports_;  // by port number (at most 256: 8 pages of 32)
};

}  // namespace vestrel::decoder
