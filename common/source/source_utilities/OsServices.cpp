#include "OsServices.h"

#include <algorithm>
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

namespace {
thread_local char loadFailure[1024];
}

void keepLoadFailure(const std::string& text) {
  const std::size_t length = std::min(text.size(), sizeof loadFailure - 1);
  text.copy(loadFailure, length);
  loadFailure[length] = '\0';
}

std::string keptLoadFailure() { return loadFailure; }

}  // namespace KV_ORV
