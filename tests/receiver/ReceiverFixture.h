// The receiver with a scripted probe behind it: the fake OS services, the
// probe scenario the simulators read, and the CPU's trace interface.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "FakeOsServices.h"
#include "FakeTraceInterface.h"
#include "ProbeScenario.h"
#include "Receiver.h"
#include "TestLog.h"
#include "ThrownText.h"

namespace vestrel_test {

class ReceiverTest : public ::testing::Test {
 protected:
  void SetUp() override { scenario.workingProbe(); }
  Kv::Orv::Trace::CChannelDriver* driverFor(Kv::Orv::Trace::CReceiver& receiver, const char* cpu,
                                            std::uint32_t handle = 7) {
    return receiver.GetChannelDriver(cpu, &trace, handle, 0);
  }
  std::string driverFailure(const std::string& scenarioText) {
    scenario.write(scenarioText);
    Kv::Orv::Trace::Vestrel::Receiver receiver;
    return hexkitText([&] { driverFor(receiver, "Probe1/CortexM4"); });
  }

  TestLog log{"3"};
  FakeOsServices fake;
  KV_ORV::ScopedOsOverride override{fake};
  ProbeScenario scenario;
  FakeTraceInterface trace;
};

}  // namespace vestrel_test
