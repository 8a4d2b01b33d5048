#include "ChannelDriver.h"

#include <exception>
#include <new>

#include "LogControl.h"
#include "NativePlatform.h"
#include "TraceEnvironment.h"
#include "TraceStartup.h"
#include "cHexkitError.h"
#include "uString.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;
using KV_ORV::kLogError;
using KV_ORV::kLogMessage;

namespace {

// "probe/core" names the core; any other shape is used whole.
std::string shortCpuName(const std::string& cpuName) {
  std::vector<std::string> pieces;
  KV_ORV::uString::tokenize(pieces, cpuName.c_str(), "/");
  return pieces.size() == 2 ? pieces[1] : cpuName;
}

}  // namespace

ChannelDriver::ChannelDriver(CReceiver* owner, const char* cpuName, CCpuTraceInterface* traceInterface,
                             std::uint32_t cpuHandle, std::uint32_t auxId)
    : owner_(owner),
      traceInterface_(traceInterface),
      auxId_(auxId),
      cpuName_(cpuName != nullptr ? cpuName : ""),
      cpuHandle_(cpuHandle) {
  if (owner == nullptr || cpuName == nullptr || traceInterface == nullptr) {
    static const char* const kMessage = "Internal error creating Channel Driver. Null parameters.";
    KV_LOG(1, kLogError, "%s: %s", kTag, kMessage);
    Hexkit::throwHexkitError(kMessage);
  }
  cpuShortName_ = shortCpuName(cpuName_);

  // The capture file lives in the "data" folder of the trace directory that
  // the start-up published; the collector creates the folder when it records.
  loggingDir_ = KV_ORV::GetEnv(KV_ORV::TraceStartup::kLoggingDirVariable);
  const char separator = KV_ORV::native::pathSeparator();
  captureFilePath_ = loggingDir_ + separator + "data" + separator + "swotrace_" + cpuShortName_ + ".bin";

  exceptionMapName_ = "MOD_EXCEPTIONMAP";
  resetItmChannels();

  lock_.reset(new (std::nothrow) KV_ORV::uMutex());
  if (!lock_) {
    static const char* const kMessage = "Internal error creating ChannelDriver. Failed to create mutex object";
    KV_LOG(1, kLogError, "%s: %s", kTag, kMessage);
    Hexkit::throwHexkitError(kMessage);
  }
}

ChannelDriver::~ChannelDriver() {
  try {
    StopRecording();
    clearExportStatus();
  } catch (...) {
    // Destruction goes on whatever the target says.
  }
  // A host slot that throws here must not end the host's process: each call
  // is guarded on its own, its failure logged, and the teardown goes on.
  guardedTeardownCall("TraceStop", [this] { traceInterface_->TraceStop(cpuHandle_); });
  stopCollector();
  guardedTeardownCall("ReleaseTrace", [this] { traceInterface_->ReleaseTrace(cpuHandle_); });
}

template <typename Call>
void ChannelDriver::guardedTeardownCall(const char* what, Call call) noexcept {
  try {
    call();
  } catch (const std::exception& error) {
    KV_LOG(1, kLogError, "%s: %s failed while the driver was destroyed: %s", kTag, what, error.what());
  } catch (...) {
    KV_LOG(1, kLogError, "%s: %s failed while the driver was destroyed: %s", kTag, what, "unknown exception");
  }
}

bool ChannelDriver::targetDisconnected() const {
  return targetState_ == eTARGET_NOT_CONNECTED || targetState_ == eTARGET_DISCONNECTED;
}

void ChannelDriver::resetItmChannels() {
  itmChannelTypes_.fill(-1);
  itmSetupLoaded_ = false;
}

void ChannelDriver::GetStatus(ChannelStatus& status) {
  // A disconnected target leaves the host's record exactly as it was.
  if (targetDisconnected()) return;
  KV_ORV::uLockGuard guard(*lock_);
  status.code = 0;
  status.f0 = status.f1 = status.f2 = status.f3 = status.f4 = false;
  switch (state_) {
    case kNotCalibrated:
      status.code = kCodeCalibrating;
      status.text = "Ready to calibrate";
      [[fallthrough]];  // the host has always been shown "Calibrating ..." here
    case kCalibrating:
      status.code = kCodeCalibrating;
      status.text = "Calibrating ...";
      break;
    case kReadyToRecord:
      status.code = kCodeReadyToRecord;
      status.text = "Ready to record";
      status.f0 = status.f1 = true;
      break;
    case kRecording:
      status.code = kCodeRecording;
      status.text = "Recording";
      status.f0 = status.f3 = true;
      break;
    case kStoppedByError:
      status.code = kCodeStoppedByError;
      status.text = "Stopped by error";
      status.f0 = status.f1 = status.f4 = true;
      break;
    case kStoppedByUser:
      status.code = kCodeStoppedByUser;
      status.text = "Stopped by user";
      status.f0 = status.f1 = status.f4 = true;
      break;
    default:
      break;
  }
}

void ChannelDriver::GetProgress(std::uint32_t* current, std::uint32_t* total) {
  *current = 1;
  *total = 100;
}

void ChannelDriver::GetInfoText(std::string& out, std::uint32_t, std::uint32_t) { out = "Not implemented"; }

void ChannelDriver::SetHaltState(const char* cpuName, bool halted) {
  const std::string name = cpuName != nullptr ? cpuName : "";
  for (HaltEntry& entry : haltList_) {
    if (entry.cpuName == name) {
      entry.halted = halted;
      KV_LOG(2, kLogMessage, "%s: modified halt state for %s to %d", kTag, entry.cpuName.c_str(), halted ? 1 : 0);
      return;
    }
  }
  haltList_.push_back(HaltEntry{name, halted});
}

void ChannelDriver::UnregisterCpu(const char* cpuName) {
  const std::string name = cpuName != nullptr ? cpuName : "";
  for (auto entry = haltList_.begin(); entry != haltList_.end(); ++entry) {
    if (entry->cpuName == name) {
      haltList_.erase(entry);
      KV_LOG(2, kLogMessage, "%s: CPU unregistered.", kTag);
      return;
    }
  }
}

void ChannelDriver::OnJobStateChanged(std::uint32_t jobState) {
  if (jobState != eJOB_MODIFIED_DISABLE_RESUME) return;
  ChannelStatus scratch;
  GetStatus(scratch);
  KV_LOG(1, kLogMessage, "%s: state changed to eJOB_MODIFIED_DISABLE_RESUME", kTag);
}

void ChannelDriver::ResumeRecording() { Hexkit::throwHexkitError("ResumeRecording not supported"); }

void ChannelDriver::LoadFile(const char*) { Hexkit::throwHexkitError("LoadFile not supported"); }

}  // namespace Kv::Orv::Trace::Vestrel
