// What the UART collector's tests share: a collector opened on the scripted
// serial port, run on its own thread to the end, and its log lines.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FakeSerialApi.h"
#include "TestLog.h"
#include "TestSupport.h"
#include "ThrownText.h"
#include "UARTDataCollector.h"
#include "uThread.h"

namespace vestrel_test {

using namespace Kv::Orv::Trace::Vestrel;
using Strings = std::vector<std::string>;

inline const char* const kCalibrationFailed =
    "Failed to calibrate prescalar automatically. Please set prescalar manually in Receiver settings";

class CollectorTest : public ::testing::Test {
 protected:
  std::unique_ptr<UARTDataCollector> open(std::uint32_t port = 7, double clock = 72000000.0, bool automatic = false,
                                          bool sendBreak = false) {
    return std::make_unique<UARTDataCollector>(port, clock, automatic, prescaler, capturePath(), sendBreak);
  }
  std::string openFailure(double clock = 72000000.0, bool automatic = false) {
    return hexkitText([&] { open(7, clock, automatic); });
  }
  std::string capturePath() const { return dir.file("swotrace_core.bin"); }
  std::string captured() const { return vestrel_test::readFile(capturePath()); }
  // Runs the collector on its own thread until the fake has delivered
  // everything, then stops it the way the channel driver does.
  void runToEnd(UARTDataCollector& collector, std::uint64_t expectedBytes) {
    KV_ORV::uThread thread(&collector, 0, 0);
    ASSERT_TRUE(thread.start());
    while (fake.deliveredBytes < expectedBytes && !collector.isFinished()) KV_ORV::yield();
    collector.stop();
    while (!collector.isFinished()) KV_ORV::yield();
  }
  Strings errorLines() const {
    Strings lines;
    for (const auto& line : log.rawLines()) {
      if (line.find("Vestrel_UARTCollector") != std::string::npos) lines.push_back(line.substr(0, 6) + line.substr(21));
    }
    return lines;
  }

  vestrel_test::TestLog log{"1", vestrel_test::TestLog::StartupNamed{}};
  vestrel_test::ScratchDirectory dir;
  FakeSerialApi fake;
  ScopedSerialApi scope{fake};
  std::uint32_t prescaler = 35;
};

}  // namespace vestrel_test
