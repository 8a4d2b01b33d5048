// Readers of the probe software's board data file: sections start with a
// line "$ name"; entries are indented "key=value" lines.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>

#include "ProbeKind.h"

namespace Kv::Orv::Trace::Vestrel {

// Opens the board file at path for reading, lets parse read it and closes
// it on every way out, a parser that throws included (the exception passes
// on). False, and parse not called, when the file does not open.
bool ParseBoardFile(const std::string& path, const std::function<void(std::FILE*)>& parse);

// The probe kind the file describes: Calder when a "calder" section comes
// first, Harrow when a "product" section's name entry is "Harrow" first;
// otherwise kUnsupportedProbe.
ProbeKind ReadProbeKind(std::FILE* file);

// True when, once a header whose name begins with section has been seen, an
// indented line reads key=value... (value as a prefix). The search runs on
// past the end of that section, through later sections too.
bool ReadBoardEntry(std::FILE* file, const char* section, const char* key, const char* value);

}  // namespace Kv::Orv::Trace::Vestrel
