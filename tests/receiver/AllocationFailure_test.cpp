// Registering a channel driver grows the receiver's list of drivers, and
// that allocation may fail. This program replaces the global operator new
// with one that counts the blocks alive and can fail the next allocation of
// a chosen size (the list's growth from one entry to two, or the driver
// itself). The driver made for the request must not be left behind.
//
// Sanitizer builds replace operator new themselves, so the test command
// builds this program in the plain Linux and Windows stages only.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "ChannelDriver.h"
#include "FakeTraceInterface.h"
#include "ProbeScenario.h"
#include "Receiver.h"
#include "TestLog.h"
#include "ThrownText.h"

namespace {

std::atomic<long> liveBlocks{0};
std::atomic<std::size_t> failingSize{0};  // the next allocation of this size fails; 0 = none armed
std::atomic<bool> failureInjected{false};

bool injectFailure(std::size_t size) {
  std::size_t armed = size;
  if (size == 0 || !failingSize.compare_exchange_strong(armed, 0)) return false;
  failureInjected = true;
  return true;
}

void* allocate(std::size_t size) {
  void* block = std::malloc(size != 0 ? size : 1);
  if (block != nullptr) ++liveBlocks;
  return block;
}

void release(void* block) {
  if (block == nullptr) return;
  --liveBlocks;
  std::free(block);
}

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
// True when the armed allocation was reached and failed.
bool disarm() {
  failingSize = 0;
  return failureInjected.load();
}

class AllocationFailureTest : public ::testing::Test {
 protected:
  void SetUp() override { scenario.workingProbe(); }
  vestrel_test::TestLog log{nullptr};  // logging off: no lines kept between requests
  vestrel_test::ProbeScenario scenario;
  vestrel_test::FakeTraceInterface trace;
};

}  // namespace

TEST_F(AllocationFailureTest, TheCountingAllocatorSeesBlocksAndFailsTheArmedOne) {
  const long before = liveBlocks.load();
  auto* kept = new std::string(100, 'x');
  EXPECT_EQ(liveBlocks.load(), before + 2);  // the string and its text
  delete kept;
  EXPECT_EQ(liveBlocks.load(), before);
  arm(24);
  char* other = new (std::nothrow) char[8];
  EXPECT_NE(other, nullptr);
  EXPECT_EQ(new (std::nothrow) char[24], nullptr);
  EXPECT_TRUE(disarm());
  delete[] other;
}

// The driver made for a request whose registration fails is destroyed: its
// teardown reaches the CPU's trace interface (a leaked driver never would).
TEST_F(AllocationFailureTest, ADriverWhoseRegistrationRunsOutOfMemoryIsTornDown) {
  Receiver receiver;
  ASSERT_NE(receiver.GetChannelDriver("cpu0", &trace, 1, 0), nullptr);  // one entry listed
  vestrel_test::FakeTraceInterface second;

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
