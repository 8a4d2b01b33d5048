#include "ReceiverLibraries.h"

#include <new>
#include <string>

#include "cHexkitError.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;

void LoadReceiverLibrary(const char* name, std::unique_ptr<KV_ORV::uDll>& library) {
  library.reset(new (std::nothrow) KV_ORV::uDll(nullptr, 0xFFFFFFFF));
  if (!library) Hexkit::throwHexkitError("Failed to allocate receiver dll.");
  if (!library->FindAndLoad(name, 0xFFFFFFFF)) {
    Hexkit::throwHexkitError(std::string("Failed to load ") + name);
  }
}

std::string DescribeFailure(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "unknown exception";
  }
}

void ThrowAsOwn(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const std::bad_alloc&) {
    throw std::bad_alloc();
  } catch (const cHexkitError& error) {
    throw cHexkitError(error.GetMessage(), error.GetSeverity());
  } catch (...) {
    Hexkit::throwHexkitError(DescribeFailure(failure));
  }
}

}  // namespace Kv::Orv::Trace::Vestrel
