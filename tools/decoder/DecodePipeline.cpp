#include "DecodePipeline.h"

#include <vector>

#include "InputBlocks.h"
#include "OutputBuffer.h"
#include "PacketTimer.h"
#include "SectionReader.h"
#include "TpiuDeframer.h"

namespace vestrel::decode {

DecodeResult decodeStream(std::FILE* in, std::FILE* out, const DecodeOptions& options) {
  DecodeResult result;
  OutputBuffer output(out);
  TextWriter text(output, options.timing);
  JsonWriter json(output, options.timing, options.raw);
  auto write = [&](const Packet& packet, PacketTime time) {
    if (options.json) {
      json.write(packet, time);
    } else {
      text.write(packet, time);
    }
  };
  BasicPacketTimer<decltype(write)> timer(write);
  ItmDecoder decoder(options.quiet ? ItmDecoder::Sink() : ItmDecoder::Sink([&](const Packet& p) { timer.add(p); }));

  std::vector<std::uint8_t> deframed;
  TpiuDeframer deframer([&](std::uint8_t id, std::uint8_t byte) {
    if (id == options.tpiuId) deframed.push_back(byte);
  });
  auto decode = [&](const std::uint8_t* data, std::size_t size) {
    if (options.tpiuId > 0) {
      deframed.clear();
      deframer.feed(data, size);
      decoder.feed(deframed.data(), deframed.size());
    } else {
      decoder.feed(data, size);
    }
  };
  SectionReader section("BinTraceData");

  std::vector<std::uint8_t> block(options.blockSize);
  for (;;) {
    const long got = readAvailable(in, block.data(), block.size());
    if (got < 0) {
      result.status = DecodeResult::Status::ReadFailed;
      break;
    }
    if (got == 0) break;
    const auto size = static_cast<std::size_t>(got);
    if (options.tdf) {
      section.feed(block.data(), size, decode);
    } else {
      decode(block.data(), size);
    }
    // Less than a block: the input paused (a pipe, a live line); show what
    // is decoded so far.
    if (size < block.size()) output.flush();
  }
  if (result.status == DecodeResult::Status::Done && options.tdf && !section.found()) {
    result.status = DecodeResult::Status::NoSection;
  } else if (result.status == DecodeResult::Status::Done && options.tdf && !section.complete()) {
    result.status = DecodeResult::Status::SectionCutShort;
  }
  if (result.status != DecodeResult::Status::Done) {
    output.flush();
    result.statistics = decoder.statistics();
    return result;
  }

  decoder.finish();
  timer.release();
  if (options.json) {
    json.flush();
  } else {
    text.flush();
  }
  if (options.statistics && options.json) {
    output.append(statisticsJson(decoder.statistics()));
    output.append('\n');
  }
  if (options.statistics && !options.json) writeStatistics(output, decoder.statistics());
  if (!output.flush()) result.status = DecodeResult::Status::WriteFailed;
  result.statistics = decoder.statistics();
  return result;
}

}  // namespace vestrel::decode
