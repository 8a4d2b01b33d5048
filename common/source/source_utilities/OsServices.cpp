#include "OsServices.h"

#include <atomic>

#include "NativePlatform.h"

namespace KV_ORV {

namespace {
std::atomic<OsServices*> activeOverride{nullptr};
}

OsServices& os() {
  OsServices* replacement = activeOverride.load(std::memory_order_acquire);
  return replacement != nullptr ? *replacement : nativeOs();
}

std::FILE* OsServices::openStream(const char* path, const char* mode) { return std::fopen(path, mode); }

std::FILE* OsServices::openSharedStream(const char* path, const char* mode) {
  return native::openSharedStream(path, mode);
}

int OsServices::closeStream(std::FILE* stream) { return std::fclose(stream); }

ScopedOsOverride::ScopedOsOverride(OsServices& replacement)
    : previous_(activeOverride.exchange(&replacement, std::memory_order_acq_rel)) {}

ScopedOsOverride::~ScopedOsOverride() { activeOverride.store(previous_, std::memory_order_release); }

}  // namespace KV_ORV
