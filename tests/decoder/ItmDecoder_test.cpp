#include "ItmDecoder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace vestrel::decoder;

namespace {

std::vector<Packet> decode(const std::vector<std::uint8_t>& bytes, bool finish = true) {
  std::vector<Packet> packets;
  ItmDecoder decoder([&](const Packet& p) { packets.push_back(p); });
  decoder.feed(bytes.data(), bytes.size());
  if (finish) decoder.finish();
  return packets;
}

Packet only(const std::vector<std::uint8_t>& bytes) {
  const auto packets = decode(bytes);
  EXPECT_EQ(packets.size(), 1u);
  return packets.empty() ? Packet{} : packets[0];
}

std::vector<PacketKind> kinds(const std::vector<Packet>& packets) {
  std::vector<PacketKind> out;
  for (const auto& p : packets) out.push_back(p.kind);
  return out;
}

}  // namespace

TEST(ItmDecoder, SynchronizationNeedsFortySevenZeroBitsThenAOne) {
  EXPECT_EQ(only({0, 0, 0, 0, 0, 0x80}).kind, PacketKind::Sync);
  EXPECT_EQ(only({0, 0, 0, 0, 0, 0, 0, 0x80}).kind, PacketKind::Sync);
  // Four zeros are too few: a zero run, then 0x80 starts no packet.
  const auto shortRun = decode({0, 0, 0, 0, 0x80});
  EXPECT_EQ(kinds(shortRun), (std::vector<PacketKind>{PacketKind::Zeros, PacketKind::Malformed}));
  EXPECT_EQ(shortRun[0].value, 4u);
  EXPECT_EQ(shortRun[1].offset, 4u);
}

TEST(ItmDecoder, AKindPrintsItsName) {
  // A failed check says "overflow", not the enum's bytes.
  EXPECT_EQ(::testing::PrintToString(PacketKind::Overflow), "overflow");
  EXPECT_EQ(::testing::PrintToString(PacketKind::DataTraceMatch), "data-trace-match");
}

TEST(ItmDecoder, Overflow) { EXPECT_EQ(only({0x70}).kind, PacketKind::Overflow); }

TEST(ItmDecoder, LocalTimestampFormatTwoCarriesItsValueInTheHeader) {
  for (std::uint8_t value = 1; value <= 6; ++value) {
    const Packet p = only({static_cast<std::uint8_t>(value << 4)});
    EXPECT_EQ(p.kind, PacketKind::LocalTimestamp);
    EXPECT_EQ(p.value, value);
    EXPECT_EQ(p.size, 0u);
  }
}

TEST(ItmDecoder, LocalTimestampFormatOneIsLeastSignificantGroupFirst) {
  const Packet p = only({0xC0, 0xE7, 0x8A, 0x8D, 0x09});
  EXPECT_EQ(p.kind, PacketKind::LocalTimestamp);
  EXPECT_EQ(p.value, 0x1234567u);
  EXPECT_EQ(p.size, 4u);
  EXPECT_EQ(p.timestampRelation, 0u);
  EXPECT_EQ(only({0xC0, 0x05}).value, 5u);
  EXPECT_EQ(only({0xD0, 0x05}).timestampRelation, 1u);
  EXPECT_EQ(only({0xE0, 0x05}).timestampRelation, 2u);
  EXPECT_EQ(only({0xF0, 0x05}).timestampRelation, 3u);
}

TEST(ItmDecoder, HeadersThatLookLikeTimestampsButAreNot) {
  for (std::uint8_t header : {0x80, 0x90, 0xA0, 0xB0, 0x04, 0x14, 0x24, 0xA4, 0xF4}) {
    EXPECT_EQ(only({header}).kind, PacketKind::Malformed) << int(header);
  }
}

TEST(ItmDecoder, GlobalTimestampOneWithWrapAndClockChange) {
  const Packet p = only({0x94, 0xE7, 0x8A, 0x8D, 0x69});
  EXPECT_EQ(p.kind, PacketKind::GlobalTimestamp1);
  EXPECT_EQ(p.value, 0x1234567u);
  EXPECT_TRUE(p.wrap);
  EXPECT_TRUE(p.clockChange);
  const Packet shortForm = only({0x94, 0x05});
  EXPECT_EQ(shortForm.value, 5u);
  EXPECT_FALSE(shortForm.wrap);
}

TEST(ItmDecoder, GlobalTimestampTwoInItsTwoLengths) {
  const Packet four = only({0xB4, 0xD6, 0xE8, 0xC8, 0x00});
  EXPECT_EQ(four.kind, PacketKind::GlobalTimestamp2);
  EXPECT_EQ(four.value, 0x123456u);
  EXPECT_EQ(four.size, 4u);
  const Packet six = only({0xB4, 0x81, 0x80, 0x80, 0x80, 0x80, 0x01});
  EXPECT_EQ(six.value, 1u + (1ull << 35));
  EXPECT_EQ(six.size, 6u);
}

TEST(ItmDecoder, InstrumentationPacketsInTheirThreeSizes) {
  const Packet one = only({0x01, 'A'});
  EXPECT_EQ(one.kind, PacketKind::Instrumentation);
  EXPECT_EQ(one.port, 0u);
  EXPECT_EQ(one.size, 1u);
  EXPECT_EQ(one.value, 'A');
  const Packet two = only({0x0A, 0x34, 0x12});
  EXPECT_EQ(two.port, 1u);
  EXPECT_EQ(two.value, 0x1234u);
  const Packet four = only({0xFB, 0x78, 0x56, 0x34, 0x12});
  EXPECT_EQ(four.port, 31u);
  EXPECT_EQ(four.value, 0x12345678u);
}

TEST(ItmDecoder, TheStimulusPageMovesPortsUpAndSyncResetsIt) {
  const auto packets = decode({0x38, 0x09, 'x', 0x08, 0x09, 'y', 0x28, 0, 0, 0, 0, 0, 0x80, 0x09, 'z'});
  ASSERT_EQ(packets.size(), 7u);
  EXPECT_EQ(packets[0].kind, PacketKind::StimulusPage);
  EXPECT_EQ(packets[0].value, 3u);
  EXPECT_EQ(packets[1].port, 97u);
  EXPECT_EQ(packets[2].kind, PacketKind::StimulusPage);  // 0x08: page 0, not something else
  EXPECT_EQ(packets[3].port, 1u);
  EXPECT_EQ(packets[5].kind, PacketKind::Sync);
  EXPECT_EQ(packets[6].port, 1u);
}

TEST(ItmDecoder, OtherExtensionPackets) {
  EXPECT_EQ(only({0x0C}).kind, PacketKind::Extension);
  const Packet continued = only({0x88, 0x81, 0x01});
  EXPECT_EQ(continued.kind, PacketKind::Extension);
  EXPECT_EQ(continued.value, 0x81u);
}

TEST(ItmDecoder, OnlyTheSourcePacketsPayloadSaysItsKind) {
  // The same hardware header with its payload split across feeds.
  std::vector<Packet> packets;
  ItmDecoder decoder([&](const Packet& p) { packets.push_back(p); });
  decoder.feed(std::string("\x0E\x0F", 2));
  EXPECT_TRUE(packets.empty());
  decoder.feed(std::string("\x10", 1));
  ASSERT_EQ(packets.size(), 1u);
  EXPECT_EQ(packets[0].kind, PacketKind::ExceptionTrace);
  EXPECT_EQ(packets[0].exception, 15u);
  EXPECT_EQ(packets[0].function, ExceptionFunction::Entered);
}

TEST(ItmDecoder, EventCounter) {
  const Packet p = only({0x05, 0x21});
  EXPECT_EQ(p.kind, PacketKind::EventCounter);
  EXPECT_EQ(p.counterWraps, 0x21u);
}

TEST(ItmDecoder, ExceptionTrace) {
  const Packet entered = only({0x0E, 0x0F, 0x10});
  EXPECT_EQ(entered.kind, PacketKind::ExceptionTrace);
  EXPECT_EQ(entered.exception, 15u);
  EXPECT_EQ(entered.function, ExceptionFunction::Entered);
  const Packet exited = only({0x0E, 0x10, 0x21});
  EXPECT_EQ(exited.exception, 272u);
  EXPECT_EQ(exited.function, ExceptionFunction::Exited);
  EXPECT_EQ(only({0x0E, 0x03, 0x30}).function, ExceptionFunction::Returned);
}

TEST(ItmDecoder, PeriodicPcSamples) {
  const Packet pc = only({0x17, 0x78, 0x56, 0x34, 0x12});
  EXPECT_EQ(pc.kind, PacketKind::PcSample);
  EXPECT_EQ(pc.value, 0x12345678u);
  const Packet asleep = only({0x15, 0x00});
  EXPECT_EQ(asleep.kind, PacketKind::PcSleep);
  EXPECT_EQ(asleep.sleepPayload, 0x00u);
  EXPECT_EQ(only({0x15, 0xFF}).sleepPayload, 0xFFu);
}

TEST(ItmDecoder, DataTraceForEachComparator) {
  const std::uint8_t pcHeaders[4] = {0x47, 0x57, 0x67, 0x77};
  for (std::uint32_t comparator = 0; comparator < 4; ++comparator) {
    const Packet pc = only({pcHeaders[comparator], 0x00, 0x10, 0x00, 0x08});
    EXPECT_EQ(pc.kind, PacketKind::DataTracePc);
    EXPECT_EQ(pc.comparator, comparator);
    EXPECT_EQ(pc.value, 0x08001000u);
  }
  const Packet address = only({0x4E, 0x34, 0x12});
  EXPECT_EQ(address.kind, PacketKind::DataTraceAddress);
  EXPECT_EQ(address.comparator, 0u);
  EXPECT_EQ(address.value, 0x1234u);
  EXPECT_EQ(only({0x7E, 0x01, 0x00}).comparator, 3u);
  const Packet write = only({0x9F, 0xEF, 0xBE, 0xAD, 0xDE});
  EXPECT_EQ(write.kind, PacketKind::DataTraceValue);
  EXPECT_EQ(write.comparator, 1u);
  EXPECT_TRUE(write.write);
  EXPECT_EQ(write.value, 0xDEADBEEFu);
  const Packet read = only({0x85, 0x7F});
  EXPECT_FALSE(read.write);
  EXPECT_EQ(read.comparator, 0u);
  EXPECT_EQ(read.size, 1u);
}

TEST(ItmDecoder, ArmV8Additions) {
  const Packet match = only({0x45, 0x01});
  EXPECT_EQ(match.kind, PacketKind::DataTraceMatch);
  EXPECT_EQ(only({0x55, 0x01}).comparator, 1u);
  // A match packet's payload has bit 0 set; without it the packet is none
  // the architecture defines: its two bytes are malformed.
  const Packet notAMatch = only({0x45, 0x00});
  EXPECT_EQ(notAMatch.kind, PacketKind::Malformed);
  EXPECT_EQ(notAMatch.value, 2u);
  EXPECT_EQ(only({0x1D, 0x03}).kind, PacketKind::PmuOverflow);
}

TEST(ItmDecoder, AnUnknownHardwareSourceIsMalformedButItsPayloadIsSkipped) {
  const auto packets = decode({0x2D, 0x01, 0x01, 'A'});  // discriminator 5, then a software packet
  ASSERT_EQ(packets.size(), 2u);
  EXPECT_EQ(packets[0].kind, PacketKind::Malformed);
  EXPECT_EQ(packets[1].kind, PacketKind::Instrumentation);
  EXPECT_EQ(packets[1].value, 'A');
}

TEST(ItmDecoder, DecodingResumesRightAfterAMalformedByte) {
  const auto packets = decode({0x80, 0x01, 'A', 0x70});
  EXPECT_EQ(kinds(packets),
            (std::vector<PacketKind>{PacketKind::Malformed, PacketKind::Instrumentation, PacketKind::Overflow}));
  EXPECT_EQ(packets[1].offset, 1u);
}

TEST(ItmDecoder, ATruncatedPacketIsReportedAtTheEnd) {
  EXPECT_TRUE(decode({0x03, 0x01, 0x02}, false).empty());
  const auto packets = decode({0x03, 0x01, 0x02});
  ASSERT_EQ(packets.size(), 1u);
  EXPECT_EQ(packets[0].kind, PacketKind::Malformed);
  EXPECT_EQ(packets[0].header, 0x03);
  EXPECT_EQ(kinds(decode({0xC0, 0x85})), std::vector<PacketKind>{PacketKind::Malformed});
  EXPECT_EQ(decode({0xC0, 0x85})[0].value, 2u);  // the header and its one payload byte
  // Three zeros at the end of a stream that is no whole number of samples.
  EXPECT_EQ(kinds(decode({0, 0, 0})), std::vector<PacketKind>{PacketKind::Zeros});
}

TEST(ItmDecoder, ATimestampWhoseFourthContinuationByteSaysMoreFollowsIsMalformed) {
  // A fifth payload byte is never allowed: the packet is malformed whole and
  // decoding goes on with the next byte.
  const auto local = decode({0xC0, 0x81, 0x82, 0x83, 0x84, 0x70});
  EXPECT_EQ(kinds(local), (std::vector<PacketKind>{PacketKind::Malformed, PacketKind::Overflow}));
  EXPECT_EQ(local[0].value, 5u);
  EXPECT_EQ(local[0].offset, 0u);
  EXPECT_EQ(local[1].offset, 5u);
  const auto global = decode({0x94, 0x81, 0x82, 0x83, 0xE4, 0x20});
  EXPECT_EQ(kinds(global), (std::vector<PacketKind>{PacketKind::Malformed, PacketKind::LocalTimestamp}));
  // With the fourth byte ending the packet, both are valid.
  EXPECT_EQ(only({0xC0, 0x81, 0x82, 0x83, 0x04}).kind, PacketKind::LocalTimestamp);
  EXPECT_EQ(only({0x94, 0x81, 0x82, 0x83, 0x64}).kind, PacketKind::GlobalTimestamp1);
}

TEST(ItmDecoder, GarbageIsReportedByTheRun) {
  const auto packets = decode({0x80, 0x90, 0xA4, 0xF4, 0x70, 0xA0});
  ASSERT_EQ(kinds(packets),
            (std::vector<PacketKind>{PacketKind::Malformed, PacketKind::Overflow, PacketKind::Malformed}));
  EXPECT_EQ(packets[0].value, 4u);
  EXPECT_EQ(packets[0].header, 0x80);
  EXPECT_EQ(packets[2].offset, 5u);
  EXPECT_EQ(packets[2].value, 1u);
}

TEST(ItmDecoder, ZeroRunsAreCountedApartFromMalformedBytesAndPaddingApartFromBoth) {
  ItmDecoder run(nullptr);
  run.feed(std::string(20, '\0') + "\x70" + std::string(3, '\0'));  // 24 bytes: three zeros at the end are padding
  run.finish();
  EXPECT_EQ(run.statistics().zeroBytes, 20u);
  EXPECT_EQ(run.statistics().paddingBytes, 3u);
  EXPECT_EQ(run.statistics().malformedBytes, 0u);
  EXPECT_EQ(run.statistics().count(PacketKind::Zeros), 1u);
  ItmDecoder odd(nullptr);
  odd.feed(std::string("\x70\0\0", 3));  // not a whole sample: no padding
  odd.finish();
  EXPECT_EQ(odd.statistics().zeroBytes, 2u);
  EXPECT_EQ(odd.statistics().paddingBytes, 0u);
}

TEST(ItmDecoder, FeedingByteByByteGivesTheSamePackets) {
  const std::vector<std::uint8_t> stream = {0, 0, 0,    0,    0,    0x80, 0x94, 0xE7, 0x8A, 0x8D, 0x69, 0x0B, 1, 2,
                                            3, 4, 0xC0, 0x85, 0x01, 0x0E, 0x0F, 0x10, 0x17, 1,    2,    3,    4, 0x30};
  const auto whole = decode(stream);
  std::vector<Packet> pieces;
  ItmDecoder decoder([&](const Packet& p) { pieces.push_back(p); });
  for (std::uint8_t byte : stream) decoder.feed(&byte, 1);
  decoder.finish();
  ASSERT_EQ(pieces.size(), whole.size());
  for (std::size_t i = 0; i < whole.size(); ++i) {
    EXPECT_EQ(pieces[i].kind, whole[i].kind);
    EXPECT_EQ(pieces[i].value, whole[i].value);
    EXPECT_EQ(pieces[i].offset, whole[i].offset);
  }
  EXPECT_EQ(kinds(whole),
            (std::vector<PacketKind>{PacketKind::Sync, PacketKind::GlobalTimestamp1, PacketKind::Instrumentation,
                                     PacketKind::LocalTimestamp, PacketKind::ExceptionTrace, PacketKind::PcSample,
                                     PacketKind::LocalTimestamp}));
}

TEST(ItmDecoder, StatisticsCountPacketsBytesAndSyncLosses) {
  ItmDecoder decoder(nullptr);
  decoder.feed(std::string("\x00\x00\x00\x00\x00\x80\x01\x41\x80\x90\x01\x42\x70", 13));
  decoder.finish();
  const DecoderStatistics& stats = decoder.statistics();
  EXPECT_EQ(stats.bytes, 13u);
  EXPECT_EQ(stats.count(PacketKind::Sync), 1u);
  EXPECT_EQ(stats.count(PacketKind::Instrumentation), 2u);
  EXPECT_EQ(stats.count(PacketKind::Overflow), 1u);
  EXPECT_EQ(stats.count(PacketKind::Malformed), 1u);  // one run of two bytes
  EXPECT_EQ(stats.malformedBytes, 2u);
  EXPECT_EQ(stats.syncLosses, 1u);  // one loss: the second bad byte was already out of sync
}
