#include "OsServices.h"

#include <atomic>

namespace KV_ORV {

namespace {
std::atomic<OsServices*> activeOverride{nullptr};
}

OsServices& os() {
  OsServices* replacement = activeOverride.load(std::memory_order_acquire);
  return replacement != nullptr ? *replacement : nativeOs();
}

ScopedOsOverride::ScopedOsOverride(OsServices& replacement)
    : previous_(activeOverride.exchange(&replacement, std::memory_order_acq_rel)) {}

ScopedOsOverride::~ScopedOsOverride() { activeOverride.store(previous_, std::memory_order_release); }

}  // namespace KV_ORV
