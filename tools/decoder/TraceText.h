// Turns dated packets into what a person or a program reads: stimulus-port
// text joined per port and ended at each newline, exceptions with their
// names, times in cycles (and seconds, given the clock and timestamp
// prescale); or JSON Lines, one object per packet and one per text line.
// Both write into an OutputBuffer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ItmDecoder.h"
#include "OutputBuffer.h"
#include "PacketTimer.h"
#include "SymbolTable.h"

namespace vestrel::decode {

// False for the packets that text and JSON Lines show only through the
// others: local timestamps (in the times of the lines), stimulus pages (in
// the port numbers) and other extensions.
bool hasALineOfItsOwn(PacketKind kind);

// The architectural name of an exception number ("SysTick", "IRQ 3").
std::string exceptionName(std::uint32_t number);
// The same, appended.
void appendExceptionName(OutputBuffer& out, std::uint32_t number);

struct Timing {
  std::optional<double> clockHz;  // with it, times are also given in seconds
  std::uint32_t timestampPrescale = 1;
};

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

class TextWriter {
 public:
  TextWriter(OutputBuffer& out, Timing timing) : out_(out), timing_(timing) {}

  void write(const Packet& packet, PacketTime time);
  // Writes stimulus text still waiting for its newline.
  void flush();
  // PC values are then also given as function+offset (file:line).
  void setSymbols(const symbols::SymbolTable* symbols) { symbols_ = symbols; }

 private:
  void when(PacketTime time);
  void where(std::uint64_t pc);
  void lineStart(PacketTime time);
  void textLine(const StimulusLines::Line& line);

  OutputBuffer& out_;
  Timing timing_;
  StimulusLines lines_;
  const symbols::SymbolTable* symbols_ = nullptr;
};

// JSON Lines carry what the text carries, as objects with the same times:
// one per stimulus line (kind "text") and one per other event. raw adds an
// object for every packet (each instrumentation packet, timestamps, pages).
class JsonWriter {
 public:
  JsonWriter(OutputBuffer& out, Timing timing, bool raw = false) : out_(out), timing_(timing), raw_(raw) {}

  void write(const Packet& packet, PacketTime time);
  // Writes stimulus text still waiting for its newline as text objects.
  void flush();
  // PC values then also carry "function", "file" and "line".
  void setSymbols(const symbols::SymbolTable* symbols) { symbols_ = symbols; }

 private:
  void time(PacketTime time);
  void where(std::uint64_t pc);
  void textLine(const StimulusLines::Line& line);

  OutputBuffer& out_;
  Timing timing_;
  bool raw_;
  StimulusLines lines_;
  const symbols::SymbolTable* symbols_ = nullptr;
};

// Appends text as a JSON string body: quotes, backslashes and every control
// character escaped; valid UTF-8 kept; a byte that is not part of valid UTF-8
// written as \u00XX (the code point of the byte).
void appendJsonString(OutputBuffer& out, const std::string& text);

}  // namespace vestrel::decode
