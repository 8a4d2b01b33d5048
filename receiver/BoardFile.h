// Readers of the probe software's board data file: sections start with a
// line "$ name"; entries are indented "key=value" lines.
#pragma once

#include <cstdint>
#include <cstdio>

#include "ProbeKind.h"

namespace Kv::Orv::Trace::Vestrel {

// The probe kind the file describes: Calder when a "calder" section comes
// first, Harrow when a "product" section's name entry is "Harrow" first;
// otherwise kUnsupportedProbe.
ProbeKind ReadProbeKind(std::FILE* file);

// True when, once a header whose name begins with section has been seen, an
// indented line reads key=value... (value as a prefix). The search runs on
// past the end of that section, through later sections too.
bool ReadBoardEntry(std::FILE* file, const char* section, const char* key, const char* value);

}  // namespace Kv::Orv::Trace::Vestrel
