// The host's trace interface for a target set up by something else (the
// user's own debugger): every operation succeeds and changes nothing.
#pragma once

#include <cstdint>

#include "CCpuTraceInterface.h"

namespace vestrel::target_simulator {

class PassiveTarget final : public Kv::Orv::Trace::CCpuTraceInterface {
 public:
  std::int32_t ReleaseTrace(std::uint32_t) override { return 0; }
  std::int32_t ProgramTpiu(std::uint32_t) override { return 0; }
  std::int32_t EnableTpiu(std::uint32_t) override { return 0; }
  std::int32_t TraceOff(std::uint32_t) override { return 0; }
  std::int32_t TraceStop(std::uint32_t) override { return 0; }
  std::int32_t SetTpiuPrescaler(std::uint32_t, std::uint32_t) override { return 0; }
  std::int32_t GetTraceExportStatus(std::uint32_t, std::uint32_t* status) override {
    if (status != nullptr) *status = 0;
    return 0;
  }
  std::int32_t AckTraceExportStatus(std::uint32_t, std::uint32_t) override { return 0; }
  std::int32_t SetPinProtocol(std::uint32_t, Kv::Orv::Trace::eSWO_ENCODING) override { return 0; }
  std::int32_t SetTimestampPrescaler(std::uint32_t, Kv::Orv::Trace::eSWO_TS_PRESCALAR) override { return 0; }
};

}  // namespace vestrel::target_simulator
