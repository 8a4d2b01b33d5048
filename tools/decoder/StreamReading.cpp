#include "StreamReading.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "FileIdentity.h"
#include "SectionReader.h"

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

// The last 64 bytes read, which a followed file must still hold.
void keepLastBytes(std::string& kept, const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kKept = 64;
  if (size >= kKept) {
    kept.assign(reinterpret_cast<const char*>(data) + size - kKept, kKept);
    return;
  }
  kept.append(reinterpret_cast<const char*>(data), size);
  if (kept.size() > kKept) kept.erase(0, kept.size() - kKept);
}

}  // namespace

DecodeResult readInto(const ReadSome& read, DecodeChain& chain, const DecodeOptions& options,
                      const std::function<void()>& paused) {
  DecodeResult result;
  SectionReader section("BinTraceData");
  auto feed = [&chain](const std::uint8_t* data, std::size_t size) { chain.feed(data, size); };
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
      paused();
      atEnd = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      continue;
    }
    atEnd = false;
    const auto size = static_cast<std::size_t>(got);
    position += size;
    if (options.follow) keepLastBytes(lastRead, block.data(), size);
    lastGrowth = std::chrono::steady_clock::now();
    if (options.tdf) {
      section.feed(block.data(), size, feed);
    } else {
      chain.feed(block.data(), size);
    }
    // Less than a block: the input paused (a pipe, a live line); show what
    // is decoded so far.
    if (size < block.size()) paused();
  }
  if (result.status == DecodeResult::Status::Done && options.tdf && !section.found()) {
    result.status = DecodeResult::Status::NoSection;
  } else if (result.status == DecodeResult::Status::Done && options.tdf && !section.complete()) {
    result.status = DecodeResult::Status::SectionCutShort;
  }
  return result;
}

}  // namespace vestrel::decoder
