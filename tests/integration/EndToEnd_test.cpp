// The whole chain as a host drives it, through the exported entry points
// only: load the library, create the receiver, get a driver for a CPU (probe
// simulator behind it), configure it from an options file, let the target
// run (recording starts), push bytes through the serial line behind COM7,
// halt the target (recording stops), read the samples back and save them in
// both formats, release the driver and destroy the receiver.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>

#include "CReceiver.h"
#include "FakeTraceInterface.h"
#include "PortFeeder.h"
#include "ProbeScenario.h"
#include "cHexkitError.h"
#include "uDll.h"
#include "uThread.h"

using Kv::Orv::Trace::CChannelDriver;
using Kv::Orv::Trace::ChannelStatus;
using Kv::Orv::Trace::CReceiver;
using vestrel_test::ScopedEnv;
using vestrel_test::ScratchDirectory;

namespace {

constexpr const char* kCpu = "Probe1/CortexM4";

std::string randomBytes(std::size_t size) {
  std::mt19937_64 generator(7);
  std::string data(size, '\0');
  for (std::size_t i = 0; i < size; i += 8) {
    const std::uint64_t word = generator();
    std::memcpy(&data[i], &word, std::min<std::size_t>(8, size - i));
  }
  return data;
}

std::string word(std::uint32_t value) {
  return std::string{static_cast<char>(value), static_cast<char>(value >> 8), static_cast<char>(value >> 16),
                     static_cast<char>(value >> 24)};
}

std::string statusOf(CChannelDriver& driver) {
  ChannelStatus status;
  driver.GetStatus(status);
  return status.text;
}

}  // namespace

TEST(EndToEnd, ACaptureThroughTheExportedEntryPointsIsByteExact) {
  vestrel_test::PortFeeder feeder(7);
  ASSERT_TRUE(feeder.ready()) << feeder.why();
  ScratchDirectory profile;
  ScopedEnv userProfile("USERPROFILE", profile.path());
  ScopedEnv logging("KV_TRACE_LOGGING", "1");
  vestrel_test::ProbeScenario scenario;
  scenario.workingProbe();
  vestrel_test::FakeTraceInterface trace;

  KV_ORV::uDll library;
  ASSERT_TRUE(library.FindAndLoad("Vestrel", 0xFFFFFFFF)) << library.LastError();
  auto create = reinterpret_cast<CreateRcvrFunction>(library.GetSymbol("CreateRcvr"));
  auto destroy = reinterpret_cast<DestroyRcvrFunction>(library.GetSymbol("DestroyRcvr"));
  ASSERT_NE(create, nullptr);
  ASSERT_NE(destroy, nullptr);

  const std::string options = profile.file("options.xml");
  std::ofstream(options, std::ios::binary)
      << "<?xml version=\"1.0\"?>\n<CHANNEL-SETUP>\n<VERSION version=\"1.1.0.0\"/>\n<RCVRNAME>SWO Trace</RCVRNAME>\n"
         "<RCVRFWVER>V 1.0.0.9</RCVRFWVER>\n<ENCTYPE>UART</ENCTYPE>\n<PRESCALAR>Manual</PRESCALAR>\n"
         "<PRESCALARVAL>0</PRESCALARVAL>\n<CLKFREQ>Manual</CLKFREQ>\n<CLKFREQVAL>2000000</CLKFREQVAL>\n"
         "<COMPORT>7</COMPORT>\n<TSPRESCALAR>4</TSPRESCALAR>\n</CHANNEL-SETUP>\n";
  const std::string data = randomBytes((1u << 20) + 13);
  const std::string padded = data + std::string((8 - data.size() % 8) % 8, '\0');

  try {
    CReceiver* receiver = create();
    ASSERT_NE(receiver, nullptr);
    CChannelDriver* driver = receiver->GetChannelDriver(kCpu, &trace, 7, 0);
    ASSERT_NE(driver, nullptr);
    driver->SetConfiguration(options.c_str());
    EXPECT_EQ(statusOf(*driver), "Ready to record");

    trace.calls.clear();
    receiver->OnTargetStateChanged(kCpu, 5);  // running: recording starts
    EXPECT_EQ(statusOf(*driver), "Recording");
    EXPECT_EQ(trace.calls,
              (std::vector<std::string>{"TraceOff(7)", "TraceStop(7)", "GetTraceExportStatus(7)",
                                        "SetTpiuPrescaler(7, 0)", "SetPinProtocol(7, 2)", "SetTimestampPrescaler(7, 4)",
                                        "ProgramTpiu(7)", "EnableTpiu(7)"}));

    ASSERT_TRUE(feeder.write(data.data(), data.size()));
    const std::uint32_t expectedSamples = static_cast<std::uint32_t>(padded.size() / 8);
    for (int wait = 0; wait < 30000 && driver->GetNumSamples() < expectedSamples; ++wait) KV_ORV::sleepMs(1);
    // The samples can be read while the capture still runs.
    EXPECT_EQ(driver->GetNumSamples(), expectedSamples);

    receiver->OnTargetStateChanged(kCpu, 7);  // halted: recording stops
    EXPECT_EQ(statusOf(*driver), "Stopped by user");
    EXPECT_EQ(trace.calls.back(), "TraceOff(7)");

    ASSERT_EQ(driver->GetNumSamples(), expectedSamples);
    std::string samples(padded.size(), '\0');
    std::uint32_t position = 0;
    while (position < expectedSamples) {
      std::uint32_t got = 0;
      const std::uint32_t n = driver->SeekReadTraceData(
          position, 4096, reinterpret_cast<std::uint64_t*>(&samples[static_cast<std::size_t>(position) * 8]), &got);
      ASSERT_GT(n, 0u);
      position += n;
    }
    EXPECT_TRUE(samples == padded) << "the samples differ from the bytes sent";

    const std::string dump = profile.file("dump.bin");
    driver->SaveToFile(dump, 2);
    EXPECT_TRUE(vestrel_test::readFile(dump) == padded) << "the binary dump differs from the bytes sent";

    const std::string tdf = profile.file("trace.tdf");
    std::ofstream(tdf, std::ios::binary) << "TDF1";
    driver->SaveToFile(tdf, 0);
    EXPECT_TRUE(vestrel_test::readFile(tdf) == "TDF1" + word(static_cast<std::uint32_t>(24 + padded.size())) + word(1) +
                                                   word(12) + "BinTraceData" + padded)
        << "the TDF section differs from the bytes sent";

    receiver->ReleaseChannelDriver(driver);
    EXPECT_EQ(trace.calls.back(), "ReleaseTrace(7)");
    destroy(receiver);
  } catch (const Kv::Orv::Hexkit::cHexkitError& e) {
    FAIL() << "cHexkitError: " << e.GetMessage() << " (severity " << e.GetSeverity() << ")";
  }
}
