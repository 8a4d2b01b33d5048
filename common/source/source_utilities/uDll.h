// One library loaded at run time by a bare name: load, look up exports,
// unload on destruction. The latest failure is kept as text.
#pragma once

#include <cstdint>
#include <string>

#include "OsServices.h"

namespace KV_ORV {

class uDll {
 public:
  // A mode of 0xFFFFFFFF means "none" and is stored as 0.
  explicit uDll(const char* name = nullptr, std::uint32_t mode = 0xFFFFFFFF);
  virtual ~uDll();
  uDll(const uDll&) = delete;
  uDll& operator=(const uDll&) = delete;

  // Loads name unless a library is loaded already. False for a null or empty
  // name and when loading fails (LastError() says why). Throws
  // source_utilities_error when the working directory cannot be read.
  bool FindAndLoad(const char* name, std::uint32_t mode);
  // The export's address, or null (LastError() says why).
  void* GetSymbol(const char* exportName);
  // The platform's file name for a library called name.
  static std::string GetPlatformName(const char* name);

  bool IsLoaded() const { return handle_ != nullptr; }
  const std::string& Name() const { return name_; }
  std::uint32_t Mode() const { return mode_; }
  const std::string& LastError() const { return lastError_; }
  // The loader's own account of the last load that failed: where it looked
  // and why ("" when the platform gives none).
  const std::string& LoaderMessage() const { return loaderMessage_; }

  // Source file named by the function-entry trace line.
  static constexpr const char* kSourceFile = "common/source/source_utilities/uDll.cpp";

 private:
  bool load(const std::string& file, std::uint32_t mode);

  std::string name_;
  std::uint32_t mode_;
  LibraryHandle handle_ = nullptr;
  std::string lastError_;
  std::string loaderMessage_;
};

}  // namespace KV_ORV
