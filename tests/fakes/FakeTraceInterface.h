// The host's per-CPU trace interface, recorded: every call is kept as text
// ("TraceOff(7)", "SetTpiuPrescaler(7, 3)") and any slot can be made to fail.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "CCpuTraceInterface.h"

namespace vestrel_test {

class FakeTraceInterface final : public Kv::Orv::Trace::CCpuTraceInterface {
 public:
  std::vector<std::string> calls;
  std::map<int, std::int32_t> results;  // slot -> result (0 when absent)
  std::uint32_t exportStatus = 0;       // what slot 34 reports
  std::set<int> throwing;               // slots that throw, as a host may

  std::int32_t ReleaseTrace(std::uint32_t cpu) override { return record(2, "ReleaseTrace", cpu); }
  std::int32_t ProgramTpiu(std::uint32_t cpu) override { return record(3, "ProgramTpiu", cpu); }
  std::int32_t EnableTpiu(std::uint32_t cpu) override { return record(4, "EnableTpiu", cpu); }
  std::int32_t TraceOff(std::uint32_t cpu) override { return record(5, "TraceOff", cpu); }
  std::int32_t TraceStop(std::uint32_t cpu) override { return record(6, "TraceStop", cpu); }
  std::int32_t SetTpiuPrescaler(std::uint32_t cpu, std::uint32_t prescaler) override {
    return record(12, "SetTpiuPrescaler", cpu, std::to_string(prescaler));
  }
  std::int32_t GetTraceExportStatus(std::uint32_t cpu, std::uint32_t* status) override {
    if (status != nullptr) *status = exportStatus;
    return record(34, "GetTraceExportStatus", cpu);
  }
  std::int32_t AckTraceExportStatus(std::uint32_t cpu, std::uint32_t status) override {
    return record(35, "AckTraceExportStatus", cpu, std::to_string(status));
  }
  std::int32_t SetPinProtocol(std::uint32_t cpu, Kv::Orv::Trace::eSWO_ENCODING encoding) override {
    return record(48, "SetPinProtocol", cpu, std::to_string(encoding));
  }
  std::int32_t SetTimestampPrescaler(std::uint32_t cpu, Kv::Orv::Trace::eSWO_TS_PRESCALAR prescale) override {
    return record(49, "SetTimestampPrescaler", cpu, std::to_string(prescale));
  }

 private:
  std::int32_t record(int slot, const char* name, std::uint32_t cpu, const std::string& argument = {}) {
    calls.push_back(std::string(name) + "(" + std::to_string(cpu) + (argument.empty() ? "" : ", " + argument) + ")");
    if (throwing.count(slot) != 0) throw std::runtime_error(std::string("host: ") + name + " failed");
    auto result = results.find(slot);
    return result != results.end() ? result->second : 0;
  }
};

}  // namespace vestrel_test
