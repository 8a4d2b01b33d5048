#include "Receiver.h"

#include <cstring>
#include <exception>
#include <new>

#include "ChannelDriver.h"
#include "LogControl.h"
#include "ReceiverLibraries.h"
#include "cHexkitError.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;

Receiver::Receiver() { LoadDeviceIdentifier(); }

// The drivers never throw on destruction. A device identifier library whose
// destroy function throws is logged, the libraries are still unloaded, and
// only then is the failure passed on, so that DestroyRcvr can report it. It
// is passed on as text: the library's own exception object may not outlive
// the library's code.
Receiver::~Receiver() noexcept(false) {
  for (ChannelDriver* driver : drivers_) delete driver;
  drivers_.clear();
  bool identifierFailed = false;
  std::string identifierFailure;
  if (destroyDeviceIdentifier_ != nullptr) {
    try {
      destroyDeviceIdentifier_(deviceIdentifier_, 0);
    } catch (...) {
      identifierFailed = true;
      identifierFailure = DescribeFailure(std::current_exception());
      KV_LOG(1, KV_ORV::kLogError, "%s: Destroying the device identifier failed: %s", kTag, identifierFailure.c_str());
    }
  }
  identifierLibrary_.reset();
  adapterLibrary_.reset();
  if (identifierFailed) Hexkit::throwHexkitError(identifierFailure);
}

std::uint32_t Receiver::GetNumAttachedCpus() {
  const auto count = static_cast<std::uint32_t>(drivers_.size());
  KV_LOG(2, KV_ORV::kLogMessage, "%s: number of attached cpus is %d", kTag, static_cast<int>(count));
  return count;
}

void Receiver::GetCpuNames(char** names) {
  if (names == nullptr) return;
  for (std::size_t i = 0; i < drivers_.size(); ++i) {
    std::strcpy(names[i], drivers_[i]->GetCpuName());
    KV_LOG(1, KV_ORV::kLogMessage, "%s: cpuName[%d] is %s", kTag, static_cast<int>(i), names[i]);
  }
}

CChannelDriver* Receiver::GetChannelDriver(const char* cpuName, CCpuTraceInterface* traceInterface,
                                           std::uint32_t cpuHandle, std::uint32_t auxId) {
  probeKind_ = kUnsupportedProbe;
  cpuName_ = cpuName != nullptr ? cpuName : "";

  DetectProbeKind();
  if (probeKind_ == kUnsupportedProbe) Hexkit::throwHexkitError("SWO trace is not supported by this emulator.");

  bool supported = false;
  CheckDeviceSupport(supported);
  if (!supported) Hexkit::throwHexkitError("SWO trace is not supported by this device.");

  Probe::CTargetAdapter* adapter = GetTargetAdapter(cpuName);
  if (adapter == nullptr)
    Hexkit::throwHexkitError("Internal error: Cannot get target adapter handle. Bad installation or setup.");

  std::unique_ptr<ChannelDriver> owned(new (std::nothrow)
                                           ChannelDriver(this, cpuName, traceInterface, cpuHandle, auxId));
  if (!owned) {
    KV_LOG(1, KV_ORV::kLogError, "%s: Failed to allocate SWO Channel driver", kTag);
    Hexkit::throwHexkitError("Failed to allocated SWO channel driver");
  }
  drivers_.push_back(owned.get());  // may throw; the driver is then freed
  ChannelDriver* driver = owned.release();
  driver->SetDeviceIdentifier(deviceIdentifier_);
  driver->SetTargetAdapter(adapter);
  driver->SetProbeKind(probeKind_);
  return driver;
}

void Receiver::ReleaseChannelDriver(CChannelDriver* driver) {
  if (driver == nullptr) return;
  for (auto entry = drivers_.begin(); entry != drivers_.end(); ++entry) {
    if (static_cast<CChannelDriver*>(*entry) == driver) {
      delete *entry;
      drivers_.erase(entry);
      return;
    }
  }
  Hexkit::throwHexkitError("Failed to release unknown SWO channel driver");
}

void* Receiver::GetDataSource(const char*) { Hexkit::throwHexkitError("Cannot get data source"); }

CChannelDriver* Receiver::FindChannelDriver(const char* cpuName) {
  if (cpuName == nullptr) return nullptr;
  for (ChannelDriver* driver : drivers_) {
    if (std::strcmp(driver->GetCpuName(), cpuName) == 0) {
      KV_LOG(1, KV_ORV::kLogMessage, "%s: Get channel driver for CPU %s.", kTag, cpuName);
      return driver;
    }
  }
  return nullptr;
}

std::uint32_t Receiver::GetNextAvailableChannel() {
  const auto next = static_cast<std::uint32_t>(drivers_.size() + 1);
  KV_LOG(2, KV_ORV::kLogMessage, "%s: next available channel is %d", kTag, static_cast<int>(next));
  return next;
}

void Receiver::GetProgress(std::uint32_t* current, std::uint32_t* total) {
  *current = 1;
  *total = 100;
}

void Receiver::OnTargetStateChanged(const char* cpuName, std::uint32_t state) {
  if (cpuName == nullptr) return;
  auto* driver = static_cast<ChannelDriver*>(FindChannelDriver(cpuName));
  if (driver == nullptr) return;
  driver->SetTargetState(state);
  // Code 0 unless the driver writes it: a disconnected target leaves the
  // record untouched, and then no stop must be issued.
  ChannelStatus status;
  driver->GetStatus(status);
  const bool recording = status.code == ChannelDriver::kCodeRecording;
  switch (state) {
    case eTARGET_NOT_CONNECTED:
    case eTARGET_DISCONNECTED:
      driver->UnregisterCpu(cpuName);
      if (recording) driver->StopRecording();
      break;
    case eTARGET_RUNNING:
    case eTARGET_RUNNING_TRACED:
      driver->SetHaltState(cpuName, false);
      if (!recording) driver->StartRecording(false);
      break;
    case eTARGET_HALTED:
    case eTARGET_HALTED_BREAK:
      driver->SetHaltState(cpuName, true);
      if (recording) driver->StopRecording();
      break;
    default:
      break;
  }
}

void Receiver::OnJobStateChanged(const char* cpuName, std::uint32_t state) {
  if (state != eJOB_MODIFIED_DISABLE_RESUME) return;
  try {
    if (auto* driver = dynamic_cast<ChannelDriver*>(FindChannelDriver(cpuName))) driver->OnJobStateChanged(state);
  } catch (...) {
    // The host does not expect job notifications to fail.
  }
}

}  // namespace Kv::Orv::Trace::Vestrel
