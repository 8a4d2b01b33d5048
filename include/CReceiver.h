// The host framework's receiver interfaces. Declaration order is slot order.
#pragma once

#include <cstdint>

#include "CChannelDriver.h"
#include "CCpuTraceInterface.h"

namespace Kv::Orv::Trace {

class CTargetStateNotification {
 public:
  virtual void OnTargetStateChanged(const char* /*cpuName*/, std::uint32_t /*state*/) {}  // slot 0
  virtual void OnJobStateChanged(const char* /*cpuName*/, std::uint32_t /*state*/) {}     // slot 1
  virtual void OnOtherNotification(const char* /*cpuName*/, std::uint32_t /*value*/) {}   // slot 2

 protected:
  ~CTargetStateNotification() = default;
};

class CReceiver : public CTargetStateNotification {
 public:
  // May throw: a receiver reports a failed teardown, and DestroyRcvr catches it.
  virtual ~CReceiver() noexcept(false) = default;  // slot 3
  virtual std::uint32_t GetNumAttachedCpus() = 0;  // slot 4
  // Copies each driver's CPU name into names[i]: one caller buffer per driver.
  virtual void GetCpuNames(char** names) = 0;  // slot 5
  virtual CChannelDriver* GetChannelDriver(const char* cpuName, CCpuTraceInterface* traceInterface,
                                           std::uint32_t cpuHandle, std::uint32_t auxId) = 0;  // slot 6
  virtual void ReleaseChannelDriver(CChannelDriver* driver) = 0;                               // slot 7
  virtual std::uint32_t QuerySlot8() = 0;                                                      // slot 8
  virtual void* GetDataSource(const char* cpuName) = 0;                                        // slot 9
  virtual CChannelDriver* FindChannelDriver(const char* cpuName) = 0;                          // slot 10
  virtual std::uint32_t GetNextAvailableChannel() = 0;                                         // slot 11
  virtual std::uint32_t QuerySlot12(std::uint32_t argument) = 0;                               // slot 12
  virtual void GetProgress(std::uint32_t* current, std::uint32_t* total) = 0;                  // slot 13
  virtual std::uint32_t QuerySlot14() = 0;                                                     // slot 14
};

}  // namespace Kv::Orv::Trace

// The library's two entry points.
#if defined(_WIN32)
#define VESTREL_ENTRY extern "C" __declspec(dllexport)
#else
#define VESTREL_ENTRY extern "C" __attribute__((visibility("default")))
#endif

VESTREL_ENTRY Kv::Orv::Trace::CReceiver* CreateRcvr();
VESTREL_ENTRY void DestroyRcvr(Kv::Orv::Trace::CReceiver* receiver);

using CreateRcvrFunction = Kv::Orv::Trace::CReceiver* (*)();
using DestroyRcvrFunction = void (*)(Kv::Orv::Trace::CReceiver*);
