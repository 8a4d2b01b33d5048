// The driver the host uses to capture SWO trace from one CPU: its recording
// state machine, the status the host polls, and the host notifications.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "CChannelDriver.h"
#include "CCpuTraceInterface.h"
#include "CReceiver.h"
#include "ChannelOptions.h"
#include "ProbeInterfaces.h"
#include "ProbeKind.h"
#include "UARTDataCollector.h"
#include "uMutex.h"
#include "uThread.h"

namespace Kv::Orv::Trace::Vestrel {

class ChannelDriver : public CChannelDriver {
 public:
  // Recording states.
  enum State : std::uint32_t {
    kNotCalibrated = 0,
    kCalibrating = 1,
    kReadyToRecord = 2,
    kRecording = 3,
    kStoppedByError = 4,
    kStoppedByUser = 5,
  };
  // Status codes reported to the host.
  static constexpr std::uint32_t kCodeCalibrating = 1;
  static constexpr std::uint32_t kCodeRecording = 6;
  static constexpr std::uint32_t kCodeStoppedByError = 10;
  static constexpr std::uint32_t kCodeStoppedByUser = 11;
  static constexpr std::uint32_t kCodeReadyToRecord = 16;

  static constexpr const char* kTag = "Vestrel_ChannelDriver";

  // owner, cpuName and traceInterface must not be null (cHexkitError).
  ChannelDriver(CReceiver* owner, const char* cpuName, CCpuTraceInterface* traceInterface, std::uint32_t cpuHandle,
                std::uint32_t auxId);
  ~ChannelDriver() override;
  ChannelDriver(const ChannelDriver&) = delete;
  ChannelDriver& operator=(const ChannelDriver&) = delete;

  TraceAttribute& GetAttribute(const char* name, TraceAttribute& record) override;
  void GetProgress(std::uint32_t* current, std::uint32_t* total) override;
  bool IsFileLoaded() override { return false; }
  void SetConfiguration(const char* fileName) override;
  void StartRecording(bool flag) override;
  void StopRecording() override;
  void ResumeRecording() override;
  void SaveToFile(std::string fileName, std::uint32_t format) override;
  void LoadFile(const char* fileName) override;
  std::uint32_t SeekReadTraceData(std::uint32_t startSample, std::uint32_t numRequested, std::uint64_t* buffer,
                                  std::uint32_t* numRead) override;
  std::uint32_t GetNumSamples() override;
  const char* GetCpuName() override { return cpuName_.c_str(); }
  void GetStatus(ChannelStatus& status) override;
  void GetInfoText(std::string& out, std::uint32_t id, std::uint32_t argument) override;

  // The driver's own slots.
  virtual void OnJobStateChanged(std::uint32_t jobState);
  virtual void SetTargetState(std::uint32_t state) { targetState_ = state; }
  virtual void SetHaltState(const char* cpuName, bool halted);
  virtual void UnregisterCpu(const char* cpuName);

  // Set by the receiver right after construction.
  void SetDeviceIdentifier(Probe::CDeviceIdentifier* identifier) { deviceIdentifier_ = identifier; }
  void SetTargetAdapter(Probe::CTargetAdapter* adapter) { targetAdapter_ = adapter; }
  void SetProbeKind(ProbeKind kind) { probeKind_ = kind; }

  // The probe firmware version in an option text, packed as
  // major<<24 | minor<<16 | bug-fix<<8 | patch; 0 when it has no dot.
  static std::uint32_t ParseFirmwareVersion(std::string text);

  // Read-only views for the receiver and for tests.
  std::uint32_t state() const { return state_; }
  std::uint32_t targetState() const { return targetState_; }
  const std::string& cpuShortName() const { return cpuShortName_; }
  const std::string& captureFilePath() const { return captureFilePath_; }
  const std::string& loggingDir() const { return loggingDir_; }
  std::uint32_t cpuHandle() const { return cpuHandle_; }
  std::uint32_t auxId() const { return auxId_; }
  ProbeKind probeKind() const { return probeKind_; }
  Probe::CDeviceIdentifier* deviceIdentifier() const { return deviceIdentifier_; }
  Probe::CTargetAdapter* targetAdapter() const { return targetAdapter_; }
  const std::string& exceptionMapName() const { return exceptionMapName_; }
  const OptionSet& options() const { return options_; }
  std::uint32_t encoding() const { return encoding_; }
  double traceClockHz() const { return traceClockHz_; }
  std::uint32_t prescaler() const { return prescaler_; }
  std::uint32_t comPort() const { return comPort_; }
  std::uint32_t tsPrescaler() const { return tsPrescaler_; }
  bool prescalerAuto() const { return prescalerAuto_; }
  bool clockAuto() const { return clockAuto_; }
  std::uint32_t firmwareVersion() const { return firmwareVersion_; }
  const std::array<std::int32_t, 32>& itmChannelTypes() const { return itmChannelTypes_; }
  bool itmSetupLoaded() const { return itmSetupLoaded_; }
  bool collectorRunning() const { return collectorRunning_; }
  const UARTDataCollector* collector() const { return collector_.get(); }
  struct HaltEntry {
    std::string cpuName;
    bool halted;
  };
  const std::vector<HaltEntry>& haltList() const { return haltList_; }

 private:
  friend class ChannelDriverTestAccess;

  bool targetDisconnected() const;
  std::string findOption(std::uint32_t id) const;
  void applyOptions();
  void clearExportStatus();
  void startCaptureSide();
  void programTpiu();
  void stopCollector();
  template <typename Call>
  void guardedTeardownCall(const char* what, Call call) noexcept;
  void resetItmChannels();
  void loadItmChannelSetup();

  CReceiver* owner_;
  CCpuTraceInterface* traceInterface_;
  std::uint32_t auxId_;
  std::string cpuName_;
  std::uint32_t cpuHandle_;
  std::unique_ptr<KV_ORV::uMutex> lock_;
  std::unique_ptr<KV_ORV::uThread> collectorThread_;
  std::unique_ptr<UARTDataCollector> collector_;
  // Set from the host's notification thread without the lock.
  std::atomic<std::uint32_t> targetState_{0};
  std::uint32_t state_ = kNotCalibrated;
  OptionSet options_;
  std::uint32_t encoding_ = eSWO_ENCODING_UART;
  double traceClockHz_ = 0.0;
  std::uint32_t prescaler_ = 0;
  std::uint32_t comPort_ = 0;
  std::uint32_t tsPrescaler_ = eSWO_TS_PRESCALAR_1;
  bool prescalerAuto_ = false;
  bool clockAuto_ = false;
  std::string cpuShortName_;
  std::string captureFilePath_;
  std::string loggingDir_;
  std::vector<HaltEntry> haltList_;
  std::string attributeText_;
  Probe::CDeviceIdentifier* deviceIdentifier_ = nullptr;
  Probe::CTargetAdapter* targetAdapter_ = nullptr;
  bool collectorRunning_ = false;
  ProbeKind probeKind_ = kUnsupportedProbe;
  std::uint32_t firmwareVersion_ = 0;
  std::string exceptionMapName_ = "MOD_EXCEPTIONMAP";
  std::array<std::int32_t, 32> itmChannelTypes_{};
  bool itmSetupLoaded_ = false;
};

}  // namespace Kv::Orv::Trace::Vestrel
