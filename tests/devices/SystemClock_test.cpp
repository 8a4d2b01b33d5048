#include "SystemClock.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "DeviceRegisters.h"
#include "FakeDevice.h"
#include "FerruleDevice.h"
#include "LarkinDevice.h"
#include "OswinDevice.h"
#include "TestLog.h"
#include "ThrownText.h"

using namespace Kv::Orv::Trace::Vestrel;
using vestrel_test::FakeDevice;
using vestrel_test::hexkitText;
using Strings = std::vector<std::string>;

namespace {

const char* const kUndetermined =
    "Could not determine the System clock frequency automatically. Please set it manually in the receiver "
    "properties.";

constexpr std::uint32_t kTlv = 0x1A00;

// A Larkin device with its clock registers; TLV constants K and FCAL.
FakeDevice larkin(std::uint32_t csctl0, std::uint32_t csctl1, std::uint32_t csclken = 0, float k = 0.5f,
                  std::uint32_t fcal = 768) {
  FakeDevice device;
  device.code = 0x0B9AF02F;
  device.reg("CSCTL0", 0x180, csctl0);
  device.reg("CSCTL1", 0x182, csctl1);
  device.reg("CSCTL2", 0x184, 0x2222);
  device.reg("CSCTL3", 0x186, 0x3333);
  device.reg("CSCLKEN", 0x18E, csclken);
  device.addresses["TLVBASE"] = "1A00";
  device.setFloat(kTlv + 100, k);
  device.memory[kTlv + 76] = fcal;
  return device;
}

double larkinClock(FakeDevice& device) { return LarkinDevice("cpu", &device, &device).getSystemClock(); }

FakeDevice oswin(std::uint32_t deviceClass) {
  FakeDevice device;
  device.code = 0xF0F0F0F0;
  device.reg("DID0", 0x400FE000, 0x10000000 | deviceClass << 16);
  return device;
}

}  // namespace

TEST(LarkinClock, TheWorkedExamples) {
  FakeDevice device = larkin(0x00030000, 0x00000003);
  EXPECT_EQ(larkinClock(device), 12000000.0);
  FakeDevice halved = larkin(0x00030000, 0x00010003);
  EXPECT_EQ(larkinClock(halved), 6000000.0);
}

TEST(LarkinClock, EachSourceHasItsFrequency) {
  FakeDevice lfxt = larkin(0, 0);
  EXPECT_EQ(larkinClock(lfxt), 32768.0);
  FakeDevice vlo = larkin(0, 1);
  EXPECT_EQ(larkinClock(vlo), 10240.0);
  FakeDevice refoFast = larkin(0, 2, 0x8000);
  EXPECT_EQ(larkinClock(refoFast), 131072.0);
  FakeDevice refoSlow = larkin(0, 2, 0);
  EXPECT_EQ(larkinClock(refoSlow), 32768.0);
  FakeDevice modosc = larkin(0, 4);
  EXPECT_EQ(larkinClock(modosc), 25165824.0);
  FakeDevice divided = larkin(0, 0x00070004);
  EXPECT_EQ(larkinClock(divided), 25165824.0 / 128);
}

TEST(LarkinClock, UnsupportedSourcesAreRefused) {
  for (std::uint32_t selm : {5u, 6u, 7u}) {
    FakeDevice device = larkin(0, selm);
    EXPECT_EQ(hexkitText([&] { larkinClock(device); }), kUndetermined) << selm;
  }
}

TEST(LarkinClock, EachDcoRangeHasItsCentre) {
  const double centres[8] = {1.5e6, 3e6, 6e6, 12e6, 24e6, 48e6, 1.5e6, 1.5e6};
  for (std::uint32_t range = 0; range < 8; ++range) {
    FakeDevice device = larkin(range << 16, 3);
    EXPECT_EQ(larkinClock(device), centres[range]) << range;
  }
}

TEST(LarkinClock, DcoTuneIsASigned13BitValue) {
  // K = 0.5, FCAL = 768: 1 - (0.5 x -1) / 8 = 1.0625.
  FakeDevice minusOne = larkin(0x00031FFF, 3, 0, 0.5f, 768);
  EXPECT_EQ(larkinClock(minusOne), 11294117.647058824);
  // K = 1/4096: 1 - (4095/4096) / 8 = 28673/32768, exact in single precision.
  FakeDevice plus4095 = larkin(0x00030FFF, 3, 0, 1.0f / 4096, 768);
  EXPECT_EQ(larkinClock(plus4095), 13713807.414640952);
}

TEST(LarkinClock, FcalEntersThroughTheTlvConstant) {
  // K = 0.5, FCAL = 766: 1 + 0.5 x 2 = 2, so 1 - (0.5 x 1) / 16 = 0.96875.
  FakeDevice device = larkin(0x00030001, 3, 0, 0.5f, 766);
  EXPECT_EQ(larkinClock(device), 12000000.0 / 0.96875);
}

TEST(LarkinClock, BitSixteenStillUsesTheInternalResistorConstants) {
  FakeDevice device = larkin(0x00010001, 3, 0, 0.5f, 768);  // DCORSEL 1 sets bit 16
  device.memory[kTlv + 132] = 7;
  device.memory[kTlv + 108] = 9;
  EXPECT_EQ(larkinClock(device), 3000000.0 / (1.0 - 0.5 / 8));
  bool internal = false, external = false;
  for (const auto& event : device.events) {
    internal = internal || event == "read(00001A64,4,0)";
    external = external || event == "read(00001A84,4,0)" || event == "read(00001A6C,4,0)";
  }
  EXPECT_TRUE(internal);
  EXPECT_FALSE(external);
}

TEST(LarkinClock, AClockOfZeroIsRefused) {
  FakeDevice device = larkin(0x00030FFF, 3, 0, std::numeric_limits<float>::max(), 768);
  EXPECT_EQ(hexkitText([&] { larkinClock(device); }), kUndetermined);
}

TEST(LarkinClock, AddressesWithAndWithoutThePrefixAreTheSame) {
  FakeDevice device = larkin(0x00030000, 3);
  device.addresses["CSCTL1"] = "182";
  EXPECT_EQ(larkinClock(device), 12000000.0);
  device.addresses["CSCTL1"] = "0x182 trailing";
  EXPECT_EQ(larkinClock(device), 12000000.0);
}

TEST(LarkinClock, RegistersAreReadInOrderAndLogged) {
  vestrel_test::TestLog log("1");
  FakeDevice device = larkin(0x00030000, 3, 0x8000);
  larkinClock(device);
  EXPECT_EQ(Strings(device.events.begin(), device.events.begin() + 11),
            (Strings{"address(CSCTL0)", "read(00000180,4,0)", "address(CSCTL1)", "read(00000182,4,0)",
                     "address(CSCTL2)", "read(00000184,4,0)", "address(CSCTL3)", "read(00000186,4,0)",
                     "address(CSCLKEN)", "read(0000018E,4,0)", "address(TLVBASE)"}));
  EXPECT_EQ(
      log.lines(),
      (Strings{"Vestrel_LarkinDevice: CSCTL0 = 0x30000, CSCTL1 = 0x3, CSCTL2 = 0x2222, CSCTL3 = 0x3333, CSCLKEN = "
               "0x8000, TLVBASE = 0x1a00",
               "Vestrel_LarkinDevice: selm = 3, divm = 0"}));
}

TEST(LarkinClock, UnreadableRegistersReadAsZero) {
  FakeDevice device = larkin(0x00030000, 3);
  device.memory.clear();
  EXPECT_EQ(larkinClock(device), 32768.0);  // CSCTL1 0: selm 0
  EXPECT_EQ(LarkinDevice("cpu", &device, nullptr).getSystemClock(), 32768.0);
}

TEST(DeviceDescription, MissingInformationOrModuleIsThrown) {
  FakeDevice device = larkin(0, 3);
  device.hasInfo = false;
  EXPECT_EQ(hexkitText([&] { larkinClock(device); }), "Internal error: Device information could not be parsed");
  device.hasInfo = true;
  device.hasModule = false;
  EXPECT_EQ(hexkitText([&] { larkinClock(device); }),
            "Internal error: Trace clock freq could not be deftermined for this device");
  EXPECT_EQ(hexkitText([&] { FerruleDevice("cpu", &device, &device); }),
            "Internal error: Trace clock freq could not be deftermined for this device");
  EXPECT_EQ(hexkitText([&] { OswinDevice("cpu", &device, &device); }),
            "Internal error: Trace clock freq could not be deftermined for this device");
}

TEST(FerruleClock, OnlyBitZeroOfTheDividerCounts) {
  FakeDevice device;
  device.reg("CPUCLKDIV", 0x40000300, 0xFFFFFFFE);
  vestrel_test::TestLog log("1");
  EXPECT_EQ(FerruleDevice("cpu", &device, &device).getSystemClock(), 48000000.0);
  EXPECT_EQ(log.lines(), Strings{"Vestrel_FerruleDevice: CPUCLKDIV = 0xfffffffe"});
  device.memory[0x40000300] = 1;
  EXPECT_EQ(FerruleDevice("cpu", &device, &device).getSystemClock(), 24000000.0);
  device.memory.clear();
  EXPECT_EQ(FerruleDevice("cpu", &device, &device).getSystemClock(), 48000000.0);
}

TEST(OswinClock, TheNewerSystemExample) {
  EXPECT_EQ(OswinDevice::newerClock(0x10000003, 30, 0x00000004), 24000000.0);
  // A fractional multiplier: 30 + 512/1024.
  EXPECT_EQ(OswinDevice::newerClock(0x10000003, (512u << 10) | 30, 0x00000004), 24400000.0);
  // Q and N divide the VCO: (1 + 1) x (1 + 1).
  EXPECT_EQ(OswinDevice::newerClock(0x10000000, 30, 0x00000101), 120000000.0);
}

TEST(OswinClock, TheNewerSystemWithoutPll) {
  EXPECT_EQ(OswinDevice::newerClock(0x00000400, 0, 0), 8000000.0);
  EXPECT_EQ(OswinDevice::newerClock(0x00000000, 0, 0), 16000000.0);
  EXPECT_EQ(hexkitText([] { OswinDevice::newerClock(0x00200000, 0, 0); }), kUndetermined);  // source 2
  EXPECT_EQ(hexkitText([] { OswinDevice::newerClock(0x00300000, 0, 0); }), kUndetermined);
  EXPECT_EQ(hexkitText([] { OswinDevice::newerClock(0x11000000, 30, 4); }), kUndetermined);  // PLL source 1
}

TEST(OswinClock, TheClassicExamples) {
  EXPECT_EQ(OswinDevice::classicClock(OswinDevice::decodeClassic(1, 0x01C00540, 0)), 50000000.0);
  EXPECT_EQ(OswinDevice::classicClock(OswinDevice::decodeClassic(1, 0x00000D50, 0)), 12000000.0);
  const auto decoded = OswinDevice::decodeClassic(1, 0x01C00540, 0);
  EXPECT_EQ(decoded.crystalIndex, 21u);
  EXPECT_EQ(decoded.crystalHz, 16000000.0);
  EXPECT_TRUE(decoded.useSystemDivider);
  EXPECT_EQ(decoded.systemDivider, 3u);
}

TEST(OswinClock, ClassicBypassedSources) {
  const std::uint32_t bypass = 1u << 11;
  EXPECT_EQ(OswinDevice::classicClock(OswinDevice::decodeClassic(5, bypass | 0x20, 0)), 4000000.0);
  EXPECT_EQ(OswinDevice::classicClock(OswinDevice::decodeClassic(5, bypass | 0x20 | 1u << 22 | 1u << 23, 0)),
            2000000.0);
  EXPECT_EQ(OswinDevice::classicClock(OswinDevice::decodeClassic(3, bypass | 0x10, 0)), 12000000.0);
  EXPECT_EQ(OswinDevice::classicClock(OswinDevice::decodeClassic(4, bypass | 0x10, 0)), 16000000.0);
  EXPECT_EQ(OswinDevice::classicClock(OswinDevice::decodeClassic(4, bypass | 0x30, 0)), 30000.0);
  EXPECT_EQ(OswinDevice::classicClock(OswinDevice::decodeClassic(4, bypass | 14u << 6, 0)), 8000000.0);
  EXPECT_EQ(hexkitText([&] { OswinDevice::classicClock(OswinDevice::decodeClassic(4, bypass | 27u << 6, 0)); }),
            kUndetermined);
  const std::uint32_t useRcc2 = 1u << 31;
  EXPECT_EQ(OswinDevice::classicClock(OswinDevice::decodeClassic(4, 0, useRcc2 | bypass | 7u << 4)), 32768.0);
  for (std::uint32_t source : {4u, 5u, 6u}) {
    EXPECT_EQ(hexkitText(
                  [&] { OswinDevice::classicClock(OswinDevice::decodeClassic(4, 0, useRcc2 | bypass | source << 4)); }),
              kUndetermined);
  }
}

TEST(OswinClock, Rcc2WithDivideBy400) {
  const std::uint32_t rcc2 = 1u << 31 | 1u << 30 | 2u << 23 | 1u << 22;
  const auto decoded = OswinDevice::decodeClassic(4, 1u << 22, rcc2);
  EXPECT_EQ(decoded.systemDivider, 5u);
  EXPECT_EQ(OswinDevice::classicClock(decoded), 400000000.0 / 6);
  // The use-system-divider flag is RCC's even with RCC2 in use.
  EXPECT_EQ(OswinDevice::classicClock(OswinDevice::decodeClassic(4, 0, rcc2)), 400000000.0);
}

TEST(OswinClock, TheDeviceClassSelectsTheClockSystemAndTheExceptionMap) {
  vestrel_test::TestLog log("1");
  FakeDevice newer = oswin(10);
  newer.reg("RSCLKCFG", 0x400FE0B0, 0x10000003);
  newer.reg("PLLFREQ0", 0x400FE160, 30);
  newer.reg("PLLFREQ1", 0x400FE164, 4);
  OswinDevice device("cpu", &newer, &newer);
  EXPECT_EQ(device.getSystemClock(), 24000000.0);
  EXPECT_STREQ(device.getExceptionMapName(), "MOD_EXCEPTIONMAP_129");
  EXPECT_EQ(newer.events,
            (Strings{"address(DID0)", "read(400FE000,4,0)", "address(RSCLKCFG)", "address(PLLFREQ0)",
                     "address(PLLFREQ1)", "read(400FE0B0,4,0)", "read(400FE160,4,0)", "read(400FE164,4,0)"}));
  EXPECT_EQ(log.lines(), (Strings{"Vestrel_OswinDevice: DID0 addr = 0x400fe000 value = 0x100a0000",
                                  "Vestrel_OswinDevice: Glacine"}));

  FakeDevice classic = oswin(11);
  classic.reg("RCC", 0x400FE060, 0x01C00540);
  classic.reg("RCC2", 0x400FE070, 0);
  OswinDevice older("cpu", &classic, &classic);
  EXPECT_EQ(older.getSystemClock(), 50000000.0);
  EXPECT_STREQ(older.getExceptionMapName(), "MOD_EXCEPTIONMAP_123");
  EXPECT_EQ(Strings(classic.events.begin() + 2, classic.events.end()),
            (Strings{"address(RCC)", "address(RCC2)", "read(400FE060,4,0)", "read(400FE070,4,0)"}));
  FakeDevice class12 = oswin(12);
  EXPECT_STREQ(OswinDevice("cpu", &class12, &class12).getExceptionMapName(), "MOD_EXCEPTIONMAP_129");
}

TEST(FamilyChoice, ADeviceMatchingOswinAndLarkinIsOswin) {
  FakeDevice device = larkin(0x00030000, 3);  // Larkin registers would give 12 MHz
  device.matchesEverything = true;
  device.reg("DID0", 0x400FE000, 0x10040000);  // class 4, classic clock system
  device.reg("RCC", 0x400FE060, 0x01C00540);
  device.reg("RCC2", 0x400FE070, 0);
  EXPECT_EQ(getSystemClock("cpu", &device, &device), 50000000.0);
  EXPECT_EQ(device.events.front(), "match(F0F0F0F0,FFFFFFFF)");
  EXPECT_EQ(device.events[1], "address(DID0)");
}

TEST(FamilyChoice, BothLarkinQueriesAreMadeBeforeDeciding) {
  FakeDevice device = larkin(0x00030000, 3);
  EXPECT_EQ(getSystemClock("cpu", &device, &device), 12000000.0);
  EXPECT_EQ(Strings(device.events.begin(), device.events.begin() + 3),
            (Strings{"match(F0F0F0F0,FFFFFFFF)", "match(0B9AF02F,0FFFFFFF)", "match(0BB4D02F,0FFFFFFF)"}));
}

TEST(FamilyChoice, AllThreeFerruleQueriesAreMadeAndTheRevisionNibbleIsIgnored) {
  FakeDevice device;
  device.code = 0x5B99A02F;
  device.reg("CPUCLKDIV", 0x40000300, 1);
  EXPECT_EQ(getSystemClock("cpu", &device, &device), 24000000.0);
  EXPECT_EQ(Strings(device.events.begin(), device.events.begin() + 6),
            (Strings{"match(F0F0F0F0,FFFFFFFF)", "match(0B9AF02F,0FFFFFFF)", "match(0BB4D02F,0FFFFFFF)",
                     "match(0B99A02F,0FFFFFFF)", "match(0B9BE02F,0FFFFFFF)", "match(0BB4102F,0FFFFFFF)"}));
}

TEST(FamilyChoice, AnUnknownDeviceIsRefusedAfterSixQueries) {
  FakeDevice device;
  device.code = 0x12345678;
  EXPECT_EQ(hexkitText([&] { getSystemClock("cpu", &device, &device); }), kUndetermined);
  EXPECT_EQ(device.events.size(), 6u);
  EXPECT_EQ(hexkitText([&] { getSystemClock("cpu", nullptr, nullptr); }), kUndetermined);
}

TEST(DeviceRegisters, AnAddressBeyondThirtyTwoBitsReadsAsAThirtyTwoBitStrtoulReadsIt) {
  FakeDevice device;
  device.addresses["WIDE"] = "100001A00";  // a 64-bit unsigned long would keep 0x1A00
  device.addresses["NEGATIVE"] = "-1A00";
  DeviceRegisters registers("cpu", &device, &device);
  EXPECT_EQ(registers.address("WIDE"), 0xFFFFFFFFu);
  EXPECT_EQ(registers.address("NEGATIVE"), 0xFFFFE600u);
}

TEST(FamilyChoice, ALarkinClockWhoseCalibrationDividesByZeroIsUndetermined) {
  // K = 1, FCAL = 768 and a tune of 8: 1 - 1 * 8 / (8 * (1 + 0)) = 0.
  FakeDevice device = larkin(0x00030008, 3, 0, 1.0f, 768);
  EXPECT_EQ(hexkitText([&] { getSystemClock("cpu", &device, &device); }), kUndetermined);
}

TEST(FamilyChoice, AnOswinClockOfTwoToTheThirtyTwoOrMoreIsUndetermined) {
  FakeDevice device = oswin(10);
  device.reg("RSCLKCFG", 0x400FE0B0, 0x10000000);         // PLL, no divider
  device.reg("PLLFREQ0", 0x400FE160, 1023 | 1023 << 10);  // 16 MHz * 1023.999
  device.reg("PLLFREQ1", 0x400FE164, 0);
  EXPECT_GT(OswinDevice::newerClock(0x10000000, 1023 | 1023 << 10, 0), 4294967296.0);
  EXPECT_EQ(hexkitText([&] { getSystemClock("cpu", &device, &device); }), kUndetermined);
}
