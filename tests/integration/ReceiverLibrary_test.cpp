// The receiver as the host sees it: the library loaded at run time, reached
// through its two exports and the interface pointers they hand out, with
// failures arriving as cHexkitError thrown from inside the library.
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>

#include "CReceiver.h"
#include "FakeTraceInterface.h"
#include "ProbeScenario.h"
#include "cHexkitError.h"
#include "uDll.h"

using Kv::Orv::Hexkit::cHexkitError;
using Kv::Orv::Trace::CChannelDriver;
using Kv::Orv::Trace::ChannelStatus;
using Kv::Orv::Trace::CReceiver;
using vestrel_test::FakeTraceInterface;
using vestrel_test::ProbeScenario;
using vestrel_test::ScopedEnv;
using vestrel_test::ScratchDirectory;

namespace {

class ReceiverLibraryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scenario.workingProbe();
    library = std::make_unique<KV_ORV::uDll>();
    ASSERT_TRUE(library->FindAndLoad("Vestrel", 0xFFFFFFFF)) << library->LastError();
    create = reinterpret_cast<CreateRcvrFunction>(library->GetSymbol("CreateRcvr"));
    destroy = reinterpret_cast<DestroyRcvrFunction>(library->GetSymbol("DestroyRcvr"));
    ASSERT_NE(create, nullptr);
    ASSERT_NE(destroy, nullptr);
  }

  ScratchDirectory profile;
  ScopedEnv userProfile{"USERPROFILE", profile.path()};
  ScopedEnv logging{"KV_TRACE_LOGGING", "1"};
  ProbeScenario scenario;
  std::unique_ptr<KV_ORV::uDll> library;
  CreateRcvrFunction create = nullptr;
  DestroyRcvrFunction destroy = nullptr;
  FakeTraceInterface trace;
};

}  // namespace

TEST_F(ReceiverLibraryTest, OnlyTheTwoEntryPointsAreExported) {
  EXPECT_EQ(library->GetSymbol("LoadReceiverLibrary"), nullptr);
  EXPECT_EQ(library->GetSymbol("GetChannelDriver"), nullptr);
}

TEST_F(ReceiverLibraryTest, AnErrorThrownInsideTheLibraryIsCaughtByTypeWithItsTextAndSeverity) {
  scenario.write("identifier = null\n");
  bool caught = false;
  try {
    create();
  } catch (const cHexkitError& e) {
    caught = true;
    EXPECT_STREQ(e.GetMessage(), "Internal error, failed to create device identifier");
    EXPECT_EQ(e.GetSeverity(), Kv::Orv::Hexkit::cHexkitErrorIF::eSeverityError);
  } catch (...) {
    FAIL() << "caught something other than cHexkitError";
  }
  EXPECT_TRUE(caught);
}

// The device identifier library's own exception never reaches the host: it
// would outlive the library, which is unloaded on the way out.
TEST_F(ReceiverLibraryTest, WhatTheDeviceIdentifierThrowsReachesTheHostAsTheReceiversOwnError) {
  scenario.write("identifier = throw\n");
  try {
    create();
    FAIL() << "no exception";
  } catch (const cHexkitError& e) {
    EXPECT_STREQ(e.GetMessage(), "device identifier: create failed");
    EXPECT_EQ(e.GetSeverity(), Kv::Orv::Hexkit::cHexkitErrorIF::eSeverityError);
  }
  scenario.write("identifier = out_of_memory\n");
  EXPECT_THROW(create(), std::bad_alloc);
  scenario.workingProbe();
  CReceiver* receiver = create();
  ASSERT_NE(receiver, nullptr);
  EXPECT_EQ(receiver->GetNumAttachedCpus(), 0u);
  destroy(receiver);
}

TEST_F(ReceiverLibraryTest, TheHostDrivesAReceiverAndItsDriverThroughTheirInterfaces) {
  CReceiver* receiver = create();
  ASSERT_NE(receiver, nullptr);
  CChannelDriver* driver = receiver->GetChannelDriver("Probe1/CortexM4", &trace, 7, 0);
  ASSERT_NE(driver, nullptr);
  EXPECT_EQ(receiver->GetNumAttachedCpus(), 1u);
  EXPECT_EQ(receiver->FindChannelDriver("Probe1/CortexM4"), driver);
  ChannelStatus status;
  driver->GetStatus(status);
  EXPECT_EQ(status.code, 1u);
  EXPECT_EQ(status.text, "Calibrating ...");
  receiver->OnTargetStateChanged("Probe1/CortexM4", 7);
  try {
    driver->ResumeRecording();
    FAIL() << "no exception";
  } catch (const cHexkitError& e) {
    EXPECT_STREQ(e.GetMessage(), "ResumeRecording not supported");
  }
  receiver->ReleaseChannelDriver(driver);
  EXPECT_EQ(trace.calls.back(), "ReleaseTrace(7)");
  destroy(receiver);
}

TEST_F(ReceiverLibraryTest, ARefusedDriverRequestReachesTheHostAsCHexkitError) {
  scenario.write("board * = " + scenario.board("$ calder\n") + "\ndevice_id = 0x12345678\n");
  CReceiver* receiver = create();
  try {
    receiver->GetChannelDriver("Probe1/CortexM4", &trace, 7, 0);
    FAIL() << "no exception";
  } catch (const cHexkitError& e) {
    EXPECT_STREQ(e.GetMessage(), "SWO trace is not supported by this device.");
    EXPECT_EQ(e.GetSeverity(), 2);
  }
  destroy(receiver);
}
