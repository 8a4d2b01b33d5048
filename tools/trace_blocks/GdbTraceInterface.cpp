#include "GdbTraceInterface.h"

#include <exception>

namespace vestrel::trace_blocks {

using namespace Kv::Orv::Trace;

template <typename Body>
std::int32_t GdbTraceInterface::guarded(const char* slot, Body body) {
  try {
    body();
    return 0;
  } catch (const std::exception& error) {
    lastError_ = std::string(slot) + ": " + error.what();
    return -1;
  }
}

std::int32_t GdbTraceInterface::SetTpiuPrescaler(std::uint32_t, std::uint32_t prescaler) {
  programmer_.setPrescaler(prescaler);
  return 0;
}

std::int32_t GdbTraceInterface::SetPinProtocol(std::uint32_t, eSWO_ENCODING encoding) {
  if (encoding != eSWO_ENCODING_UART && encoding != eSWO_ENCODING_MANCHESTER) {
    lastError_ = "SetPinProtocol: no SWO encoding given";
    return -1;
  }
  programmer_.setManchester(encoding == eSWO_ENCODING_MANCHESTER);
  return 0;
}

std::int32_t GdbTraceInterface::SetTimestampPrescaler(std::uint32_t, eSWO_TS_PRESCALAR prescale) {
  programmer_.setTimestampPrescale(static_cast<std::uint32_t>(prescale));
  return 0;
}

std::int32_t GdbTraceInterface::GetTraceExportStatus(std::uint32_t, std::uint32_t* status) {
  if (status != nullptr) *status = 0;
  return 0;
}

std::int32_t GdbTraceInterface::ProgramTpiu(std::uint32_t) {
  return guarded("ProgramTpiu", [this] { programmer_.program(); });
}

std::int32_t GdbTraceInterface::EnableTpiu(std::uint32_t) {
  return guarded("EnableTpiu", [this] { programmer_.enable(); });
}

std::int32_t GdbTraceInterface::TraceOff(std::uint32_t) {
  return guarded("TraceOff", [this] { programmer_.off(); });
}

std::int32_t GdbTraceInterface::TraceStop(std::uint32_t) {
  return guarded("TraceStop", [this] { programmer_.stop(); });
}

std::int32_t GdbTraceInterface::ReleaseTrace(std::uint32_t) {
  return guarded("ReleaseTrace", [this] { programmer_.release(); });
}

}  // namespace vestrel::trace_blocks
