// Registering a channel driver grows the receiver's list of drivers, and
// that allocation may fail. This program replaces the global operator new
// with one that counts the blocks alive and can fail the next allocation of
// a chosen size (the list's growth from one entry to two, or the driver
// itself). The driver made for the request must not be left behind.
//
// Sanitizer builds replace operator new themselves, so the test command
// builds this program in the plain Linux and Windows stages only; on Linux
// it runs under Valgrind's memcheck, which finds what AddressSanitizer
// would (a fake used after the test freed it, say).
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "ChannelDriver.h"
#include "FakeOsServices.h"
#include "FakeTraceInterface.h"
#include "ProbeScenario.h"
#include "Receiver.h"
#include "TestLog.h"
#include "ThrownText.h"

namespace {

std::atomic<std::size_t> failingSize{0};  // the next allocation of this size fails; 0 = none armed
std::atomic<long> allocationsLeft{0};     // the allocation that brings this to 0 fails; 0 = none armed
std::atomic<bool> failureInjected{false};

bool injectFailure(std::size_t size) {
  std::size_t armed = size;
  const bool bySize = size != 0 && failingSize.compare_exchange_strong(armed, 0);
  long left = allocationsLeft.load();
  const bool byCount = !bySize && left > 0 && allocationsLeft.compare_exchange_strong(left, left - 1) && left == 1;
  if (bySize || byCount) failureInjected = true;
  return bySize || byCount;
}

void* allocate(std::size_t size) { return std::malloc(size != 0 ? size : 1); }
void release(void* block) { std::free(block); }

}  // namespace

void* operator new(std::size_t size) {
  if (injectFailure(size)) throw std::bad_alloc();
  if (void* block = allocate(size)) return block;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return injectFailure(size) ? nullptr : allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete(void* block, std::size_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t) noexcept { release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { release(block); }

using Kv::Orv::Trace::CChannelDriver;
using Kv::Orv::Trace::Vestrel::ChannelDriver;
using Kv::Orv::Trace::Vestrel::Receiver;

namespace {

// Fails the next allocation of size bytes.
void arm(std::size_t size) {
  failureInjected = false;
  failingSize = size;
}
// Fails the nth allocation from now, whatever its size.
void armNth(long nth) {
  failureInjected = false;
  allocationsLeft = nth;
}
// True when the armed allocation was reached and failed.
bool disarm() {
  failingSize = 0;
  allocationsLeft = 0;
  return failureInjected.exchange(false);
}

class AllocationFailureTest : public ::testing::Test {
 protected:
  void SetUp() override { scenario.workingProbe(); }
  vestrel_test::TestLog log{nullptr};  // logging off: no lines kept between requests
  vestrel_test::ProbeScenario scenario;
  vestrel_test::FakeTraceInterface trace;
};

}  // namespace

TEST_F(AllocationFailureTest, TheArmedAllocationFailsAndNoOther) {
  arm(24);
  char* other = new (std::nothrow) char[8];
  EXPECT_NE(other, nullptr);
  EXPECT_EQ(new (std::nothrow) char[24], nullptr);
  EXPECT_TRUE(disarm());
  char* again = new (std::nothrow) char[24];
  EXPECT_NE(again, nullptr);
  EXPECT_FALSE(disarm());
  delete[] again;
  delete[] other;

  armNth(3);
  char* first = new (std::nothrow) char[1];
  char* second = new (std::nothrow) char[2];
  EXPECT_NE(first, nullptr);
  EXPECT_NE(second, nullptr);
  EXPECT_FALSE(failureInjected.load());
  EXPECT_THROW(static_cast<void>(new char[3]), std::bad_alloc);
  EXPECT_TRUE(disarm());
  delete[] second;
  delete[] first;
}

// The driver made for a request whose registration fails is destroyed: its
// teardown reaches the CPU's trace interface (a leaked driver never would).
TEST_F(AllocationFailureTest, ADriverWhoseRegistrationRunsOutOfMemoryIsTornDown) {
  vestrel_test::FakeTraceInterface second;  // outlives the receiver, whose drivers call it to the end
  Receiver receiver;
  ASSERT_NE(receiver.GetChannelDriver("cpu0", &trace, 1, 0), nullptr);  // one entry listed

  arm(sizeof(ChannelDriver));  // no driver made at all: nothing to tear down
  EXPECT_EQ(vestrel_test::hexkitText([&] { receiver.GetChannelDriver("cpu1", &second, 2, 0); }),
            "Failed to allocated SWO channel driver");
  ASSERT_TRUE(disarm());
  EXPECT_TRUE(second.calls.empty());

  arm(2 * sizeof(void*));  // the list of one driver grows to two
  EXPECT_THROW(receiver.GetChannelDriver("cpu1", &second, 2, 0), std::bad_alloc);
  ASSERT_TRUE(disarm());
  EXPECT_EQ(receiver.GetNumAttachedCpus(), 1u);
  EXPECT_EQ(receiver.FindChannelDriver("cpu1"), nullptr);
  EXPECT_EQ(second.calls, (std::vector<std::string>{"GetTraceExportStatus(2)", "TraceStop(2)", "ReleaseTrace(2)"}));

  // The next request finds the memory it needs.
  second.calls.clear();
  EXPECT_NE(receiver.GetChannelDriver("cpu1", &second, 2, 0), nullptr);
  EXPECT_EQ(receiver.GetNumAttachedCpus(), 2u);
  EXPECT_TRUE(second.calls.empty());
}

// Each allocation a receiver's construction makes fails in turn (the device
// identifier library's name, its loader, ...): whatever the construction
// then does, every library it loaded is unloaded again by the time the
// receiver is gone. The simulated probe libraries' own allocations reach
// this operator new only on Linux (each Windows DLL has its own), so the
// identifier that runs out of memory after its library loaded is scripted.
TEST_F(AllocationFailureTest, AReceiverWhoseConstructionRunsOutOfMemoryUnloadsWhatItLoaded) {
  vestrel_test::FakeOsServices fake;
  KV_ORV::ScopedOsOverride override{fake};
  long nth = 1;
  for (;; ++nth) {
    fake.loadedLibraries = 0;
    fake.freedLibraries = 0;
    armNth(nth);
    try {
      Receiver receiver;
    } catch (...) {
    }
    if (!disarm()) break;  // the construction made fewer allocations than nth: all have been failed
    EXPECT_EQ(fake.loadedLibraries, fake.freedLibraries) << "allocation " << nth;
  }
  EXPECT_GT(nth, 3);

  scenario.write("identifier = out_of_memory\n");
  fake.loadedLibraries = 0;
  fake.freedLibraries = 0;
  EXPECT_THROW(Receiver receiver, std::bad_alloc);
  EXPECT_EQ(fake.loadedLibraries, 1);
  EXPECT_EQ(fake.freedLibraries, 1);

  // Memory back, the receiver is made.
  scenario.workingProbe();
  fake.loadedLibraries = 0;
  fake.freedLibraries = 0;
  {
    Receiver receiver;
    EXPECT_NE(receiver.deviceIdentifier(), nullptr);
  }
  EXPECT_EQ(fake.loadedLibraries, 1);
  EXPECT_EQ(fake.freedLibraries, 1);
}
