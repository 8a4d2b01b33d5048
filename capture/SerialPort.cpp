#include "SerialPort.h"

#include <atomic>

namespace Kv::Orv::Trace::Vestrel {

namespace {
std::atomic<SerialApi*> overrideApi{nullptr};
}

SerialApi& serialApi() {
  SerialApi* replacement = overrideApi.load(std::memory_order_acquire);
  return replacement != nullptr ? *replacement : systemSerialApi();
}

ScopedSerialApi::ScopedSerialApi(SerialApi& replacement) : previous_(overrideApi.exchange(&replacement)) {}

ScopedSerialApi::~ScopedSerialApi() { overrideApi.store(previous_); }

}  // namespace Kv::Orv::Trace::Vestrel
