#include "AuxPortDiscovery.h"
#include "LinuxTtyNumbers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FakeSerialDevices.h"
#include "SerialDeviceSource.h"

using namespace Kv::Orv::Trace::Vestrel;
using Strings = std::vector<std::string>;

namespace {

class AuxPortDiscoveryTest : public ::testing::Test {
 protected:
  Strings discover(std::uint32_t selector) {
    testing::internal::CaptureStdout();
    Strings ports = enumerateAuxPorts(selector);
    printed = testing::internal::GetCapturedStdout();
    return ports;
  }
  vestrel_test::FakeSerialDevices devices;
  ScopedSerialDeviceSource scope{devices};
  std::string printed;
};

}  // namespace

TEST_F(AuxPortDiscoveryTest, ACalderSerialPortIsListedForCalderAndAnyButNotHarrow) {
  devices.names = {L"Calder Serial Port (COM3)"};
  EXPECT_EQ(discover(0), Strings{"3"});
  EXPECT_EQ(printed, "Enumerated:  Calder Serial Port (COM3)\n");
  EXPECT_EQ(discover(2), Strings{"3"});
  EXPECT_EQ(discover(1), Strings{});
  EXPECT_EQ(printed, "");
}

TEST_F(AuxPortDiscoveryTest, PortsComeInNumericNotTextualOrder) {
  devices.names = {L"Harrow Class Auxiliary Data Port (COM11)", L"Calder User CDC Serial Port (COM4)"};
  EXPECT_EQ(discover(2), (Strings{"4", "11"}));
  EXPECT_EQ(printed,
            "Enumerated:  Harrow Class Auxiliary Data Port (COM11)\nEnumerated:  Calder User CDC Serial Port (COM4)\n");
}

TEST_F(AuxPortDiscoveryTest, EachSelectorHasItsPatterns) {
  devices.names = {L"Calder User CDC Serial Port (COM1)", L"Calder Serial Port (COM2)",
                   L"Harrow Class Auxiliary Data Port (COM3)", L"Other USB Serial (COM4)"};
  EXPECT_EQ(discover(0), (Strings{"1", "2"}));
  EXPECT_EQ(discover(1), Strings{"3"});
  EXPECT_EQ(discover(2), (Strings{"1", "2", "3"}));
}

TEST_F(AuxPortDiscoveryTest, TheMatchIsCaseSensitive) {
  devices.names = {L"harrow class auxiliary data port (COM5)"};
  EXPECT_EQ(discover(1), Strings{});
  EXPECT_EQ(discover(2), Strings{});
}

TEST_F(AuxPortDiscoveryTest, APatternAnywhereInTheNameMatches) {
  devices.names = {L"USB: Harrow Class Auxiliary Data Port #2 (COM8)"};
  EXPECT_EQ(discover(1), Strings{"8"});
}

TEST_F(AuxPortDiscoveryTest, AMatchingNameWithoutComIsPrintedButAddsNothing) {
  devices.names = {L"Calder Serial Port"};
  EXPECT_EQ(discover(0), Strings{});
  EXPECT_EQ(printed, "Enumerated:  Calder Serial Port\n");
}

TEST_F(AuxPortDiscoveryTest, TwoDevicesWithOneNumberBothAppear) {
  devices.names = {L"Calder Serial Port (COM6)", L"Harrow Class Auxiliary Data Port (COM6)"};
  EXPECT_EQ(discover(2), (Strings{"6", "6"}));
}

TEST_F(AuxPortDiscoveryTest, SelectorThreeFindsNothingAndPrintsNothingPerDevice) {
  devices.names = {L"Calder Serial Port (COM6)", L"Harrow Class Auxiliary Data Port (COM7)"};
  EXPECT_EQ(discover(3), Strings{});
  EXPECT_EQ(printed, "");
  EXPECT_EQ(devices.listings, 1);
}

TEST_F(AuxPortDiscoveryTest, AVersionThatCannotBeReadStopsWithItsText) {
  devices.version = SerialDeviceSource::VersionCheck::QueryFailed;
  devices.names = {L"Calder Serial Port (COM6)"};
  EXPECT_EQ(discover(2), Strings{});
  EXPECT_EQ(printed, "CleanUp:  Unable to verify Windows version, exiting...\n");
  EXPECT_EQ(devices.listings, 0);
}

TEST_F(AuxPortDiscoveryTest, AnOldWindowsStopsWithItsText) {
  devices.version = SerialDeviceSource::VersionCheck::TooOld;
  devices.names = {L"Calder Serial Port (COM6)"};
  EXPECT_EQ(discover(2), Strings{});
  EXPECT_EQ(printed, "CleanUp:  This utility is  designed to run on Windows XP/2003 and later\n");
}

TEST_F(AuxPortDiscoveryTest, ADeviceListThatCannotBeOpenedGivesAnEmptyList) {
  devices.listFails = true;
  devices.names = {L"Calder Serial Port (COM6)"};
  EXPECT_EQ(discover(2), Strings{});
  EXPECT_EQ(printed, "");
}

TEST(ComNumber, DigitsRightAfterTheFirstCom) {
  int number = -1;
  EXPECT_TRUE(comNumberOf(L"Port (COM12)", number));
  EXPECT_EQ(number, 12);
  EXPECT_TRUE(comNumberOf(L"COM3 and COM4", number));
  EXPECT_EQ(number, 3);
  EXPECT_TRUE(comNumberOf(L"Port (COM)", number));
  EXPECT_EQ(number, 0);
  EXPECT_TRUE(comNumberOf(L"Port COMx9", number));
  EXPECT_EQ(number, 0);
  EXPECT_FALSE(comNumberOf(L"Port (com5)", number));
}

TEST(ComNumber, ReadAsWtoiReadsIt) {
  int number = -1;
  EXPECT_TRUE(comNumberOf(L"Port (COM 5)", number));  // leading blanks
  EXPECT_EQ(number, 5);
  EXPECT_TRUE(comNumberOf(L"Port (COM+6)", number));  // a sign
  EXPECT_EQ(number, 6);
  EXPECT_TRUE(comNumberOf(L"Port (COM99999999999)", number));  // saturates
  EXPECT_EQ(number, 2147483647);
  EXPECT_TRUE(comNumberOf(L"Port (COM4294967303)", number));  // never wraps to 7
  EXPECT_EQ(number, 2147483647);
}

TEST(WindowsVersion, FiveZeroIsTooOldAndXp2003AndSixOnProceed) {
  using Check = SerialDeviceSource::VersionCheck;
  EXPECT_EQ(classifyWindowsVersion(5, 0), Check::TooOld);
  EXPECT_EQ(classifyWindowsVersion(4, 10), Check::TooOld);
  EXPECT_EQ(classifyWindowsVersion(5, 3), Check::TooOld);
  EXPECT_EQ(classifyWindowsVersion(5, 1), Check::Supported);
  EXPECT_EQ(classifyWindowsVersion(5, 2), Check::Supported);
  EXPECT_EQ(classifyWindowsVersion(6, 0), Check::Supported);
  EXPECT_EQ(classifyWindowsVersion(6, 3), Check::Supported);
  EXPECT_EQ(classifyWindowsVersion(10, 0), Check::Supported);
}

// Linux's USB serial ttys each get a number of their own.
TEST(LinuxTtyNumbers, AcmAndUsbTtysNeverShareAComNumber) {
  namespace tty = Kv::Orv::Trace::Vestrel::tty;
  EXPECT_EQ(tty::comNumberOf("ttyACM3"), "3");
  EXPECT_EQ(tty::comNumberOf("ttyUSB3"), "103");
  EXPECT_EQ(tty::comNumberOf("ttyACM0"), "0");
  EXPECT_EQ(tty::comNumberOf("ttyUSB99"), "199");
  EXPECT_EQ(tty::comNumberOf("ttyACM100"), "");
  EXPECT_EQ(tty::comNumberOf("ttyS0"), "");
  EXPECT_EQ(tty::comNumberOf("ttyUSB"), "");
  EXPECT_EQ(tty::comNumberOf("ttyUSBx"), "");
  EXPECT_EQ(tty::devicePathOf("3"), "/dev/ttyACM3");
  EXPECT_EQ(tty::devicePathOf("103"), "/dev/ttyUSB3");
  EXPECT_EQ(tty::devicePathOf("99"), "/dev/ttyACM99");
  EXPECT_EQ(tty::devicePathOf("200"), "");
  EXPECT_EQ(tty::devicePathOf("x"), "");
}
