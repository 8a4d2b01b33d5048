// A channel driver for "Probe1/CortexM4" behind a Calder probe, with a
// scripted port, device and trace interface, and an options file written
// from key/value pairs: what the recording and fault tests start from.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>

#include "ChannelDriver.h"
#include "ChannelDriverTestAccess.h"
#include "FakeDevice.h"
#include "FakeSerialApi.h"
#include "FakeSerialDevices.h"
#include "FakeTraceInterface.h"
#include "TestLog.h"
#include "ThrownText.h"

namespace vestrel_test {

using Kv::Orv::Trace::CReceiver;
using namespace Kv::Orv::Trace::Vestrel;
using Strings = std::vector<std::string>;

CReceiver* const kOwner = reinterpret_cast<CReceiver*>(0x1000);

const Strings kTpiuCalls = {"SetTpiuPrescaler(7, 35)", "SetPinProtocol(7, 2)", "SetTimestampPrescaler(7, 16)",
                            "ProgramTpiu(7)", "EnableTpiu(7)"};

class ChannelRecordingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    driver = std::make_unique<ChannelDriver>(kOwner, "Probe1/CortexM4", &trace, 7, 0);
    driver->SetProbeKind(kCalderProbe);
    driver->SetDeviceIdentifier(&device);
    driver->SetTargetAdapter(&device);
  }
  void configure(std::map<std::string, std::string> values = {}) {
    std::map<std::string, std::string> all = {
        {"RCVRFWVER", "V 1.0.0.9"}, {"ENCTYPE", "UART"},        {"PRESCALAR", "Manual"}, {"PRESCALARVAL", "35"},
        {"CLKFREQ", "Manual"},      {"CLKFREQVAL", "72000000"}, {"COMPORT", "7"},        {"TSPRESCALAR", "16"}};
    for (const auto& [key, value] : values) all[key] = value;
    std::string text = "<CHANNEL-SETUP><VERSION version=\"1.1.0.0\"/><RCVRNAME>SWO Trace</RCVRNAME>";
    for (const auto& [key, value] : all) text += "<" + key + ">" + value + "</" + key + ">";
    text += "</CHANNEL-SETUP>";
    const std::string path = dir.file("options.xml");
    std::ofstream(path, std::ios::binary) << text;
    driver->SetConfiguration(path.c_str());
    trace.calls.clear();
  }
  Strings portCalls() { return port.callsSnapshot(); }
  bool portClosed() {
    const Strings calls = portCalls();
    return !calls.empty() && std::find(calls.begin(), calls.end(), "closePort") != calls.end();
  }

  vestrel_test::TestLog log{"3", vestrel_test::TestLog::StartupNamed{}};
  vestrel_test::ScratchDirectory dir;
  vestrel_test::FakeSerialDevices devices;
  ScopedSerialDeviceSource noPorts{devices};
  vestrel_test::FakeSerialApi port;
  ScopedSerialApi usePort{port};
  vestrel_test::FakeDevice device;
  vestrel_test::FakeTraceInterface trace;
  std::unique_ptr<ChannelDriver> driver;
};

}  // namespace vestrel_test
