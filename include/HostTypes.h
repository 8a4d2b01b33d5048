// Records and enumerations the host framework shares with its receivers.
#pragma once

#include <cstdint>
#include <string>

namespace Kv::Orv::Trace {

// SWO pin protocol passed to the trace interface. Receivers here use UART.
enum eSWO_ENCODING : std::uint32_t {
  eSWO_ENCODING_NONE = 0,
  eSWO_ENCODING_MANCHESTER = 1,
  eSWO_ENCODING_UART = 2,
};

// ITM timestamp prescale.
enum eSWO_TS_PRESCALAR : std::uint32_t {
  eSWO_TS_PRESCALAR_1 = 1,
  eSWO_TS_PRESCALAR_4 = 4,
  eSWO_TS_PRESCALAR_16 = 16,
  eSWO_TS_PRESCALAR_64 = 64,
};

// Host job states. Only 0 is acted on.
enum eJOB_STATE : std::uint32_t {
  eJOB_MODIFIED_DISABLE_RESUME = 0,
};

// Target states the host reports through CTargetStateNotification.
enum eTARGET_STATE : std::uint32_t {
  eTARGET_NOT_CONNECTED = 3,
  eTARGET_DISCONNECTED = 4,
  eTARGET_RUNNING = 5,
  eTARGET_RUNNING_TRACED = 6,
  eTARGET_HALTED = 7,
  eTARGET_HALTED_BREAK = 8,
};

// What a channel driver reports when the host polls it.
struct ChannelStatus {
  std::uint32_t code = 0;
  std::string text;
  bool f0 = false;
  bool f1 = false;
  bool f2 = false;
  bool f3 = false;
  bool f4 = false;
};

// One channel attribute as the driver answers it. The texts stay valid until
// the driver's next GetAttribute call.
struct TraceAttribute {
  const char* name = nullptr;
  std::uint32_t type = 0;
  const char* value = nullptr;
};

}  // namespace Kv::Orv::Trace
