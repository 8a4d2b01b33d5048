// The platform's stream primitives on large files: lengths and seeks past
// 4 GiB (sparse files keep the test small).
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "NativePlatform.h"
#include "TestSupport.h"

using namespace vestrel_test;

TEST(NativeFiles, StreamsSeekAndMeasurePastFourGigabytes) {
  ScratchDirectory dir;
  const std::string path = dir.file("large.bin");
  const std::uint64_t offset = (std::uint64_t{6} << 30) + 3;
  { std::ofstream create(path, std::ios::binary); }
  std::filesystem::resize_file(path, offset);
  std::ofstream(path, std::ios::binary | std::ios::app) << "end";

  std::FILE* stream = KV_ORV::native::openSharedStream(path.c_str(), "rb");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(KV_ORV::native::streamLength(stream), static_cast<std::int64_t>(offset + 3));
  ASSERT_TRUE(KV_ORV::native::seekStream(stream, offset));
  char text[4] = {};
  EXPECT_EQ(std::fread(text, 1, 3, stream), 3u);
  EXPECT_EQ(std::string(text), "end");
  ASSERT_TRUE(KV_ORV::native::seekStream(stream, offset - 1));
  EXPECT_EQ(std::fgetc(stream), 0);
  std::fclose(stream);
}
