// The one receiver of the process: it hands out a channel driver per CPU
// after checking the probe and the device, keeps the drivers, and forwards
// the host's target-state notifications to them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "CReceiver.h"
#include "ProbeInterfaces.h"
#include "ProbeKind.h"
#include "uDll.h"

namespace Kv::Orv::Trace::Vestrel {

class ChannelDriver;

class Receiver : public CReceiver {
 public:
  // Loads the device identifier; throws cHexkitError when it cannot.
  Receiver();
  // Throws only what the device identifier's destroy function threw, after
  // the whole teardown has run.
  ~Receiver() noexcept(false) override;
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  void OnTargetStateChanged(const char* cpuName, std::uint32_t state) override;
  void OnJobStateChanged(const char* cpuName, std::uint32_t state) override;

  std::uint32_t GetNumAttachedCpus() override;
  void GetCpuNames(char** names) override;
  CChannelDriver* GetChannelDriver(const char* cpuName, CCpuTraceInterface* traceInterface, std::uint32_t cpuHandle,
                                   std::uint32_t auxId) override;
  void ReleaseChannelDriver(CChannelDriver* driver) override;
  std::uint32_t QuerySlot8() override { return 1; }
  void* GetDataSource(const char* cpuName) override;
  CChannelDriver* FindChannelDriver(const char* cpuName) override;
  std::uint32_t GetNextAvailableChannel() override;
  std::uint32_t QuerySlot12(std::uint32_t) override { return 0; }
  void GetProgress(std::uint32_t* current, std::uint32_t* total) override;
  std::uint32_t QuerySlot14() override { return 0; }

  // Probe and target-adapter access.
  void DetectProbeKind();
  bool HasBoardEntry(const char* section, const char* key, const char* value);
  void CheckDeviceSupport(bool& supported);
  Probe::CTargetAdapter* GetTargetAdapter(const char* cpuName);
  void LoadDeviceIdentifier();

  ProbeKind probeKind() const { return probeKind_; }
  Probe::CDeviceIdentifier* deviceIdentifier() const { return deviceIdentifier_; }

  static constexpr const char* kTag = "Vestrel_Receiver";

 private:
  template <typename Parser>
  void withBoardFile(Parser parse);

  Probe::CDeviceIdentifier* deviceIdentifier_ = nullptr;
  std::unique_ptr<KV_ORV::uDll> identifierLibrary_;
  Probe::CreateDeviceIdentifierFunction createDeviceIdentifier_ = nullptr;
  Probe::DestroyDeviceIdentifierFunction destroyDeviceIdentifier_ = nullptr;
  std::vector<ChannelDriver*> drivers_;
  std::unique_ptr<KV_ORV::uDll> adapterLibrary_;
  Probe::NewTargetAdapterFunction newTargetAdapter_ = nullptr;
  ProbeKind probeKind_ = kUnsupportedProbe;
  std::string cpuName_;
};

}  // namespace Kv::Orv::Trace::Vestrel
