#include "TpiuDeframer.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using vestrel::decoder::TpiuDeframer;
using Bytes = std::vector<std::uint8_t>;
using Stream = std::vector<std::pair<int, int>>;  // (id, byte)

namespace {

Stream deframe(const Bytes& bytes) {
  Stream out;
  TpiuDeframer deframer([&](std::uint8_t id, std::uint8_t byte) { out.emplace_back(id, byte); });
  deframer.feed(bytes.data(), bytes.size());
  return out;
}

}  // namespace

TEST(TpiuDeframer, NothingBeforeTheFirstFullSync) {
  EXPECT_TRUE(deframe({0x03, 0x41, 0x42, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x4B, 0x4C, 0x4D, 0x4E, 0x00})
                  .empty());
}

TEST(TpiuDeframer, AnIdThenDataWithBitZeroFromTheAuxiliaryByte) {
  // ID 1 at once (0x03, aux bit 0 clear), then data; frame byte 2 is 0x40
  // with its bit 0 (aux bit 1) set: 0x41.
  const Bytes frame = {0xFF, 0xFF, 0xFF, 0x7F, 0x03, 'a', 0x40, 'b', 0x42, 'c',
                       0x44, 'd',  0x46, 'e',  0x48, 'f', 0x4A, 'g', 0x4C, 0x02};
  const Stream out = deframe(frame);
  const Stream expected = {{1, 'a'},  {1, 0x41}, {1, 'b'},  {1, 0x42}, {1, 'c'},  {1, 0x44}, {1, 'd'},
                           {1, 0x46}, {1, 'e'},  {1, 0x48}, {1, 'f'},  {1, 0x4A}, {1, 'g'},  {1, 0x4C}};
  EXPECT_EQ(out, expected);
}

TEST(TpiuDeframer, AnIdChangeCanApplyAfterTheNextByte) {
  // 0x05 (ID 2) with aux bit 1 set: 'x' still belongs to ID 1.
  const Bytes frame = {0xFF, 0xFF, 0xFF, 0x7F, 0x03, 'a',  0x05, 'x',  0x10, 'y',
                       0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02};
  const Stream out = deframe(frame);
  ASSERT_GE(out.size(), 4u);
  EXPECT_EQ(out[0], (std::pair<int, int>{1, 'a'}));
  EXPECT_EQ(out[1], (std::pair<int, int>{1, 'x'}));
  EXPECT_EQ(out[2], (std::pair<int, int>{2, 0x10}));
  EXPECT_EQ(out[3], (std::pair<int, int>{2, 'y'}));
}

TEST(TpiuDeframer, IdZeroIsPaddingAndHalfSyncsAreDropped) {
  const Bytes frame = {0xFF, 0xFF, 0xFF, 0x7F, 0x01, 'p',  0x03, 'a',  0xFF, 0x7F,
                       0x20, 'b',  0x01, 'q',  0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
  const Stream out = deframe(frame);
  const Stream expected = {{1, 'a'}, {1, 0x20}, {1, 'b'}};
  EXPECT_EQ(out, expected);
}

TEST(TpiuDeframer, FramesFollowOneAnotherAndASyncRealigns) {
  Bytes stream = {0xFF, 0xFF, 0xFF, 0x7F};
  for (int f = 0; f < 2; ++f) {
    const Bytes frame = {0x03, static_cast<std::uint8_t>('0' + f),
                         0x00, 0x00,
                         0x00, 0x00,
                         0x00, 0x00,
                         0x00, 0x00,
                         0x00, 0x00,
                         0x00, 0x00,
                         0x00, 0x00};
    stream.insert(stream.end(), frame.begin(), frame.end());
  }
  stream.insert(stream.end(), {0x12, 0x34, 0xFF, 0xFF, 0xFF, 0x7F});  // junk, then a sync
  const Bytes last = {0x03, 'z', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  stream.insert(stream.end(), last.begin(), last.end());
  const Stream out = deframe(stream);
  ASSERT_EQ(out.size(), 3u * 14);
  EXPECT_EQ(out[0], (std::pair<int, int>{1, '0'}));
  EXPECT_EQ(out[14], (std::pair<int, int>{1, '1'}));
  EXPECT_EQ(out[28], (std::pair<int, int>{1, 'z'}));
}
