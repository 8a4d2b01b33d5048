// The host's per-CPU trace interface: every operation takes the CPU handle
// first and returns 0 on success. The receiver uses ten of its slots; the
// others are declared as placeholders so that every slot keeps its position.
#pragma once

#include <cstdint>

#include "HostTypes.h"

namespace Kv::Orv::Trace {

class CCpuTraceInterface {
 public:
#define VESTREL_UNUSED_TRACE_SLOT(n) \
  virtual std::int32_t Slot##n(std::uint32_t) { return -1; }

  VESTREL_UNUSED_TRACE_SLOT(0)
  VESTREL_UNUSED_TRACE_SLOT(1)
  virtual std::int32_t ReleaseTrace(std::uint32_t cpuHandle) = 0;  // slot 2
  virtual std::int32_t ProgramTpiu(std::uint32_t cpuHandle) = 0;   // slot 3
  virtual std::int32_t EnableTpiu(std::uint32_t cpuHandle) = 0;    // slot 4
  virtual std::int32_t TraceOff(std::uint32_t cpuHandle) = 0;      // slot 5
  virtual std::int32_t TraceStop(std::uint32_t cpuHandle) = 0;     // slot 6
  VESTREL_UNUSED_TRACE_SLOT(7)
  VESTREL_UNUSED_TRACE_SLOT(8)
  VESTREL_UNUSED_TRACE_SLOT(9)
  VESTREL_UNUSED_TRACE_SLOT(10)
  VESTREL_UNUSED_TRACE_SLOT(11)
  virtual std::int32_t SetTpiuPrescaler(std::uint32_t cpuHandle, std::uint32_t prescaler) = 0;  // slot 12
  VESTREL_UNUSED_TRACE_SLOT(13)
  VESTREL_UNUSED_TRACE_SLOT(14)
  VESTREL_UNUSED_TRACE_SLOT(15)
  VESTREL_UNUSED_TRACE_SLOT(16)
  VESTREL_UNUSED_TRACE_SLOT(17)
  VESTREL_UNUSED_TRACE_SLOT(18)
  VESTREL_UNUSED_TRACE_SLOT(19)
  VESTREL_UNUSED_TRACE_SLOT(20)
  VESTREL_UNUSED_TRACE_SLOT(21)
  VESTREL_UNUSED_TRACE_SLOT(22)
  VESTREL_UNUSED_TRACE_SLOT(23)
  VESTREL_UNUSED_TRACE_SLOT(24)
  VESTREL_UNUSED_TRACE_SLOT(25)
  VESTREL_UNUSED_TRACE_SLOT(26)
  VESTREL_UNUSED_TRACE_SLOT(27)
  VESTREL_UNUSED_TRACE_SLOT(28)
  VESTREL_UNUSED_TRACE_SLOT(29)
  VESTREL_UNUSED_TRACE_SLOT(30)
  VESTREL_UNUSED_TRACE_SLOT(31)
  VESTREL_UNUSED_TRACE_SLOT(32)
  VESTREL_UNUSED_TRACE_SLOT(33)
  virtual std::int32_t GetTraceExportStatus(std::uint32_t cpuHandle, std::uint32_t* status) = 0;  // slot 34
  virtual std::int32_t AckTraceExportStatus(std::uint32_t cpuHandle, std::uint32_t status) = 0;   // slot 35
  VESTREL_UNUSED_TRACE_SLOT(36)
  VESTREL_UNUSED_TRACE_SLOT(37)
  VESTREL_UNUSED_TRACE_SLOT(38)
  VESTREL_UNUSED_TRACE_SLOT(39)
  VESTREL_UNUSED_TRACE_SLOT(40)
  VESTREL_UNUSED_TRACE_SLOT(41)
  VESTREL_UNUSED_TRACE_SLOT(42)
  VESTREL_UNUSED_TRACE_SLOT(43)
  VESTREL_UNUSED_TRACE_SLOT(44)
  VESTREL_UNUSED_TRACE_SLOT(45)
  VESTREL_UNUSED_TRACE_SLOT(46)
  VESTREL_UNUSED_TRACE_SLOT(47)
  virtual std::int32_t SetPinProtocol(std::uint32_t cpuHandle, eSWO_ENCODING encoding) = 0;             // slot 48
  virtual std::int32_t SetTimestampPrescaler(std::uint32_t cpuHandle, eSWO_TS_PRESCALAR prescale) = 0;  // slot 49

#undef VESTREL_UNUSED_TRACE_SLOT

 protected:
  ~CCpuTraceInterface() = default;  // owned and destroyed by the host
};

}  // namespace Kv::Orv::Trace
