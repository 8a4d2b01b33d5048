// Where the time goes: PC samples counted by address as they are decoded,
// then summed by function (and by source line) with the firmware's symbols.
// Samples that found the core asleep, or sampling prohibited, are counted
// apart. Memory is bounded: past kMaxAddresses distinct addresses, samples at
// new addresses are counted as beyond the limit (and said so).
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "ItmDecoder.h"
#include "OutputBuffer.h"
#include "PacketSink.h"
#include "SymbolTable.h"

namespace vestrel::decoder {

struct ProfileLine {
  std::string file;  // base name
  std::uint32_t line = 0;
  std::uint64_t samples = 0;
};

struct ProfileRow {
  std::string function;  // a name, "0x000000A4" without symbols, or kOutside
  std::uint64_t samples = 0;
  std::string file;  // where the function starts, when known
  std::uint32_t line = 0;
  std::vector<ProfileLine> hottestLines;  // at most ProfileReport::kLinesPerFunction
};

struct ProfileReport {
  static constexpr std::size_t kLinesPerFunction = 3;
  static constexpr const char* kOutside = "(outside every function)";

  std::uint64_t samples = 0;  // all PC samples, asleep and prohibited included
  std::uint64_t asleep = 0;
  std::uint64_t prohibited = 0;
  std::uint64_t beyondLimit = 0;  // at addresses past the limit, in no row
  std::vector<ProfileRow> rows;   // hottest first; equal counts by name

  double percent(std::uint64_t count) const {
    return samples == 0 ? 0.0 : 100.0 * static_cast<double>(count) / static_cast<double>(samples);
  }
};

class Profile {
 public:
  static constexpr std::size_t kMaxAddresses = std::size_t{1} << 18;

  // Counts PC samples and sleep samples; other packets are ignored.
  void add(const Packet& packet);
  // symbols null or empty: every address is a row of its own.
  ProfileReport report(const symbols::SymbolTable* symbols) const;
  std::uint64_t samples() const { return samples_; }

 private:
  std::unordered_map<std::uint32_t, std::uint64_t> byAddress_;
  std::uint64_t samples_ = 0;
  std::uint64_t asleep_ = 0;
  std::uint64_t prohibited_ = 0;
  std::uint64_t beyondLimit_ = 0;
};

// The table: a heading, up to maxRows functions, the samples counted apart,
// and the hottest lines of the top three functions.
void writeProfile(OutputBuffer& out, const ProfileReport& report, std::size_t maxRows = 20);
// The same as one JSON object of kind "profile" (every row), ending in a newline.
void writeProfileJson(OutputBuffer& out, const ProfileReport& report);

// The profile of the whole stream, at its end: the table, or one JSON object.
class ProfileWriter final : public PacketSink {
 public:
  ProfileWriter(OutputBuffer& out, const symbols::SymbolTable* symbols, bool json)
      : out_(out), symbols_(symbols), json_(json) {}
  void write(const Packet& packet, PacketTime) override { profile_.add(packet); }
  bool wantsTimes() const override { return false; }
  void finish(const DecoderStatistics& statistics) override;

 private:
  OutputBuffer& out_;
  const symbols::SymbolTable* symbols_;
  bool json_;
  Profile profile_;
};

}  // namespace vestrel::decoder
