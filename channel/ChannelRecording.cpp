// Starting and stopping a recording: quiesce trace, bring up the capture
// side (clock, COM port, collector thread), then program and enable the
// TPIU through the host's trace interface; stopping reverses it.
#include <new>

#include "ChannelDriver.h"
#include "LogControl.h"
#include "OswinDevice.h"
#include "SystemClock.h"
#include "cHexkitError.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;
using KV_ORV::kLogError;
using KV_ORV::kLogMessage;

namespace {

// Calder firmware from 1.0.0.8 wants a line break at the end of a capture.
constexpr std::uint32_t kFirstBreakFirmware = 0x01000008;

}  // namespace

// Reads the probe's trace export status and acknowledges anything set.
void ChannelDriver::clearExportStatus() {
  KV_ORV::uLockGuard guard(*lock_);
  std::uint32_t status = 0;
  traceInterface_->GetTraceExportStatus(cpuHandle_, &status);
  if (status != 0) {
    KV_LOG(1, kLogMessage, "%s: Trace export (xmtr) status 0x%x.", kTag, status);
    traceInterface_->AckTraceExportStatus(cpuHandle_, status);
  }
}

// Asks the collector to stop, waits until its loop has finished (no time-out:
// with the port's time-outs that is one pass plus the drain), then frees the
// thread and the collector, which restores and closes the port.
void ChannelDriver::stopCollector() {
  if (collector_) {
    collector_->stop();
    if (collectorRunning_) {
      while (!collector_->isFinished()) KV_ORV::yield();
      collectorRunning_ = false;
    }
  }
  collectorThread_.reset();
  collector_.reset();
}

void ChannelDriver::startCaptureSide() {
  if (collector_) stopCollector();

  // Both lines go out at the error level, so the clock always shows in the log.
  if (clockAuto_) {
    traceClockHz_ = getSystemClock(cpuName_, deviceIdentifier_, targetAdapter_);
    KV_LOG(1, kLogError, "%s: Auto Trace Clock Frequency is %lf", kTag, traceClockHz_);
  } else {
    KV_LOG(1, kLogError, "%s: Requested Trace Clock Frequency is %lf", kTag, traceClockHz_);
  }
  if (!(traceClockHz_ > 0.0)) Hexkit::throwHexkitError("Invalid trace clock frequency");
  // The line rate must fit the port's 32-bit rate; calibration starts at 0.
  const double firstPrescaler = prescalerAuto_ ? 0.0 : static_cast<double>(prescaler_);
  if (!UARTDataCollector::rateFits(traceClockHz_ / (firstPrescaler + 1.0))) {
    Hexkit::throwHexkitError("Invalid trace clock frequency");
  }

  if (deviceIdentifier_ != nullptr && deviceIdentifier_->matchDevice(kOswinIdentifier, kOswinMask)) {
    exceptionMapName_ = OswinDevice(cpuName_, deviceIdentifier_, targetAdapter_).getExceptionMapName();
  }

  const bool sendBreakOnStop = probeKind_ == kCalderProbe && firmwareVersion_ >= kFirstBreakFirmware;
  // The collector writes a calibrated prescaler straight into prescaler_.
  collector_.reset(new (std::nothrow) UARTDataCollector(comPort_, traceClockHz_, prescalerAuto_, prescaler_,
                                                        captureFilePath_, sendBreakOnStop));
  if (!collector_) {
    KV_LOG(1, kLogError, "%s: %s", kTag, "out of memory for the UART data collector");
    Hexkit::throwHexkitError("Internal error creating UART data collection object");
  }
  collectorThread_.reset(new (std::nothrow) KV_ORV::uThread(collector_.get(), 0, 0));
  if (!collectorThread_) {
    KV_LOG(1, kLogError, "%s: %s", kTag, "out of memory for the UART data collection thread");
    Hexkit::throwHexkitError("Internal error creating UART data collection thread");
  }
  if (!collectorThread_->start()) {
    KV_LOG(1, kLogError, "%s: %s", kTag, "the UART data collection thread did not start");
    Hexkit::throwHexkitError("Internal error creating UART data collection thread");
  }
  collectorRunning_ = true;
}

// Only once the port listens is the TPIU told to talk.
void ChannelDriver::programTpiu() {
  if (traceInterface_->SetTpiuPrescaler(cpuHandle_, prescaler_) != 0) {
    KV_LOG(1, kLogError, "%s: Failed to setup TPIU prescalar", kTag);
    Hexkit::throwHexkitError("Invalid Prescalar Value");
  }
  if (traceInterface_->SetPinProtocol(cpuHandle_, static_cast<eSWO_ENCODING>(encoding_)) != 0) {
    KV_LOG(1, kLogError, "%s: Failed to setup TPIU pin protocol", kTag);
    Hexkit::throwHexkitError("Invalid Pin Protocol");
  }
  if (traceInterface_->SetTimestampPrescaler(cpuHandle_, static_cast<eSWO_TS_PRESCALAR>(tsPrescaler_)) != 0) {
    KV_LOG(1, kLogError, "%s: Failed to setup timestamping resolution", kTag);
    Hexkit::throwHexkitError("Failed to configure timestamping resolution");
  }
  if (traceInterface_->ProgramTpiu(cpuHandle_) != 0) {
    KV_LOG(1, kLogError, "%s: Failed to program TPIU", kTag);
    Hexkit::throwHexkitError("Failed to program TPIU");
  }
  if (traceInterface_->EnableTpiu(cpuHandle_) != 0) {
    KV_LOG(1, kLogError, "%s: Failed to enable TPIU for tracing", kTag);
    Hexkit::throwHexkitError("Failed to Enable TPIU for SWO trace");
  }
  state_ = kRecording;
}

void ChannelDriver::StartRecording(bool) {
  if (targetDisconnected()) {
    KV_LOG(1, kLogMessage, "%s: Cannot start recording unless target is connected", kTag);
    return;
  }
  KV_ORV::uLockGuard guard(*lock_);
  if (state_ == kRecording) {
    KV_LOG(1, kLogMessage, "%s: Cannot start recording since recording is already in progress", kTag);
    return;
  }
  if (state_ == kNotCalibrated || state_ == kCalibrating) {
    KV_LOG(1, kLogMessage, "%s: Cannot start recording unless caltibration is complete", kTag);
    return;
  }
  // Any failure from here leaves no capture running and the port closed;
  // the state stays as it was.
  try {
    traceInterface_->TraceOff(cpuHandle_);
    traceInterface_->TraceStop(cpuHandle_);
    clearExportStatus();
    startCaptureSide();
    programTpiu();
  } catch (...) {
    stopCollector();
    throw;
  }
}

void ChannelDriver::StopRecording() {
  if (targetDisconnected()) {
    KV_LOG(1, kLogMessage, "%s: Cannot stop recording unless target is connected", kTag);
    return;
  }
  KV_ORV::uLockGuard guard(*lock_);
  if (state_ != kRecording) {
    KV_LOG(1, kLogMessage, "%s: Cannot stop recording as recording has not started yet", kTag);
    return;
  }
  if (targetState_ == eTARGET_RUNNING_TRACED) {
    KV_LOG(1, kLogError, "%s: Trace cannot be stopped while target is running.", kTag);
    Hexkit::throwHexkitError("Trace cannot be stopped while target is running. Please halt the target.");
  }
  traceInterface_->TraceStop(cpuHandle_);
  stopCollector();
  traceInterface_->TraceOff(cpuHandle_);
  state_ = kStoppedByUser;
  resetItmChannels();
}

}  // namespace Kv::Orv::Trace::Vestrel
