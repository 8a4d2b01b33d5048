// Memory bounded whatever the capture: a stimulus line that never ends and
// exception entries that never exit, decoded with the report and the
// timeline, raise the peak memory by a few megabytes (7.5 to 8.2 MiB
// measured in the instrumented debug build), not by the capture's 16.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "DecodePipeline.h"
#include "MemoryBound.h"
#include "TestSupport.h"

using namespace vestrel::decoder;

namespace {

// size bytes of pattern, again and again, handed out as read asks.
ReadSome repeating(std::string pattern, std::size_t size) {
  return [pattern = std::move(pattern), size, at = std::size_t{0}](void* buffer, std::size_t room) mutable -> long {
    const std::size_t n = std::min(room, size - at);
    auto* out = static_cast<char*>(buffer);
    for (std::size_t i = 0; i < n; ++i) out[i] = pattern[(at + i) % pattern.size()];
    at += n;
    return static_cast<long>(n);
  };
}

bool decodeWithReportAndTimeline(const ReadSome& read, const std::string& html, const std::string& perfetto) {
  std::FILE* page = std::fopen(html.c_str(), "wb");
  std::FILE* timeline = std::fopen(perfetto.c_str(), "wb");
  std::FILE* text = std::fopen((html + ".txt").c_str(), "wb");
  DecodeOptions options;
  options.html = page;
  options.perfetto = timeline;
  options.reportSource = "generated";
  const DecodeResult result = decodeStream(read, text, options);
  std::fclose(page);
  std::fclose(timeline);
  std::fclose(text);
  return result.status == DecodeResult::Status::Done;
}

constexpr std::size_t kCapture = std::size_t{16} << 20;
// What decoding may add to the peak, whatever the capture's size.
constexpr std::size_t kMostGrowth = std::size_t{12} << 20;

constexpr const char* kSanitized =
    "the sanitizer's allocator keeps freed memory in quarantine, so the peak says nothing of the decoder; the plain "
    "and Windows stages measure it";

TEST(DecodeBounds, ALineThatNeverEndsCostsNoMoreThanItsParts) {
  if (vestrel_test::sanitizedBuild()) GTEST_SKIP() << kSanitized;
  vestrel_test::ScratchDirectory dir;
  // 8 million characters on port 0, no newline.
  vestrel_test::expectReadWithin(kMostGrowth, [&] {
    return decodeWithReportAndTimeline(repeating(std::string("\x01x", 2), kCapture), dir.file("line.html"),
                                       dir.file("line.json"));
  });
}

TEST(DecodeBounds, EntriesThatNeverExitCostNoMoreThanTheDeepestStack) {
  if (vestrel_test::sanitizedBuild()) GTEST_SKIP() << kSanitized;
  vestrel_test::ScratchDirectory dir;
  // SysTick entered, over and over (5.6 million times), with a timestamp each.
  vestrel_test::expectReadWithin(kMostGrowth, [&] {
    return decodeWithReportAndTimeline(repeating(std::string("\x0E\x0F\x10", 3), kCapture), dir.file("entries.html"),
                                       dir.file("entries.json"));
  });
}

}  // namespace
