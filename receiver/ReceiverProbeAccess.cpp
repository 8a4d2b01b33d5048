// The receiver's access to the probe software: probe kind and board entries
// through the setup adapter, device support, target adapters and the device
// identifier.
#include <cstdio>
#include <string>

#include "BoardFile.h"
#include "DeviceSupport.h"
#include "LogControl.h"
#include "Receiver.h"
#include "ReceiverLibraries.h"
#include "cHexkitError.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;

namespace {
constexpr const char* kSetupAdapterLibrary = "SetupAdapter4";
}

// One setup adapter session: the library is loaded, asked for the CPU's
// board file, which parse reads, and unloaded again. Problems are logged,
// not thrown: whatever parse found so far stands. Whatever the library
// throws is caught while it is still loaded.
template <typename Parser>
void Receiver::withBoardFile(Parser parse) {
  std::unique_ptr<KV_ORV::uDll> library;
  LoadReceiverLibrary(kSetupAdapterLibrary, library);

  auto create = LookUp<Probe::CreateSetupAdapterFunction>(*library, "CreateSetupAdapter");
  if (create == nullptr) {
    KV_LOG(1, KV_ORV::kLogError, "%s: Unable to find CreateSetupAdapter in %s", kTag, kSetupAdapterLibrary);
    return;
  }
  Probe::CSetupAdapter* adapter = nullptr;
  try {
    adapter = create();
  } catch (...) {
    KV_LOG(1, KV_ORV::kLogError, "%s: exception using %s", kTag, kSetupAdapterLibrary);
    return;
  }
  if (adapter == nullptr) {
    KV_LOG(1, KV_ORV::kLogError, "%s: CreateSetupAdapter returned null in %s", kTag, kSetupAdapterLibrary);
    return;
  }
  try {
    std::string errorText;
    if (!adapter->Initialize(errorText)) {
      KV_LOG(1, KV_ORV::kLogError, "%s: Unable to initialize %s : %s", kTag, kSetupAdapterLibrary, errorText.c_str());
    } else {
      std::string path;
      path = adapter->GetBoardFile(cpuName_, path);
      ParseBoardFile(path, parse);  // a file that does not open is skipped
    }
  } catch (...) {
    KV_LOG(1, KV_ORV::kLogError, "%s: exception using %s", kTag, kSetupAdapterLibrary);
  }
  if (auto destroy = LookUp<Probe::DestroySetupAdapterFunction>(*library, "DestroySetupAdapter")) {
    try {
      destroy(adapter);
    } catch (...) {
      KV_LOG(1, KV_ORV::kLogError, "%s: exception using %s", kTag, kSetupAdapterLibrary);
    }
  }
}

void Receiver::DetectProbeKind() {
  withBoardFile([this](std::FILE* file) { probeKind_ = ReadProbeKind(file); });
}

bool Receiver::HasBoardEntry(const char* section, const char* key, const char* value) {
  bool found = false;
  withBoardFile([&](std::FILE* file) { found = ReadBoardEntry(file, section, key, value); });
  return found;
}

void Receiver::CheckDeviceSupport(bool& supported) {
  supported = false;
  if (deviceIdentifier_ == nullptr) return;
  supported = Vestrel::CheckDeviceSupport(
      *deviceIdentifier_,
      [this](const char* section, const char* key, const char* value) { return HasBoardEntry(section, key, value); });
}

Probe::CTargetAdapter* Receiver::GetTargetAdapter(const char* cpuName) {
  // Loaded on first use and kept until the receiver goes, factory or not.
  // Only a load that failed is not kept: the next request tries again, so a
  // repaired installation is found.
  if (!adapterLibrary_) {
    try {
      LoadReceiverLibrary("ICETargetAdapter", adapterLibrary_);
    } catch (...) {
      adapterLibrary_.reset();
      throw;
    }
    newTargetAdapter_ = LookUp<Probe::NewTargetAdapterFunction>(*adapterLibrary_, "NewTargetAdapter");
  }
  if (newTargetAdapter_ == nullptr) Hexkit::throwHexkitError("Cannot get target adapter factory. Bad installation.");
  Probe::CTargetAdapter* adapter = nullptr;
  adapter = newTargetAdapter_(cpuName, &adapter);
  if (adapter == nullptr) {
    Hexkit::throwHexkitError("Cannot get target adapter for SWO receiver. Bad installation or setup.");
  }
  return adapter;
}

void Receiver::LoadDeviceIdentifier() {
  if (identifierLibrary_) return;
  LoadReceiverLibrary("DeviceIdentifier", identifierLibrary_);
  createDeviceIdentifier_ =
      LookUp<Probe::CreateDeviceIdentifierFunction>(*identifierLibrary_, "CreateDeviceIdentifier");
  destroyDeviceIdentifier_ =
      LookUp<Probe::DestroyDeviceIdentifierFunction>(*identifierLibrary_, "DestroyDeviceIdentifier");
  if (createDeviceIdentifier_ == nullptr || destroyDeviceIdentifier_ == nullptr) {
    Hexkit::throwHexkitError("Missing exports in device identifier dll");
  }
  deviceIdentifier_ = CallIntoLibrary(createDeviceIdentifier_);
  if (deviceIdentifier_ == nullptr) {
    Hexkit::throwHexkitError("Internal error, failed to create device identifier");
  }
}

}  // namespace Kv::Orv::Trace::Vestrel
