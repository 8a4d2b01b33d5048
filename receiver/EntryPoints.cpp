// The library's two exported functions and the process-wide receiver they
// hand out, counted by reference.
#include <cstdint>
#include <new>

#include "CReceiver.h"
#include "EntryModuleReset.h"
#include "LogControl.h"
#include "Receiver.h"
#include "TraceStartup.h"
#include "cHexkitError.h"

using Kv::Orv::Hexkit::cHexkitError;
using Kv::Orv::Trace::CReceiver;
using Kv::Orv::Trace::Vestrel::Receiver;

namespace {

// Lives as long as the loaded library.
Receiver* instance = nullptr;
std::uint32_t references = 0;
KV_ORV::TraceStartup startup;

constexpr const char* kTag = Receiver::kTag;

}  // namespace

VESTREL_ENTRY CReceiver* CreateRcvr() {
  try {
    startup.run();
    KV_ORV::LogControl::Instance().Init(startup.logFileName().c_str(), KV_ORV::TraceStartup::kLoggingVariable,
                                        KV_ORV::TraceStartup::kLoggingDirVariable, true);
  } catch (...) {
    // Tracing still works without a log; the next CreateRcvr tries again.
  }

  if (instance != nullptr) {
    ++references;
    return instance;
  }

  try {
    instance = new (std::nothrow) Receiver();
    if (instance == nullptr) {
      KV_LOG(1, KV_ORV::kLogError, "%s: Failed to create SWO receiver", kTag);
      Kv::Orv::Hexkit::throwHexkitError("Failed to create SWO receiver");
    }
  } catch (...) {
    delete instance;
    instance = nullptr;
    throw;
  }
  KV_LOG(1, KV_ORV::kLogMessage, "%s: Created SWO receiver", kTag);
  ++references;
  return instance;
}

VESTREL_ENTRY void DestroyRcvr(CReceiver* receiver) {
  if (receiver == nullptr || receiver != instance || references == 0) return;
  if (--references > 0) return;
  try {
    delete instance;
    instance = nullptr;
    KV_LOG(1, KV_ORV::kLogMessage, "%s: Receiver destroyed", kTag);
  } catch (...) {
    // The receiver's teardown ran to its end before the failure was passed
    // on, and its memory is released even so: the pointer must not be handed
    // out again.
    instance = nullptr;
    KV_LOG(1, KV_ORV::kLogError, "%s: An expection for caught when destroying receiver", kTag);
  }
}

void Kv::Orv::Trace::Vestrel::resetEntryModule() {
  try {
    delete instance;
  } catch (...) {
  }
  instance = nullptr;
  references = 0;
  KV_ORV::LogControl::Instance().Forget(startup.logFileName());
  startup = KV_ORV::TraceStartup();
}
