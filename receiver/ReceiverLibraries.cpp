#include "ReceiverLibraries.h"

#include <new>
#include <string>

#include "cHexkitError.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;
using Hexkit::cHexkitErrorIF;

void LoadReceiverLibrary(const char* name, std::unique_ptr<KV_ORV::uDll>& library) {
  library.reset(new (std::nothrow) KV_ORV::uDll(nullptr, 0xFFFFFFFF));
  if (!library) throw cHexkitError("Failed to allocate receiver dll.", cHexkitErrorIF::eSeverityError);
  if (!library->FindAndLoad(name, 0xFFFFFFFF)) {
    throw cHexkitError(std::string("Failed to load ") + name, cHexkitErrorIF::eSeverityError);
  }
}

}  // namespace Kv::Orv::Trace::Vestrel
