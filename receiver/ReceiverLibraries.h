// Loading the probe software's libraries by name.
#pragma once

#include <exception>
#include <memory>
#include <string>
#include <utility>

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

// The text of a failure: what() of a std::exception, else "unknown exception".
std::string DescribeFailure(const std::exception_ptr& failure);

// Throws the receiver's own copy of a failure that came out of a library:
// std::bad_alloc as itself, a cHexkitError with its text and severity,
// anything else as a cHexkitError (severity 2) with its text. The library's
// exception object, whose code lives in the library, is gone before the
// library can be unloaded on the way out.
[[noreturn]] void ThrowAsOwn(const std::exception_ptr& failure);

// Calls into a library that may be unloaded while what it throws unwinds.
template <typename Call>
decltype(auto) CallIntoLibrary(Call&& call) {
  try {
    return std::forward<Call>(call)();
  } catch (...) {
    ThrowAsOwn(std::current_exception());
  }
}

}  // namespace Kv::Orv::Trace::Vestrel
