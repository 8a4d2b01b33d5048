#include <gtest/gtest.h>

#include <cstdlib>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "ChannelDriver.h"
#include "ChannelDriverTestAccess.h"
#include "FakeDevice.h"
#include "FakeSerialDevices.h"
#include "FakeTraceInterface.h"
#include "MemoryBound.h"
#include "TestLog.h"
#include "ThrownText.h"

using Kv::Orv::Trace::CReceiver;
using Kv::Orv::Trace::TraceAttribute;
using namespace Kv::Orv::Trace::Vestrel;
using vestrel_test::hexkitText;

namespace {

CReceiver* const kOwner = reinterpret_cast<CReceiver*>(0x1000);

class ChannelAttributesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    driver = std::make_unique<ChannelDriver>(kOwner, "Probe1/CortexM4", &trace, 7, 0);
    driver->SetProbeKind(kHarrowProbe);
  }
  // Manual 72 MHz, prescaler 8, timestamp prescale 16.
  void configure() {
    const std::string path = dir.file("options.xml");
    std::ofstream(path, std::ios::binary)
        << "<CHANNEL-SETUP><VERSION version=\"1.1.0.0\"/><RCVRNAME>SWO Trace</RCVRNAME><RCVRFWVER>x</RCVRFWVER>"
           "<ENCTYPE>UART</ENCTYPE><PRESCALAR>Manual</PRESCALAR><PRESCALARVAL>8</PRESCALARVAL><CLKFREQ>Manual</CLKFREQ>"
           "<CLKFREQVAL>72000000</CLKFREQVAL><COMPORT>7</COMPORT><TSPRESCALAR>16</TSPRESCALAR></CHANNEL-SETUP>";
    driver->SetConfiguration(path.c_str());
  }
  std::string value(const char* name, std::uint32_t* type = nullptr) {
    TraceAttribute record;
    driver->GetAttribute(name, record);
    EXPECT_EQ(record.name, name);
    if (type != nullptr) *type = record.type;
    return record.value != nullptr ? record.value : "<null>";
  }
  void setupFile(const std::string& content) {
    std::filesystem::create_directories(settings.path());
    std::ofstream(settings.file("TraceCntrl-itm.ini"), std::ios::binary) << content;
  }

  vestrel_test::TestLog log{"3"};
  vestrel_test::ScratchDirectory dir;
  vestrel_test::ScratchDirectory settings;
  vestrel_test::ScopedEnv settingsDir{"KV_TRACE_SETTINGS_DIR", settings.path()};
  vestrel_test::FakeSerialDevices devices;
  ScopedSerialDeviceSource noPorts{devices};
  vestrel_test::FakeTraceInterface trace;
  vestrel_test::FakeDevice device;
  std::unique_ptr<ChannelDriver> driver;
};

}  // namespace

TEST_F(ChannelAttributesTest, ANullNameIsRefused) {
  TraceAttribute record;
  int severity = 0;
  EXPECT_EQ(hexkitText([&] { driver->GetAttribute(nullptr, record); }, &severity), "Null attribute name");
  EXPECT_EQ(severity, 2);
}

TEST_F(ChannelAttributesTest, RatesAreWrittenAsADefaultStreamWritesThem) {
  configure();
  std::uint32_t type = 0;
  EXPECT_EQ(value("Trace Data Frequency", &type), "8e+06");
  EXPECT_EQ(type, 6u);
  EXPECT_EQ(value("Timing Clock Frequency", &type), "7.2e+07");
  EXPECT_EQ(type, 6u);
  EXPECT_EQ(value("ITM Timestamp Prescale", &type), "16");
  EXPECT_EQ(type, 2u);
}

TEST_F(ChannelAttributesTest, AnUnconfiguredDriverAnswersZeroRates) {
  EXPECT_EQ(value("Trace Data Frequency"), "0");
  EXPECT_EQ(value("ITM Timestamp Prescale"), "1");
}

TEST_F(ChannelAttributesTest, FixedAnswers) {
  std::uint32_t type = 9;
  EXPECT_EQ(value("Buffer Wrapped", &type), "0");
  EXPECT_EQ(type, 0u);
  EXPECT_EQ(value("TWP Source", &type), "0");
  EXPECT_EQ(type, 0u);
  EXPECT_EQ(value("ITM Exception Map Name", &type), "MOD_EXCEPTIONMAP");
  EXPECT_EQ(type, 5u);
}

TEST_F(ChannelAttributesTest, ComparatorValuesAreReadFromTheTarget) {
  device.memory[0xE0001020] = 0x20000100;
  device.memory[0xE0001030] = 0xFFFFFFFF;
  device.memory[0xE0001040] = 7;
  driver->SetTargetAdapter(&device);
  std::uint32_t type = 0;
  EXPECT_EQ(value("WP0 Comp", &type), "536871168");
  EXPECT_EQ(type, 2u);
  EXPECT_EQ(value("WP1 Comp"), "4294967295");
  EXPECT_EQ(value("WP2 Comp"), "7");
  EXPECT_EQ(value("WP3 Comp"), "0");  // the read failed: 0
  EXPECT_EQ(device.events, (std::vector<std::string>{"read(E0001020,4,0)", "read(E0001030,4,0)", "read(E0001040,4,0)",
                                                     "read(E0001050,4,0)"}));
}

TEST_F(ChannelAttributesTest, WithoutATargetAdapterComparatorsAreZero) { EXPECT_EQ(value("WP0 Comp"), "0"); }

TEST_F(ChannelAttributesTest, WithoutASetupFilePortZeroIsTheSpecialChannel) {
  std::uint32_t type = 0;
  EXPECT_EQ(value("ITMChannelType_0", &type), "1");
  EXPECT_EQ(type, 1u);
  EXPECT_EQ(value("ITMChannelType_5"), "0");
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver: Could not find/open file (" + settings.file("TraceCntrl-itm.ini") +
                           ") to get ITM channel setup. Setting up legacy mapping."));
  EXPECT_EQ(driver->itmChannelTypes()[31], 0);
}

TEST_F(ChannelAttributesTest, TheSetupFileMarksItsPorts) {
  setupFile("ITM_0=0\nITM_1=1\nITM_2=0\nITM_3=1\n");
  EXPECT_EQ(value("ITMChannelType_1"), "1");
  EXPECT_EQ(value("ITMChannelType_3"), "1");
  EXPECT_EQ(value("ITMChannelType_0"), "0");
  EXPECT_EQ(value("ITMChannelType_7"), "0");
  EXPECT_EQ(driver->itmChannelTypes()[7], -1);
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver: Opened file (" + settings.file("TraceCntrl-itm.ini") +
                           ") to get ITM channel setup."));
}

TEST_F(ChannelAttributesTest, AFileStartingAtPortOneLoadsNothing) {
  setupFile("ITM_1=1\nITM_2=1\n");
  EXPECT_EQ(value("ITMChannelType_1"), "0");
  EXPECT_EQ(value("ITMChannelType_2"), "0");
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver: Read channel number 1 instead of expected channel number 0"));
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver: Read channel number 2 instead of expected channel number 1"));
  EXPECT_EQ(driver->itmChannelTypes()[1], -1);
}

TEST_F(ChannelAttributesTest, OtherValuesAreKeptButOnlyOneIsTheSpecialType) {
  setupFile("CH_0=2\nCH_1=\nCH_2=1\r\n");
  EXPECT_EQ(value("ITMChannelType_0"), "0");
  EXPECT_EQ(driver->itmChannelTypes()[0], 2);
  EXPECT_EQ(driver->itmChannelTypes()[1], 0);
  EXPECT_EQ(value("ITMChannelType_2"), "1");
}

TEST_F(ChannelAttributesTest, LinesForPortsAboveThirtyOneAreIgnored) {
  std::string content;
  for (int port = 0; port < 40; ++port) content += "ITM_" + std::to_string(port) + "=1\n";
  setupFile(content);
  EXPECT_EQ(value("ITMChannelType_31"), "1");
  EXPECT_EQ(value("ITMChannelType_0"), "1");
}

TEST_F(ChannelAttributesTest, PortsOutsideTheTableAreUnhandled) {
  EXPECT_EQ(value("ITMChannelType_32"), "0");
  EXPECT_EQ(value("ITMChannelType_-1"), "0");
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver: Unhandled Attribute = ITMChannelType_32"));
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver: Unhandled Attribute = ITMChannelType_-1"));
}

TEST_F(ChannelAttributesTest, AnOverlongSetupLineIsCutAndTheLinesAfterItStillCount) {
  // 64 MiB on one line: read through a bounded buffer, it costs 4 KiB.
  setupFile("ITM_0=1" + std::string(64 << 20, ' ') + "\nITM_1=1\nITM_2=0\n");
  EXPECT_EQ(value("ITMChannelType_0"), "1");
  EXPECT_EQ(value("ITMChannelType_1"), "1");
  EXPECT_EQ(driver->itmChannelTypes()[2], 0);
}

TEST_F(ChannelAttributesTest, ANulByteInASetupLineDoesNotEndTheLine) {
  const char text[] = "ITM_0\0=1\nITM_1=1\0\nITM_2=0\n";
  setupFile(std::string(text, sizeof text - 1));
  EXPECT_EQ(value("ITMChannelType_0"), "1");
  EXPECT_EQ(value("ITMChannelType_1"), "1");
  EXPECT_EQ(driver->itmChannelTypes()[2], 0);
}

TEST_F(ChannelAttributesTest, ALastSetupLineWithoutANewlineIsReadWhole) {
  setupFile("ITM_0=0\nITM_1=1");
  EXPECT_EQ(value("ITMChannelType_1"), "1");
}

TEST_F(ChannelAttributesTest, AnOverlongSetupLineCostsNoMoreMemoryThanTheLineBuffer) {
  std::filesystem::create_directories(settings.path());
  vestrel_test::writeOverlongLine(settings.file("TraceCntrl-itm.ini"), "ITM_0=1", 64, ' ', "\nITM_1=1\n");
  vestrel_test::expectReadWithin(16u << 20, [&] { return value("ITMChannelType_1") == "1"; });
}

TEST_F(ChannelAttributesTest, PortNumbersBeyondThirtyTwoBitsNeverWrapOntoATablePort) {
  setupFile("ITM_0=0\nITM_1=1\n");
  // Wrapped to 32 bits these would read as ports 0 and 1.
  EXPECT_EQ(value("ITMChannelType_4294967296"), "0");
  EXPECT_EQ(value("ITMChannelType_4294967297"), "0");
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver: Unhandled Attribute = ITMChannelType_4294967296"));
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver: Unhandled Attribute = ITMChannelType_4294967297"));
}

TEST_F(ChannelAttributesTest, SetupLinesWhosePortOrTypeIsBeyondThirtyTwoBitsNeverWrap) {
  setupFile("ITM_0=4294967297\nITM_4294967297=1\nITM_1=0\n");
  EXPECT_EQ(value("ITMChannelType_0"), "0");  // saturated, not 1
  EXPECT_EQ(driver->itmChannelTypes()[0], 2147483647);
  EXPECT_TRUE(
      log.contains("Vestrel_ChannelDriver: Read channel number 2147483647 instead of expected channel number 1"));
  EXPECT_EQ(driver->itmChannelTypes()[1], -1);
}

TEST_F(ChannelAttributesTest, AnUnknownNameAnswersZeroAsAFlag) {
  std::uint32_t type = 0;
  EXPECT_EQ(value("Something Else", &type), "0");
  EXPECT_EQ(type, 1u);
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver: Unhandled Attribute = Something Else"));
  EXPECT_TRUE(log.contains("Vestrel_ChannelDriver: Get the attribute Something Else."));
}

TEST_F(ChannelAttributesTest, TheSetupIsReadAgainAfterARecordingStops) {
  value("ITMChannelType_0");
  EXPECT_TRUE(driver->itmSetupLoaded());
  setupFile("ITM_0=0\n");
  ChannelDriverTestAccess::setState(*driver, 3);
  driver->SetTargetState(7);
  driver->StopRecording();
  EXPECT_FALSE(driver->itmSetupLoaded());
  EXPECT_EQ(value("ITMChannelType_0"), "0");
}
