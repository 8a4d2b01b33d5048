#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <memory>
#include <string>

#include "ChannelDriver.h"
#include "ChannelDriverTestAccess.h"
#include "FakeSerialDevices.h"
#include "FakeTraceInterface.h"
#include "TestLog.h"
#include "ThrownText.h"

using Kv::Orv::Trace::CReceiver;
using namespace Kv::Orv::Trace::Vestrel;
using vestrel_test::hexkitText;
using Strings = std::vector<std::string>;

namespace {

CReceiver* const kOwner = reinterpret_cast<CReceiver*>(0x1000);

class ChannelConfigurationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    driver = std::make_unique<ChannelDriver>(kOwner, "Probe1/CortexM4", &trace, 7, 0);
    driver->SetProbeKind(kCalderProbe);
  }
  // An options file with these values; a key given as "-" is left out.
  std::string optionsFile(std::map<std::string, std::string> values) {
    std::map<std::string, std::string> all = {
        {"RCVRFWVER", "V 1.0.0.9"}, {"ENCTYPE", "UART"},        {"PRESCALAR", "Manual"}, {"PRESCALARVAL", "35"},
        {"CLKFREQ", "Manual"},      {"CLKFREQVAL", "72000000"}, {"COMPORT", "7"},        {"TSPRESCALAR", "16"}};
    for (const auto& [key, value] : values) all[key] = value;
    std::string text =
        "<?xml version=\"1.0\"?>\n<CHANNEL-SETUP>\n<VERSION version=\"1.1.0.0\"/>\n<RCVRNAME>SWO Trace</RCVRNAME>\n";
    for (const auto& [key, value] : all) {
      if (value != "-") text += "<" + key + ">" + value + "</" + key + ">\n";
    }
    text += "</CHANNEL-SETUP>\n";
    const std::string path = dir.file("options" + std::to_string(files++) + ".xml");
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  std::string configureFailure(std::map<std::string, std::string> values) {
    const std::string path = optionsFile(std::move(values));
    return hexkitText([&] { driver->SetConfiguration(path.c_str()); });
  }
  std::string statusText() {
    Kv::Orv::Trace::ChannelStatus status;
    driver->GetStatus(status);
    return status.text;
  }

  vestrel_test::TestLog log{"1"};
  vestrel_test::ScratchDirectory dir;
  vestrel_test::FakeSerialDevices devices;
  ScopedSerialDeviceSource noPorts{devices};
  vestrel_test::FakeTraceInterface trace;
  std::unique_ptr<ChannelDriver> driver;
  int files = 0;
};

}  // namespace

TEST(FirmwareVersion, TheTextIsCutAfterTheBlankBeforeTheFirstDot) {
  EXPECT_EQ(ChannelDriver::ParseFirmwareVersion("V 2.0.0.5"), 0x02000005u);
  EXPECT_EQ(ChannelDriver::ParseFirmwareVersion("Rev 1.0.0.5"), 0x01000005u);
  EXPECT_EQ(ChannelDriver::ParseFirmwareVersion("Firmware version 1.2.3.40"), 0x01020328u);
  EXPECT_EQ(ChannelDriver::ParseFirmwareVersion("1.0.0.5"), 0x00000005u);   // major read as 0
  EXPECT_EQ(ChannelDriver::ParseFirmwareVersion("12.3.4.5"), 0x02030405u);  // loses its first character
}

TEST(FirmwareVersion, MissingDotsGiveZero) {
  EXPECT_EQ(ChannelDriver::ParseFirmwareVersion(""), 0u);
  EXPECT_EQ(ChannelDriver::ParseFirmwareVersion("V 1005"), 0u);
  EXPECT_EQ(ChannelDriver::ParseFirmwareVersion("V 1.0"), 0u);
  EXPECT_EQ(ChannelDriver::ParseFirmwareVersion("V 1.0.0"), 0u);
  EXPECT_EQ(ChannelDriver::ParseFirmwareVersion("V 1.0.0."), 0x01000000u);
}

TEST_F(ChannelConfigurationTest, AFullConfigurationSetsEverySettingAndReadiesTheDriver) {
  driver->SetConfiguration(optionsFile({}).c_str());
  EXPECT_EQ(driver->state(), 2u);
  EXPECT_EQ(statusText(), "Ready to record");
  EXPECT_EQ(driver->firmwareVersion(), 0x01000009u);
  EXPECT_EQ(driver->encoding(), 2u);
  EXPECT_FALSE(driver->prescalerAuto());
  EXPECT_EQ(driver->prescaler(), 35u);
  EXPECT_FALSE(driver->clockAuto());
  EXPECT_EQ(driver->traceClockHz(), 72000000.0);
  EXPECT_EQ(driver->comPort(), 7u);
  EXPECT_EQ(driver->tsPrescaler(), 16u);
  EXPECT_EQ(driver->options().size(), 8u);
}

TEST_F(ChannelConfigurationTest, ConfigurationLogsItsSteps) {
  const std::string path = optionsFile({});
  driver->SetConfiguration(path.c_str());
  EXPECT_EQ(log.linesStartingWith("Vestrel_ChannelDriver"),
            (Strings{"Vestrel_ChannelDriver: Set configuration called file - " + path + ".",
                     "Vestrel_ChannelDriver: Setting eSWO_ENCODING = UART.",
                     "Vestrel_ChannelDriver: Setting eSWO_TS_PRESCALAR = 16."}));
}

TEST_F(ChannelConfigurationTest, ACalderProbeNeedsFirmwareFrom1005) {
  driver->SetConfiguration(optionsFile({{"RCVRFWVER", "Rev 1.0.0.5"}}).c_str());
  EXPECT_EQ(driver->firmwareVersion(), 0x01000005u);
  ChannelDriverTestAccess::setState(*driver, 5);
  EXPECT_EQ(configureFailure({{"RCVRFWVER", "1.0.0.5"}}),
            "SWO is not supported by the current emulator firmware. Update the firmware to the latest version (check "
            "with your emulator's vendor for details)");
  EXPECT_EQ(driver->state(), 5u);
  EXPECT_EQ(configureFailure({{"RCVRFWVER", "V 1.0.0.4"}}).substr(0, 20), "SWO is not supported");
  EXPECT_EQ(configureFailure({{"RCVRFWVER", "no version"}}).substr(0, 20), "SWO is not supported");
  EXPECT_TRUE(log.linesStartingWith("Vestrel_ChannelDriver: Setting").size() == 2u);
}

TEST_F(ChannelConfigurationTest, OtherProbesTakeAnyFirmwareText) {
  driver->SetProbeKind(kHarrowProbe);
  driver->SetConfiguration(optionsFile({{"RCVRFWVER", "no version"}}).c_str());
  EXPECT_EQ(driver->firmwareVersion(), 0u);
  EXPECT_EQ(driver->state(), 2u);
}

TEST_F(ChannelConfigurationTest, AutoModesKeepTheValuesConfiguredBefore) {
  driver->SetConfiguration(optionsFile({{"PRESCALARVAL", "11"}, {"CLKFREQVAL", "48000000"}}).c_str());
  driver->SetConfiguration(
      optionsFile({{"PRESCALAR", "Auto"}, {"PRESCALARVAL", "99"}, {"CLKFREQ", "Auto"}, {"CLKFREQVAL", "1"}}).c_str());
  EXPECT_TRUE(driver->prescalerAuto());
  EXPECT_TRUE(driver->clockAuto());
  EXPECT_EQ(driver->prescaler(), 11u);
  EXPECT_EQ(driver->traceClockHz(), 48000000.0);
}

TEST_F(ChannelConfigurationTest, AutoInLowerCaseMeansManual) {
  driver->SetConfiguration(optionsFile({{"PRESCALAR", "auto"}, {"PRESCALARVAL", "3"}}).c_str());
  EXPECT_FALSE(driver->prescalerAuto());
  EXPECT_EQ(driver->prescaler(), 3u);
}

TEST_F(ChannelConfigurationTest, ThePlaceholdersAreRefusedWithTheirMessages) {
  EXPECT_EQ(configureFailure({{"PRESCALARVAL", "Prescalar value"}}), "Please specify prescalar in Receiver settings");
  EXPECT_EQ(configureFailure({{"CLKFREQVAL", "Frequency in Hz"}}),
            "Please specify clock frequency in Receiver Settings");
  EXPECT_EQ(configureFailure({{"COMPORT", "-"}}), "Please specify valid COM port number in Receiver Settings");
  EXPECT_EQ(driver->state(), 0u);
}

TEST_F(ChannelConfigurationTest, AMissingOptionIsLoggedAndReadAsEmpty) {
  EXPECT_EQ(configureFailure({{"COMPORT", "-"}}), "Please specify valid COM port number in Receiver Settings");
  const std::string line = log.rawLineOf("Vestrel_ChannelDriver: NULL value for CPU=Probe1/CortexM4 and option ID=6.");
  EXPECT_EQ(line.substr(0, 6), "    E ");
  driver->SetConfiguration(optionsFile({{"PRESCALARVAL", "-"}}).c_str());
  EXPECT_EQ(driver->prescaler(), 0u);
}

TEST_F(ChannelConfigurationTest, NumbersAreReadAsTheCLibraryReadsThem) {
  driver->SetConfiguration(optionsFile({{"COMPORT", "abc"}, {"CLKFREQVAL", "48e6"}, {"PRESCALARVAL", " 12x"}}).c_str());
  EXPECT_EQ(driver->comPort(), 0u);
  EXPECT_EQ(driver->traceClockHz(), 48000000.0);
  EXPECT_EQ(driver->prescaler(), 12u);
}

TEST_F(ChannelConfigurationTest, NumbersBeyondThirtyTwoBitsReadAsOnWindowsOnEveryPlatform) {
  // A 64-bit unsigned long would keep the low bits: COM7 and prescaler 3.
  driver->SetConfiguration(
      optionsFile({{"COMPORT", "4294967303"}, {"PRESCALARVAL", "4294967299"}, {"TSPRESCALAR", "-1"}}).c_str());
  EXPECT_EQ(driver->comPort(), 4294967295u);
  EXPECT_EQ(driver->prescaler(), 4294967295u);
  EXPECT_EQ(driver->tsPrescaler(), 4294967295u);
}

TEST_F(ChannelConfigurationTest, ANullFileNameIsAnInternalError) {
  int severity = 0;
  EXPECT_EQ(hexkitText([&] { driver->SetConfiguration(nullptr); }, &severity), "Internal error setting configuration.");
  EXPECT_EQ(severity, 2);
  EXPECT_EQ(log.rawLineOf("SetConfiguration called with null options for CortexM4").substr(0, 6), "    E ");
}

TEST_F(ChannelConfigurationTest, ALoadFailurePassesUnchangedAndLeavesTheState) {
  EXPECT_EQ(hexkitText([&] { driver->SetConfiguration(dir.file("missing.xml").c_str()); }),
            "Undefined exception occurred while parsing emulation setup file");
  EXPECT_EQ(driver->state(), 0u);
  EXPECT_TRUE(driver->options().empty());
}

TEST_F(ChannelConfigurationTest, AStoppedDriverIsReadyAgainAfterConfiguration) {
  ChannelDriverTestAccess::setState(*driver, 5);
  driver->SetConfiguration(optionsFile({}).c_str());
  EXPECT_EQ(statusText(), "Ready to record");
}
