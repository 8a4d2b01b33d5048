// What the simulated target's program sends decodes back into exactly the
// events it sent, however the stream is cut into pieces.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "ItmDecoder.h"
#include "ItmProgram.h"

using namespace vestrel::decoder;
using vestrel::target_simulator::ItmProgram;

namespace {

struct Decoded {
  std::map<std::uint32_t, std::string> text;
  std::uint64_t exceptions = 0;
  std::map<std::uint32_t, std::uint64_t> pcSamples;
  std::uint64_t sleepSamples = 0;
  std::uint64_t dataWrites = 0;
  std::uint64_t lastCounter = 0;
  std::uint64_t overflows = 0;
};

Decoded decodeInPieces(const std::string& stream, std::size_t piece, DecoderStatistics& statistics) {
  Decoded out;
  ItmDecoder decoder([&](const Packet& p) {
    switch (p.kind) {
      case PacketKind::Instrumentation:
        out.text[p.port] += static_cast<char>(p.value);
        break;
      case PacketKind::ExceptionTrace:
        ++out.exceptions;
        break;
      case PacketKind::PcSample:
        ++out.pcSamples[static_cast<std::uint32_t>(p.value)];
        break;
      case PacketKind::PcSleep:
        ++out.sleepSamples;
        break;
      case PacketKind::DataTraceValue:
        ++out.dataWrites;
        out.lastCounter = p.value;
        break;
      case PacketKind::Overflow:
        ++out.overflows;
        break;
      default:
        break;
    }
  });
  for (std::size_t at = 0; at < stream.size(); at += piece) decoder.feed(stream.substr(at, piece));
  decoder.finish();
  statistics = decoder.statistics();
  return out;
}

}  // namespace

TEST(SimulatorRoundTrip, EveryEventTheProgramSentIsDecoded) {
  ItmProgram program;
  std::string stream;
  for (int i = 0; i < 5000; ++i) {
    if (i == 1234) program.requestOverflow();
    stream += program.nextIteration();
  }
  for (std::size_t piece : {stream.size(), std::size_t{1}, std::size_t{7}, std::size_t{100}}) {
    DecoderStatistics statistics;
    const Decoded decoded = decodeInPieces(stream, piece, statistics);
    EXPECT_EQ(decoded.text, program.textSent()) << piece;
    EXPECT_EQ(decoded.exceptions, program.exceptionsSent());
    EXPECT_EQ(decoded.pcSamples, program.pcSamplesSent());
    EXPECT_EQ(decoded.sleepSamples, program.sleepSamplesSent());
    EXPECT_EQ(decoded.dataWrites, 5000u);
    EXPECT_EQ(decoded.lastCounter, 4999u);
    EXPECT_EQ(decoded.overflows, 1u);
    EXPECT_EQ(statistics.malformedBytes, 0u);
    EXPECT_EQ(statistics.count(PacketKind::Sync), (5000u + 63) / 64);
  }
  EXPECT_EQ(program.textSent().at(0).substr(0, 14), "tick 0\ntick 1\n");
  // One sample per iteration; 2 of every 16 find the core asleep.
  std::uint64_t running = 0;
  for (const auto& [pc, count] : program.pcSamplesSent()) running += count;
  EXPECT_EQ(running, 4375u);
  EXPECT_EQ(program.sleepSamplesSent(), 625u);
  // SysTick every 8 iterations (entry, exit, return), pre-empted by the
  // UART's interrupt every other time (its entry and exit, SysTick's return).
  EXPECT_EQ(program.exceptionsSent(), 625u * 3 + 313u * 3);
}
