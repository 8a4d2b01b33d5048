// The host's per-CPU trace interface for a real target behind a GDB server:
// the slots the receiver calls become register writes through the GDB
// connection (TraceBlockProgrammer). A slot that fails returns -1 and keeps
// the reason (lastError); read-back mismatches go to the report function.
#pragma once

#include <string>

#include "CCpuTraceInterface.h"
#include "GdbRemoteClient.h"
#include "TraceBlockProgrammer.h"

namespace vestrel::trace_blocks {

// Target memory through a GDB connection.
class GdbMemory final : public TargetMemory {
 public:
  explicit GdbMemory(gdb_remote::GdbRemoteClient& client) : client_(client) {}
  std::uint32_t read32(std::uint32_t address) override { return client_.readWord(address); }
  void write32(std::uint32_t address, std::uint32_t value) override { client_.writeWord(address, value); }

 private:
  gdb_remote::GdbRemoteClient& client_;
};

class GdbTraceInterface final : public Kv::Orv::Trace::CCpuTraceInterface {
 public:
  GdbTraceInterface(TargetMemory& memory, TraceSettings settings, TraceBlockProgrammer::Report mismatch)
      : programmer_(memory, settings, std::move(mismatch)) {}

  std::int32_t ReleaseTrace(std::uint32_t) override;
  std::int32_t ProgramTpiu(std::uint32_t) override;
  std::int32_t EnableTpiu(std::uint32_t) override;
  std::int32_t TraceOff(std::uint32_t) override;
  std::int32_t TraceStop(std::uint32_t) override;
  std::int32_t SetTpiuPrescaler(std::uint32_t, std::uint32_t prescaler) override;
  std::int32_t GetTraceExportStatus(std::uint32_t, std::uint32_t* status) override;
  std::int32_t AckTraceExportStatus(std::uint32_t, std::uint32_t) override { return 0; }
  std::int32_t SetPinProtocol(std::uint32_t, Kv::Orv::Trace::eSWO_ENCODING encoding) override;
  std::int32_t SetTimestampPrescaler(std::uint32_t, Kv::Orv::Trace::eSWO_TS_PRESCALAR prescale) override;

  // Why the last slot that failed failed ("" when none did).
  const std::string& lastError() const { return lastError_; }

 private:
  template <typename Body>
  std::int32_t guarded(const char* slot, Body body);

  TraceBlockProgrammer programmer_;
  std::string lastError_;
};

}  // namespace vestrel::trace_blocks
