#include "DeviceSupport.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "cHexkitError.h"

using namespace Kv::Orv::Trace::Vestrel;
using Kv::Orv::Hexkit::cHexkitError;

namespace {

class FakeIdentifier final : public Kv::Orv::Probe::CDeviceIdentifier {
 public:
  explicit FakeIdentifier(std::uint32_t code) : code_(code) {}
  bool matchDevice(std::uint32_t identifier, std::uint32_t mask) override {
    queries.emplace_back(identifier, mask);
    return (code_ & mask) == (identifier & mask);
  }
  Kv::Orv::Probe::CDeviceInfo* getDeviceInfo(const char*) override { return nullptr; }
  std::vector<std::pair<std::uint32_t, std::uint32_t>> queries;

 private:
  std::uint32_t code_;
};

// A board that has exactly the entries given, and remembers what was asked.
struct Board {
  std::set<std::tuple<std::string, std::string, std::string>> entries;
  std::vector<std::string> asked;
  BoardEntryQuery query() {
    return [this](const char* section, const char* key, const char* value) {
      asked.push_back(std::string(section) + "/" + key + "=" + value);
      return entries.count({section, key, value}) != 0;
    };
  }
};

const std::string kSwdText =
    "Please check the target configuration(TGTCFG). Debug probe protocol must be SWD with COM port connected to TDO.";
const std::string kCjtagText =
    std::string("Please check the target configuration(TGTCFG). Debug probe protocol must be set to either: ") + '\n' +
    " 1. 2-pin CJTAG with Aux COM port connected to target TDO or UART pin." + '\n' +
    " 1. 4-pin CJTAG with Aux COM port connected to target UART pin.";

std::string failure(std::uint32_t code, Board& board, int* severity = nullptr) {
  FakeIdentifier identifier(code);
  try {
    CheckDeviceSupport(identifier, board.query());
  } catch (const cHexkitError& e) {
    if (severity != nullptr) *severity = e.GetSeverity();
    return e.GetMessage();
  }
  return "<passed>";
}

Board swdBoard() {
  Board board;
  board.entries = {{"swd", "swd_debug", "enabled"}, {"swd", "swo_data", "tdo_pin"}};
  return board;
}

}  // namespace

TEST(DeviceSupport, TheMessagesReadExactly) {
  EXPECT_EQ(kSwdConfigurationMessage, kSwdText);
  EXPECT_EQ(kCjtagConfigurationMessage, kCjtagText);
  EXPECT_EQ(std::string(kCjtagConfigurationMessage).find("\\n"), std::string::npos);
}

TEST(DeviceSupport, SwdDevicesPassWithSwdAndSwoOnTdo) {
  for (std::uint32_t code : {0xF0F0F0F0u, 0x0B9AF02Fu, 0x0BB4D02Fu, 0x1B9AF02Fu, 0xFBB4D02Fu}) {
    Board board = swdBoard();
    FakeIdentifier identifier(code);
    EXPECT_TRUE(CheckDeviceSupport(identifier, board.query())) << std::hex << code;
  }
}

TEST(DeviceSupport, SwdDevicesFailWithTheSwdMessageOtherwise) {
  for (std::uint32_t code : {0xF0F0F0F0u, 0x0B9AF02Fu, 0x0BB4D02Fu}) {
    Board onlyDebug;
    onlyDebug.entries = {{"swd", "swd_debug", "enabled"}};
    int severity = 0;
    EXPECT_EQ(failure(code, onlyDebug, &severity), kSwdText);
    EXPECT_EQ(severity, 2);
    Board onlyTdo;
    onlyTdo.entries = {{"swd", "swo_data", "tdo_pin"}};
    EXPECT_EQ(failure(code, onlyTdo), kSwdText);
  }
}

TEST(DeviceSupport, TheSwdCheckAlwaysAsksForBothEntries) {
  Board empty;
  failure(0x0B9AF02F, empty);
  EXPECT_EQ(empty.asked, (std::vector<std::string>{"swd/swd_debug=enabled", "swd/swo_data=tdo_pin"}));
}

TEST(DeviceSupport, FerruleWithTwoPinCjtagPassesWhateverSwoDataSays) {
  for (std::uint32_t code : {0x0B99A02Fu, 0x0B9BE02Fu, 0x0BB4102Fu}) {
    Board board;
    board.entries = {{"dot7", "ts_pin_width", "only_two"}, {"swd", "swo_data", "tdo_pin"}};
    EXPECT_EQ(failure(code, board), "<passed>");
    Board twoPinOnly;
    twoPinOnly.entries = {{"dot7", "ts_pin_width", "only_two"}};
    EXPECT_EQ(failure(code, twoPinOnly), "<passed>");
  }
}

TEST(DeviceSupport, FerruleWithFourPinCjtagMustNotUseTdo) {
  for (std::uint32_t code : {0x0B99A02Fu, 0x0B9BE02Fu, 0x0BB4102Fu}) {
    Board onTdo;
    onTdo.entries = {{"swd", "swo_data", "tdo_pin"}};
    EXPECT_EQ(failure(code, onTdo), kCjtagText);
    Board uart;
    EXPECT_EQ(failure(code, uart), "<passed>");
  }
}

TEST(DeviceSupport, TheCjtagCheckAsksForBothEntries) {
  Board board;
  failure(0x0B99A02F, board);
  EXPECT_EQ(board.asked, (std::vector<std::string>{"dot7/ts_pin_width=only_two", "swd/swo_data=tdo_pin"}));
}

TEST(DeviceSupport, AnUnknownDeviceIsUnsupportedAfterAllSixQueries) {
  Board board = swdBoard();
  FakeIdentifier identifier(0x12345678);
  EXPECT_FALSE(CheckDeviceSupport(identifier, board.query()));
  const std::vector<std::pair<std::uint32_t, std::uint32_t>> expected = {
      {0xF0F0F0F0, 0xFFFFFFFF}, {0x0B9AF02F, 0x0FFFFFFF}, {0x0BB4D02F, 0x0FFFFFFF},
      {0x0B99A02F, 0x0FFFFFFF}, {0x0B9BE02F, 0x0FFFFFFF}, {0x0BB4102F, 0x0FFFFFFF},
  };
  EXPECT_EQ(identifier.queries, expected);
  EXPECT_TRUE(board.asked.empty());
}

TEST(DeviceSupport, TheFirstMatchDecidesAndStopsTheQueries) {
  Board board = swdBoard();
  FakeIdentifier identifier(0x0BB4D02F);
  EXPECT_TRUE(CheckDeviceSupport(identifier, board.query()));
  EXPECT_EQ(identifier.queries.size(), 3u);
}

TEST(DeviceSupport, TheOswinQueryComparesAllThirtyTwoBits) {
  Board board = swdBoard();
  FakeIdentifier identifier(0x00F0F0F0);
  EXPECT_FALSE(CheckDeviceSupport(identifier, board.query()));
}
