#include "DecodeChain.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace vestrel::decoder;

namespace {

// Writes down what it is given, with its own name, into a shared journal.
class JournalSink final : public PacketSink {
 public:
  JournalSink(std::string name, std::vector<std::string>& journal, bool wants = true, bool wantsTimes = true)
      : name_(std::move(name)), journal_(journal), wants_(wants), wantsTimes_(wantsTimes) {}
  void write(const Packet& packet, PacketTime time) override {
    journal_.push_back(name_ + " " + kindName(packet.kind) + " at " + std::to_string(time.cycles) +
                       (time.exact ? "" : "+"));
  }
  void finish(const DecoderStatistics& statistics) override {
    journal_.push_back(name_ + " finished after " + std::to_string(statistics.bytes) + " bytes");
  }
  bool wantsPackets() const override { return wants_; }
  bool wantsTimes() const override { return wantsTimes_; }

 private:
  std::string name_;
  std::vector<std::string>& journal_;
  bool wants_;
  bool wantsTimes_;
};

void feed(DecodeChain& chain, const std::string& bytes) {
  chain.feed(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

TEST(DecodeChain, EverySinkGetsEachDatedPacketInTheOrderGiven) {
  std::vector<std::string> journal;
  JournalSink first("first", journal);
  JournalSink second("second", journal);
  DecodeChain chain({&first, &second});
  // 'A' on port 0, then a local timestamp of 5 that dates it, then an
  // overflow no timestamp follows.
  feed(chain, std::string("\x01"
                          "A"
                          "\x50"
                          "\x70",
                          4));
  chain.finish();
  chain.finish();  // once only
  EXPECT_EQ(journal, (std::vector<std::string>{"first instrumentation at 5", "second instrumentation at 5",
                                               "first local-timestamp at 5", "second local-timestamp at 5",
                                               "first overflow at 5+", "second overflow at 5+",
                                               "first finished after 4 bytes", "second finished after 4 bytes"}));
  EXPECT_EQ(chain.statistics().count(PacketKind::Instrumentation), 1u);
}

TEST(DecodeChain, ASinkThatWantsNoTimesGetsEachPacketAsItIsDecoded) {
  std::vector<std::string> journal;
  JournalSink dated("dated", journal);
  JournalSink counting("counting", journal, true, false);
  DecodeChain chain({&dated, &counting});
  feed(chain,
       "\x01"
       "A");  // held for the dated sink until a timestamp dates it
  EXPECT_EQ(journal, (std::vector<std::string>{"counting instrumentation at 0+"}));
  feed(chain, "\x50");
  chain.finish();
  EXPECT_EQ(journal, (std::vector<std::string>{"counting instrumentation at 0+", "counting local-timestamp at 0+",
                                               "dated instrumentation at 5", "dated local-timestamp at 5",
                                               "dated finished after 3 bytes", "counting finished after 3 bytes"}));
}

TEST(DecodeChain, SinksThatWantNoPacketsGetOnlyTheEnd) {
  std::vector<std::string> journal;
  JournalSink summary("summary", journal, false);
  DecodeChain chain({&summary});
  feed(chain, std::string("\x01"
                          "A"
                          "\x50",
                          3));
  chain.finish();
  EXPECT_EQ(journal, (std::vector<std::string>{"summary finished after 3 bytes"}));
  EXPECT_EQ(chain.statistics().count(PacketKind::Instrumentation), 1u);
}

TEST(DecodeChain, TpiuFramesAreUndoneForTheTraceIdAskedFor) {
  std::vector<std::string> journal;
  JournalSink sink("sink", journal);
  DecodeChain chain({&sink}, 1);
  // A full sync, then one frame: ID 1 (byte 0x03), then 'Z' on port 0 (01 5A)
  // and padding.
  std::string frame("\xFF\xFF\xFF\x7F", 4);
  std::string data = {'\x03', '\x01', '\x5A', '\x00'};
  data.resize(15, '\0');
  data.push_back('\0');
  feed(chain, frame + data);
  chain.finish();
  ASSERT_FALSE(journal.empty());
  EXPECT_EQ(journal.front(), "sink instrumentation at 0+");
}

}  // namespace
