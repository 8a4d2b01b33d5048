// Loading the probe software's libraries by name.
#pragma once

#include <memory>

#include "uDll.h"

namespace Kv::Orv::Trace::Vestrel {

// Loads name into a new loader stored in library. Throws cHexkitError
// "Failed to load <name>" when it cannot be loaded.
void LoadReceiverLibrary(const char* name, std::unique_ptr<KV_ORV::uDll>& library);

// The export's address as a function pointer of type F, or null.
template <typename F>
F LookUp(KV_ORV::uDll& library, const char* exportName) {
  return reinterpret_cast<F>(library.GetSymbol(exportName));
}

}  // namespace Kv::Orv::Trace::Vestrel
