// Discovery through the machine's real device list (SetupAPI under Wine,
// sysfs on Linux), with probe ports added for the test.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AuxPortDiscovery.h"
#include "SerialDeviceSource.h"
#include "SystemPorts.h"
#include "TestSupport.h"

using namespace Kv::Orv::Trace::Vestrel;
using Strings = std::vector<std::string>;

namespace {

Strings discover(std::uint32_t selector, std::string* printed = nullptr) {
  testing::internal::CaptureStdout();
  Strings ports = enumerateAuxPorts(selector);
  const std::string out = testing::internal::GetCapturedStdout();
  if (printed != nullptr) *printed = out;
  return ports;
}

}  // namespace

TEST(SystemPorts, TheSystemSourceRunsOnThisSystem) {
  vestrel_test::SystemPorts ports;
  EXPECT_EQ(systemSerialDevices().checkVersion(), SerialDeviceSource::VersionCheck::Supported);
  std::vector<std::wstring> names;
  EXPECT_TRUE(systemSerialDevices().friendlyNames(names));
  EXPECT_TRUE(names.empty());
}

TEST(SystemPorts, EachSelectorListsItsProbesPortsFromTheSystem) {
  vestrel_test::SystemPorts ports;
  ports.add(L"Calder User CDC Serial Port", 4);
  ports.add(L"Harrow Class Auxiliary Data Port", 11);
  ports.add(L"Calder Serial Port", 3);
  ports.add(L"harrow class auxiliary data port", 5);  // wrong case: not a probe port
  ports.add(L"Harrow Class Auxiliary Data Port", 7);
  ports.add(L"Calder Serial Port", 107);  // ttyUSB7 on Linux, beside ttyACM7
  ports.add(L"Generic USB Serial", 9);

  std::vector<std::wstring> names;
  ASSERT_TRUE(systemSerialDevices().friendlyNames(names));
  EXPECT_EQ(names.size(), 7u);

  EXPECT_EQ(discover(0), (Strings{"3", "4", "107"}));
  EXPECT_EQ(discover(1), (Strings{"7", "11"}));
  EXPECT_EQ(discover(2), (Strings{"3", "4", "7", "11", "107"}));
  std::string printed;
  EXPECT_EQ(discover(3, &printed), Strings{});
  EXPECT_EQ(printed, "");
}

TEST(SystemPorts, AProbePortWithoutANumberIsEnumeratedButNotListed) {
  vestrel_test::SystemPorts ports;
  ports.add(L"Calder Serial Port", 2);
  if (!ports.addWithoutNumber(L"Calder Serial Port")) {
    // Linux device names always carry the tty index; the case is covered
    // there by the scripted-source tests.
    EXPECT_EQ(discover(0), Strings{"2"});
    return;
  }
  std::string printed;
  EXPECT_EQ(discover(0, &printed), Strings{"2"});
  EXPECT_NE(printed.find("Enumerated:  Calder Serial Port\n"), std::string::npos);
  EXPECT_NE(printed.find("Enumerated:  Calder Serial Port (COM2)\n"), std::string::npos);
}
