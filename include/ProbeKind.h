// Which debug probe the receiver found, from the probe's board data.
#pragma once

#include <cstdint>

namespace Kv::Orv::Trace::Vestrel {

enum ProbeKind : std::uint32_t {
  kCalderProbe = 0,
  kHarrowProbe = 1,
  kUnsupportedProbe = 2,
};

}  // namespace Kv::Orv::Trace::Vestrel
