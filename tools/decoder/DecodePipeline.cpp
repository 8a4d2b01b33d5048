#include "DecodePipeline.h"

#include <cerrno>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>
#include <vector>

#include "HtmlReport.h"
#include "InputBlocks.h"
#include "JsonWriter.h"
#include "OutputBuffer.h"
#include "PacketTimer.h"
#include "PerfettoWriter.h"
#include "Profile.h"
#include "ReportCollector.h"
#include "SectionReader.h"
#include "TextWriter.h"
#include "TpiuDeframer.h"
#include "TraceStatistics.h"

namespace vestrel::decoder {

namespace {

// At the end of a followed file: "" to wait for more, else why to stop.
// The bytes of the file at path from at, as many as fit in expected: true
// when they are still those that were read there.
bool stillThere(const std::string& path, std::uint64_t at, const std::string& expected) {
  std::ifstream file(path, std::ios::binary);
  if (!file.seekg(static_cast<std::streamoff>(at))) return false;
  std::string now(expected.size(), '\0');
  file.read(now.data(), static_cast<std::streamsize>(now.size()));
  return file.gcount() == static_cast<std::streamsize>(now.size()) && now == expected;
}

std::string whyFollowingEnds(const DecodeOptions& options, std::uint64_t position,
                             std::chrono::steady_clock::time_point lastGrowth, const std::string& lastRead) {
  if (options.stop != nullptr && options.stop()) return "stopped";
  std::error_code error;
  if (!std::filesystem::exists(options.followPath, error)) return "deleted";
  if (options.followIdentity && identityOf(options.followPath) != options.followIdentity) return "replaced";
  const std::uintmax_t size = std::filesystem::file_size(options.followPath, error);
  if (!error && size < position) return "truncated";
  if (!stillThere(options.followPath, position - lastRead.size(), lastRead)) return "truncated";
  if (options.idleExitSeconds && std::chrono::duration<double>(std::chrono::steady_clock::now() - lastGrowth).count() >=
                                     *options.idleExitSeconds) {
    return "idle";
  }
  return "";
}

}  // namespace

DecodeResult decodeStream(std::FILE* in, std::FILE* out, const DecodeOptions& options) {
  return decodeStream([in](void* buffer, std::size_t size) { return readAvailable(in, buffer, size); }, out, options);
}

DecodeResult decodeStream(const ReadSome& read, std::FILE* out, const DecodeOptions& options) {
  DecodeResult result;
  OutputBuffer output(out);
  TextWriter text(output, options.timing);
  JsonWriter json(output, options.timing, options.raw);
  text.setSymbols(options.symbols);
  json.setSymbols(options.symbols);
  std::optional<OutputBuffer> timelineOutput;
  std::optional<PerfettoWriter> timeline;
  if (options.perfetto != nullptr) {
    timelineOutput.emplace(options.perfetto);
    timeline.emplace(*timelineOutput, options.timing, options.counterPorts, options.symbols);
  }
  std::optional<ReportCollector> report;
  if (options.html != nullptr) report.emplace(options.reportSource, options.timing);
  Profile profile;
  const bool profiling = options.profile || report;
  auto write = [&](const Packet& packet, PacketTime time) {
    if (timeline) timeline->write(packet, time);
    if (report) report->write(packet, time);
    if (options.quiet) return;
    if (options.json) {
      json.write(packet, time);
    } else {
      text.write(packet, time);
    }
  };
  BasicPacketTimer<decltype(write)> timer(write);
  const bool dated = !options.quiet || timeline || report;
  ItmDecoder decoder(dated || profiling ? ItmDecoder::Sink([&](const Packet& p) {
    if (profiling) profile.add(p);
    if (dated) timer.add(p);
  })
                                        : ItmDecoder::Sink());

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
  std::uint64_t position = 0;
  auto lastGrowth = std::chrono::steady_clock::now();
  std::string lastRead;  // the last bytes read, which a file followed must keep
  bool atEnd = false;
  for (;;) {
    // A followed file that paused is checked before it is read on: one
    // truncated and grown again would otherwise go on from the old end.
    if (atEnd) {
      result.followEnd = whyFollowingEnds(options, position, lastGrowth, lastRead);
      if (!result.followEnd.empty()) break;
    }
    const long got = read(block.data(), block.size());
    if (got < 0) {
      result.status = DecodeResult::Status::ReadFailed;
      break;
    }
    if (got == 0) {
      if (!options.follow) break;
      output.flush();
      atEnd = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      continue;
    }
    atEnd = false;
    const auto size = static_cast<std::size_t>(got);
    position += size;
    if (options.follow) {
      constexpr std::size_t kKept = 64;
      if (size >= kKept) {
        lastRead.assign(reinterpret_cast<const char*>(block.data()) + size - kKept, kKept);
      } else {
        lastRead.append(reinterpret_cast<const char*>(block.data()), size);
        if (lastRead.size() > kKept) lastRead.erase(0, lastRead.size() - kKept);
      }
    }
    lastGrowth = std::chrono::steady_clock::now();
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
  // However the input ended (a failed read, a section cut short, Ctrl-C),
  // what was decoded is written out whole: every output is finished.
  decoder.finish();
  timer.release();
  if (options.json) {
    json.flush();
  } else {
    text.flush();
  }
  if (options.statistics && options.json) writeStatisticsJson(output, decoder.statistics());
  if (options.statistics && !options.json) writeStatistics(output, decoder.statistics());
  const bool named = options.symbols != nullptr && !options.symbols->empty();
  if (options.profile) {
    const ProfileReport table = profile.report(options.symbols);
    if (options.json) {
      writeProfileJson(output, table);
    } else {
      writeProfile(output, table);
    }
  }
  if (report) {
    report->finish(decoder.statistics(), profile.report(options.symbols), named);
    OutputBuffer page(options.html);
    writeHtmlReport(page, report->data());
    if (!page.flush()) result.writeFailed("html", errno);
  }
  if (timeline) {
    timeline->finish();
    result.timelineLeftOut = timeline->leftOut();
    if (!timelineOutput->flush()) result.writeFailed("perfetto", errno);
  }
  if (!output.flush()) result.writeFailed("output", errno);
  result.statistics = decoder.statistics();
  return result;
}

}  // namespace vestrel::decoder
