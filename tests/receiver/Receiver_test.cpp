// The receiver: its device identifier, the probe and board checks behind a
// driver request, the target adapter, and the list of drivers it keeps.
#include "Receiver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <string>

#include "ChannelDriver.h"
#include "DeviceSupport.h"
#include "FakeTraceInterface.h"
#include "ProbeScenario.h"
#include "ReceiverFixture.h"
#include "ThrownText.h"

using Kv::Orv::Trace::CChannelDriver;
using Kv::Orv::Trace::CReceiver;
using namespace Kv::Orv::Trace::Vestrel;
using vestrel_test::FakeTraceInterface;
using vestrel_test::hexkitText;
using vestrel_test::loaderName;
using vestrel_test::ProbeScenario;
using vestrel_test::ReceiverTest;

TEST_F(ReceiverTest, ConstructionLoadsTheDeviceIdentifier) {
  Receiver receiver;
  EXPECT_NE(receiver.deviceIdentifier(), nullptr);
  EXPECT_EQ(fake.loadedFiles, std::vector<std::string>{loaderName("DeviceIdentifier")});
}

TEST_F(ReceiverTest, AMissingDeviceIdentifierLibraryIsThrown) {
  fake.libraryRedirects[loaderName("DeviceIdentifier")] = loaderName("vestrel_no_such_library");
  int severity = 0;
  EXPECT_EQ(hexkitText([] { Receiver receiver; }, &severity), "Failed to load DeviceIdentifier");
  EXPECT_EQ(severity, 2);
}

TEST_F(ReceiverTest, ADeviceIdentifierLibraryWithoutItsExportsIsThrown) {
  fake.libraryRedirects[loaderName("DeviceIdentifier")] = loaderName("vestrel_tiny");
  EXPECT_EQ(hexkitText([] { Receiver receiver; }), "Missing exports in device identifier dll");
}

TEST_F(ReceiverTest, ANullDeviceIdentifierIsThrown) {
  scenario.write("identifier = null\n");
  EXPECT_EQ(hexkitText([] { Receiver receiver; }), "Internal error, failed to create device identifier");
}

// What the library throws is thrown again as the receiver's own error, so
// that the library can be unloaded on the way out: the host never holds an
// exception whose code went with the library (under Windows it crashed).
TEST_F(ReceiverTest, ADeviceIdentifierThatThrowsFailsTheConstructionWithItsTextAndIsUnloaded) {
  scenario.write("identifier = throw\n");
  int severity = 0;
  EXPECT_EQ(hexkitText([] { Receiver receiver; }, &severity), "device identifier: create failed");
  EXPECT_EQ(severity, 2);
  EXPECT_EQ(fake.loadedLibraries, 1);
  EXPECT_EQ(fake.freedLibraries, 1);
}

TEST_F(ReceiverTest, ADeviceIdentifierThatThrowsAHexkitErrorKeepsItsTextAndSeverity) {
  scenario.write("identifier = hexkit_error\n");
  int severity = 0;
  EXPECT_EQ(hexkitText([] { Receiver receiver; }, &severity), "device identifier: no licence");
  EXPECT_EQ(severity, 1);
  EXPECT_EQ(fake.freedLibraries, 1);
}

TEST_F(ReceiverTest, ADeviceIdentifierOutOfMemoryFailsTheConstructionWithBadAllocAndIsUnloaded) {
  scenario.write("identifier = out_of_memory\n");
  EXPECT_THROW(Receiver receiver, std::bad_alloc);
  EXPECT_EQ(fake.loadedLibraries, 1);
  EXPECT_EQ(fake.freedLibraries, 1);
}

TEST_F(ReceiverTest, WithoutDriversTheRegistryIsEmpty) {
  Receiver receiver;
  CReceiver& host = receiver;
  EXPECT_EQ(host.GetNumAttachedCpus(), 0u);
  EXPECT_EQ(host.GetNextAvailableChannel(), 1u);
  EXPECT_EQ(host.FindChannelDriver("Probe1/CortexM4"), nullptr);
  char buffer[64] = "untouched";
  char* names[] = {buffer};
  host.GetCpuNames(names);
  EXPECT_STREQ(buffer, "untouched");
  host.GetCpuNames(nullptr);
  EXPECT_EQ(log.linesStartingWith("Vestrel_Receiver"),
            (std::vector<std::string>{"Vestrel_Receiver: number of attached cpus is 0",
                                      "Vestrel_Receiver: next available channel is 1"}));
}

TEST_F(ReceiverTest, ADriverIsHandedOutForACalderProbeAndASupportedDevice) {
  Receiver receiver;
  CReceiver& host = receiver;
  CChannelDriver* driver = host.GetChannelDriver("Probe1/CortexM4", &trace, 7, 9);
  ASSERT_NE(driver, nullptr);
  auto* channel = dynamic_cast<ChannelDriver*>(driver);
  ASSERT_NE(channel, nullptr);
  EXPECT_EQ(channel->probeKind(), kCalderProbe);
  EXPECT_EQ(channel->deviceIdentifier(), receiver.deviceIdentifier());
  EXPECT_NE(channel->targetAdapter(), nullptr);
  EXPECT_EQ(channel->cpuHandle(), 7u);
  EXPECT_EQ(channel->auxId(), 9u);
  EXPECT_EQ(receiver.probeKind(), kCalderProbe);
  // SetupAdapter4 is loaded for each of the three board questions.
  const std::string setup = loaderName("SetupAdapter4");
  EXPECT_EQ(fake.loadedFiles, (std::vector<std::string>{loaderName("DeviceIdentifier"), setup, setup, setup,
                                                        loaderName("ICETargetAdapter")}));
  EXPECT_EQ(fake.freedLibraries, 3);
}

TEST_F(ReceiverTest, AHarrowProbeIsAcceptedToo) {
  scenario.write(
      "board * = " + scenario.board("$ product\n  name=\"Harrow\"\n$ swd\n  swd_debug=enabled\n  swo_data=tdo_pin\n") +
      "\ndevice_id = 0x0BB4D02F\n");
  Receiver receiver;
  auto* channel = dynamic_cast<ChannelDriver*>(driverFor(receiver, "cpu"));
  ASSERT_NE(channel, nullptr);
  EXPECT_EQ(channel->probeKind(), kHarrowProbe);
}

TEST_F(ReceiverTest, TheBoardFileIsAskedForTheRequestingCpu) {
  scenario.write(
      "board Probe1/CortexM4 = " + scenario.board("$ calder\n$ swd\n  swd_debug=enabled\n  swo_data=tdo_pin\n") +
      "\nboard * = " + scenario.board("$ nothing\n", "other.txt") + "\ndevice_id = 0x0B9AF02F\n");
  Receiver receiver;
  EXPECT_NE(driverFor(receiver, "Probe1/CortexM4"), nullptr);
  EXPECT_EQ(hexkitText([&] { driverFor(receiver, "Probe2/CortexM0"); }),
            "SWO trace is not supported by this emulator.");
}

TEST_F(ReceiverTest, EachBoardQuestionOpensTheBoardFileOnceAndClosesIt) {
  const std::string board = scenario.board("$ calder\n$ swd\n  swd_debug=enabled\n  swo_data=tdo_pin\n");
  Receiver receiver;
  ASSERT_NE(driverFor(receiver, "Probe1/CortexM4"), nullptr);
  // The probe kind, then the SWD check's two entries.
  const std::string opened = board + " (r)";
  EXPECT_EQ(fake.openedStreams, (std::vector<std::string>{opened, opened, opened}));
  EXPECT_EQ(fake.closedStreams, 3);
  EXPECT_EQ(fake.streamsOpen(), 0);
}

TEST_F(ReceiverTest, ABoardFileThatDoesNotOpenIsSkippedAndNothingIsLeftOpen) {
  const std::string missing = scenario.file("no-such-board.txt");
  EXPECT_EQ(driverFailure("board * = " + missing + "\ndevice_id = 0x0B9AF02F\n"),
            "SWO trace is not supported by this emulator.");
  EXPECT_EQ(fake.openedStreams, std::vector<std::string>{missing + " (r) failed"});
  EXPECT_EQ(fake.closedStreams, 0);
}

TEST_F(ReceiverTest, AnUnknownProbeIsNotSupported) {
  EXPECT_EQ(driverFailure("board * = " + scenario.board("$ other\n") + "\ndevice_id = 0x0B9AF02F\n"),
            "SWO trace is not supported by this emulator.");
  EXPECT_EQ(driverFailure("device_id = 0x0B9AF02F\n"), "SWO trace is not supported by this emulator.");
}

TEST_F(ReceiverTest, ASetupAdapterThatFailsToInitializeIsLoggedAndUnsupported) {
  EXPECT_EQ(driverFailure("initialize = fail no probe connected\n"), "SWO trace is not supported by this emulator.");
  const std::string line = log.rawLineOf("Vestrel_Receiver: Unable to initialize SetupAdapter4 : no probe connected");
  EXPECT_EQ(line.substr(0, 6), "    E ");
}

TEST_F(ReceiverTest, ANullSetupAdapterIsLoggedAndUnsupported) {
  EXPECT_EQ(driverFailure("setup_adapter = null\n"), "SWO trace is not supported by this emulator.");
  EXPECT_TRUE(log.contains("Vestrel_Receiver: CreateSetupAdapter returned null in SetupAdapter4"));
}

TEST_F(ReceiverTest, ASetupAdapterThatThrowsIsLoggedAndUnsupported) {
  EXPECT_EQ(driverFailure("initialize = throw\n"), "SWO trace is not supported by this emulator.");
  EXPECT_TRUE(log.contains("Vestrel_Receiver: exception using SetupAdapter4"));
}

TEST_F(ReceiverTest, ASetupAdapterWhoseCreationOrDestructionThrowsIsLoggedAndUnsupported) {
  const auto exceptionsLogged = [&] {
    const auto lines = log.lines();
    return std::count(lines.begin(), lines.end(), "Vestrel_Receiver: exception using SetupAdapter4");
  };
  for (const char* line : {"setup_adapter = throw\n", "destroy_setup_adapter = throw\n"}) {
    const auto before = exceptionsLogged();
    fake.loadedLibraries = 0;
    fake.freedLibraries = 0;
    EXPECT_EQ(driverFailure(line), "SWO trace is not supported by this emulator.") << line;
    EXPECT_EQ(exceptionsLogged(), before + 1) << line;  // the probe-kind question, which finds no probe
    EXPECT_EQ(fake.loadedLibraries, fake.freedLibraries) << line;
  }
}

TEST_F(ReceiverTest, ASetupAdapterLibraryWithoutItsFactoryIsLoggedAndUnsupported) {
  fake.libraryRedirects[loaderName("SetupAdapter4")] = loaderName("vestrel_tiny");
  Receiver receiver;
  EXPECT_EQ(hexkitText([&] { driverFor(receiver, "cpu"); }), "SWO trace is not supported by this emulator.");
  EXPECT_TRUE(log.contains("Vestrel_Receiver: Unable to find CreateSetupAdapter in SetupAdapter4"));
}

TEST_F(ReceiverTest, AMissingSetupAdapterLibraryIsThrown) {
  fake.libraryRedirects[loaderName("SetupAdapter4")] = loaderName("vestrel_no_such_library");
  Receiver receiver;
  EXPECT_EQ(hexkitText([&] { driverFor(receiver, "cpu"); }), "Failed to load SetupAdapter4");
}

TEST_F(ReceiverTest, AnUnsupportedDeviceIsRefused) {
  EXPECT_EQ(driverFailure("board * = " + scenario.board("$ calder\n") + "\ndevice_id = 0x12345678\n"),
            "SWO trace is not supported by this device.");
}

TEST_F(ReceiverTest, AWrongProbeConfigurationIsThrownWithItsMessage) {
  EXPECT_EQ(driverFailure("board * = " + scenario.board("$ calder\n$ swd\n  swd_debug=enabled\n") +
                          "\ndevice_id = 0x0B9AF02F\n"),
            kSwdConfigurationMessage);
  EXPECT_EQ(driverFailure("board * = " + scenario.board("$ calder\n$ swd\n  swo_data=tdo_pin\n") +
                          "\ndevice_id = 0x0B99A02F\n"),
            kCjtagConfigurationMessage);
}

TEST_F(ReceiverTest, ANullTargetAdapterIsThrown) {
  scenario.workingProbe("target_adapter = null\n");
  Receiver receiver;
  EXPECT_EQ(hexkitText([&] { driverFor(receiver, "cpu"); }),
            "Cannot get target adapter for SWO receiver. Bad installation or setup.");
  EXPECT_EQ(receiver.GetNumAttachedCpus(), 0u);
}

TEST_F(ReceiverTest, ATargetAdapterLibraryWithoutItsFactoryIsThrown) {
  fake.libraryRedirects[loaderName("ICETargetAdapter")] = loaderName("vestrel_tiny");
  Receiver receiver;
  EXPECT_EQ(hexkitText([&] { driverFor(receiver, "cpu"); }), "Cannot get target adapter factory. Bad installation.");
}

TEST_F(ReceiverTest, AMissingTargetAdapterLibraryIsThrown) {
  fake.libraryRedirects[loaderName("ICETargetAdapter")] = loaderName("vestrel_no_such_library");
  Receiver receiver;
  EXPECT_EQ(hexkitText([&] { driverFor(receiver, "cpu"); }), "Failed to load ICETargetAdapter");
}

TEST_F(ReceiverTest, AFailedTargetAdapterLoadDoesNotStickAndARepairedInstallationIsFound) {
  fake.libraryRedirects[loaderName("ICETargetAdapter")] = loaderName("vestrel_no_such_library");
  Receiver receiver;
  EXPECT_EQ(hexkitText([&] { driverFor(receiver, "cpu"); }), "Failed to load ICETargetAdapter");
  EXPECT_EQ(hexkitText([&] { driverFor(receiver, "cpu"); }), "Failed to load ICETargetAdapter");
  fake.libraryRedirects.clear();
  EXPECT_NE(driverFor(receiver, "Probe1/A"), nullptr);
  EXPECT_EQ(receiver.GetNumAttachedCpus(), 1u);
}

TEST_F(ReceiverTest, ATargetAdapterLibraryWithoutItsFactoryStaysLoadedAndIsNotLoadedAgain) {
  fake.libraryRedirects[loaderName("ICETargetAdapter")] = loaderName("vestrel_tiny");
  {
    Receiver receiver;
    EXPECT_EQ(hexkitText([&] { driverFor(receiver, "cpu"); }), "Cannot get target adapter factory. Bad installation.");
    EXPECT_EQ(hexkitText([&] { driverFor(receiver, "cpu"); }), "Cannot get target adapter factory. Bad installation.");
    fake.libraryRedirects.clear();  // repaired now, but the loaded library is kept
    EXPECT_EQ(hexkitText([&] { driverFor(receiver, "cpu"); }), "Cannot get target adapter factory. Bad installation.");
    int adapterLoads = 0;
    for (const auto& file : fake.loadedFiles) adapterLoads += file == loaderName("ICETargetAdapter");
    EXPECT_EQ(adapterLoads, 1);
  }
  EXPECT_EQ(fake.freedLibraries, fake.loadedLibraries);
}

TEST_F(ReceiverTest, TheTargetAdapterLibraryIsLoadedOnceAndEachCpuGetsItsOwnAdapter) {
  Receiver receiver;
  auto* a = dynamic_cast<ChannelDriver*>(driverFor(receiver, "Probe1/A"));
  auto* b = dynamic_cast<ChannelDriver*>(driverFor(receiver, "Probe1/B"));
  EXPECT_NE(a->targetAdapter(), b->targetAdapter());
  int adapterLoads = 0;
  for (const auto& file : fake.loadedFiles) adapterLoads += file == loaderName("ICETargetAdapter");
  EXPECT_EQ(adapterLoads, 1);
}

TEST_F(ReceiverTest, DriversAreCountedListedAndFound) {
  Receiver receiver;
  CReceiver& host = receiver;
  CChannelDriver* a = driverFor(receiver, "Probe1/A");
  CChannelDriver* b = driverFor(receiver, "Probe1/B");
  EXPECT_EQ(host.GetNumAttachedCpus(), 2u);
  EXPECT_EQ(host.GetNextAvailableChannel(), 3u);
  EXPECT_EQ(host.FindChannelDriver("Probe1/B"), b);
  EXPECT_EQ(host.FindChannelDriver("Probe1/A"), a);
  EXPECT_EQ(host.FindChannelDriver("Probe1/C"), nullptr);
  EXPECT_EQ(host.FindChannelDriver(nullptr), nullptr);
  char first[32] = {}, second[32] = {};
  char* names[] = {first, second};
  host.GetCpuNames(names);
  EXPECT_STREQ(first, "Probe1/A");
  EXPECT_STREQ(second, "Probe1/B");
  EXPECT_TRUE(log.contains("Vestrel_Receiver: Get channel driver for CPU Probe1/B."));
  EXPECT_TRUE(log.contains("Vestrel_Receiver: cpuName[0] is Probe1/A"));
  EXPECT_TRUE(log.contains("Vestrel_Receiver: cpuName[1] is Probe1/B"));
  EXPECT_TRUE(log.contains("Vestrel_Receiver: number of attached cpus is 2"));
  EXPECT_TRUE(log.contains("Vestrel_Receiver: next available channel is 3"));
}

TEST_F(ReceiverTest, ASecondRequestForTheSameCpuMakesASecondDriver) {
  Receiver receiver;
  CChannelDriver* first = driverFor(receiver, "Probe1/A");
  CChannelDriver* second = driverFor(receiver, "Probe1/A");
  EXPECT_NE(first, second);
  EXPECT_EQ(receiver.GetNumAttachedCpus(), 2u);
  EXPECT_EQ(receiver.FindChannelDriver("Probe1/A"), first);
}

TEST_F(ReceiverTest, ReleasingDeletesTheDriverAndAnUnknownOrSecondReleaseThrows) {
  Receiver receiver;
  CReceiver& host = receiver;
  CChannelDriver* a = driverFor(receiver, "Probe1/A", 1);
  driverFor(receiver, "Probe1/B", 2);
  host.ReleaseChannelDriver(a);
  EXPECT_EQ(trace.calls.back(), "ReleaseTrace(1)");
  EXPECT_EQ(host.GetNumAttachedCpus(), 1u);
  int severity = 0;
  EXPECT_EQ(hexkitText([&] { host.ReleaseChannelDriver(a); }, &severity),
            "Failed to release unknown SWO channel driver");
  EXPECT_EQ(severity, 2);
  FakeTraceInterface otherTrace;
  ChannelDriver stranger(&receiver, "x", &otherTrace, 0, 0);
  EXPECT_EQ(hexkitText([&] { host.ReleaseChannelDriver(&stranger); }), "Failed to release unknown SWO channel driver");
  EXPECT_NO_THROW(host.ReleaseChannelDriver(nullptr));
  EXPECT_EQ(host.GetNumAttachedCpus(), 1u);
}

TEST_F(ReceiverTest, TheOtherQueriesAnswerTheirConstants) {
  Receiver receiver;
  CReceiver& host = receiver;
  EXPECT_EQ(host.QuerySlot8(), 1u);
  EXPECT_EQ(host.QuerySlot12(5), 0u);
  EXPECT_EQ(host.QuerySlot14(), 0u);
  std::uint32_t current = 0, total = 0;
  host.GetProgress(&current, &total);
  EXPECT_EQ(current, 1u);
  EXPECT_EQ(total, 100u);
  int severity = 0;
  EXPECT_EQ(hexkitText([&] { host.GetDataSource("cpu"); }, &severity), "Cannot get data source");
  EXPECT_EQ(severity, 2);
  EXPECT_NO_THROW(host.OnOtherNotification("cpu", 1));
}

TEST_F(ReceiverTest, DestroyingTheReceiverDestroysItsDrivers) {
  {
    Receiver receiver;
    driverFor(receiver, "Probe1/A", 1);
    driverFor(receiver, "Probe1/B", 2);
  }
  std::vector<std::string> releases;
  for (const auto& call : trace.calls) {
    if (call.rfind("ReleaseTrace", 0) == 0) releases.push_back(call);
  }
  EXPECT_EQ(releases, (std::vector<std::string>{"ReleaseTrace(1)", "ReleaseTrace(2)"}));
}
