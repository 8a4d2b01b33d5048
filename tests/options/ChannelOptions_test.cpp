#include "ChannelOptions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FakeSerialDevices.h"

using namespace Kv::Orv::Trace::Vestrel;
using Strings = std::vector<std::string>;

namespace {

class OptionTableTest : public ::testing::Test {
 protected:
  void TearDown() override { setProbeFamily(2); }
  vestrel_test::FakeSerialDevices devices;
  ScopedSerialDeviceSource scope{devices};
};

}  // namespace

TEST(OptionKeys, EachKeyHasItsIdAndEverythingElseIsEight) {
  const Strings keys = {"RCVRFWVER", "ENCTYPE",    "PRESCALAR", "PRESCALARVAL",
                        "CLKFREQ",   "CLKFREQVAL", "COMPORT",   "TSPRESCALAR"};
  for (std::uint32_t id = 0; id < keys.size(); ++id) EXPECT_EQ(keyToId(keys[id]), id);
  EXPECT_EQ(keyToId("comport"), 8u);
  EXPECT_EQ(keyToId("CHANNEL-SETUP"), 8u);
  EXPECT_EQ(keyToId(""), 8u);
  EXPECT_EQ(keyToId("COMPORT "), 8u);
}

TEST(OptionKeys, RowIndexOfFindsEveryIdIncludingTheEndRow) {
  for (std::uint32_t id = 0; id <= 8; ++id) EXPECT_EQ(rowIndexOf(id), static_cast<int>(id));
  EXPECT_EQ(rowIndexOf(9), -1);
}

TEST(OptionTableRows, TheTableHoldsItsNineRows) {
  const OptionDescriptor* table = OptionTable();
  EXPECT_STREQ(table[0].key, "RCVRFWVER");
  EXPECT_EQ(table[0].kind, 6u);
  EXPECT_STREQ(table[3].choices, "Prescalar value");
  EXPECT_EQ(table[3].parentId, 2u);
  EXPECT_EQ(table[3].kind, 5u);
  EXPECT_STREQ(table[4].displayName, "Target Clk Frequency");
  EXPECT_STREQ(table[4].group, "UART Options");
  EXPECT_EQ(table[5].parentId, 4u);
  EXPECT_STREQ(table[6].choices, "");
  EXPECT_EQ(table[6].parentId, 1u);
  EXPECT_STREQ(table[7].group, "Timestamping");
  EXPECT_STREQ(table[7].choices, "1,4,16,64");
  EXPECT_EQ(table[8].id, 8u);
  EXPECT_STREQ(table[8].key, "");
  for (int row = 0; row < kOptionTableRows; ++row) EXPECT_EQ(table[row].probeKind, 2u);
}

TEST_F(OptionTableTest, TheDefaultSetHoldsTheEightOptionsWithTheirDefaults) {
  devices.names = {L"Calder Serial Port (COM9)", L"Calder User CDC Serial Port (COM4)"};
  OptionSet set;
  buildDefaultSet(set, 0);
  ASSERT_EQ(set.size(), 8u);
  const Strings values = {"", "UART", "Auto", "Prescalar value", "Auto", "Frequency in Hz", "4", "4"};
  for (std::uint32_t id = 0; id < 8; ++id) {
    EXPECT_EQ(set[id].id, id);
    EXPECT_EQ(set[id].value, values[id]) << id;
    EXPECT_EQ(set[id].probeKind, 0u);
  }
  EXPECT_EQ(set[2].choices, (Strings{"Auto", "Manual"}));
  EXPECT_EQ(set[6].choices, (Strings{"4", "9"}));
  EXPECT_EQ(set[7].choices, (Strings{"1", "4", "16", "64"}));
  EXPECT_EQ(set[0].choices, Strings{""});
  EXPECT_EQ(set[4].displayName, "Target Clk Frequency");
  EXPECT_TRUE(set[4].flagA);
  EXPECT_FALSE(set[2].flagA);
  EXPECT_EQ(set[5].parentId, 4u);
  EXPECT_EQ(set[5].kind, 5u);
  EXPECT_EQ(set[6].group, "UART Options");
}

TEST_F(OptionTableTest, WithoutAnAuxiliaryPortTheComPortHasOneEmptyChoice) {
  OptionSet set;
  buildDefaultSet(set, 2);
  EXPECT_EQ(set[6].choices, Strings{""});
  EXPECT_EQ(set[6].value, "");
}

TEST_F(OptionTableTest, AHarrowSetListsOnlyHarrowPorts) {
  devices.names = {L"Calder Serial Port (COM3)", L"Harrow Class Auxiliary Data Port (COM12)",
                   L"Harrow Class Auxiliary Data Port (COM2)"};
  OptionSet set;
  buildDefaultSet(set, 1);
  EXPECT_EQ(set[6].choices, (Strings{"2", "12"}));
  EXPECT_EQ(set[6].value, "2");
  for (int row = 0; row < 8; ++row) EXPECT_EQ(OptionTable()[row].probeKind, 1u);
}

TEST_F(OptionTableTest, ASetThatHoldsARecordIsLeftAlone) {
  OptionSet set(1);
  set[0].value = "mine";
  buildDefaultSet(set, 2);
  ASSERT_EQ(set.size(), 1u);
  EXPECT_EQ(set[0].value, "mine");
  EXPECT_EQ(devices.listings, 0);
}

TEST_F(OptionTableTest, SetProbeFamilyWritesEveryRow) {
  setProbeFamily(1);
  for (int row = 0; row < kOptionTableRows; ++row) EXPECT_EQ(OptionTable()[row].probeKind, 1u);
}

TEST(ChannelOptionsRecord, ADefaultRecordIsEmptyWithIdEight) {
  ChannelOptions record;
  EXPECT_EQ(record.id, 8u);
  EXPECT_TRUE(record.key.empty());
  EXPECT_TRUE(record.choices.empty());
  EXPECT_TRUE(record.value.empty());
}

TEST(ChannelOptionsRecord, CopiesCarryEveryFieldAndTheChoices) {
  ChannelOptions record(OptionTable()[2]);
  record.value = "Manual";
  ChannelOptions copy(record);
  EXPECT_EQ(copy.id, 2u);
  EXPECT_EQ(copy.key, "PRESCALAR");
  EXPECT_EQ(copy.choices, (Strings{"Auto", "Manual"}));
  EXPECT_EQ(copy.value, "Manual");
  ChannelOptions assigned;
  assigned = record;
  EXPECT_EQ(assigned.displayName, "Prescalar");
  EXPECT_EQ(assigned.group, "SWO Selection");
}
