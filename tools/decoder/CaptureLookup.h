// vestrel-decode's view of a capture on disk: a folder stands for the one
// capture it holds (a demo or record folder), and the metadata file beside a
// capture says how its bytes are read unless the command line says
// otherwise.
#pragma once

#include <optional>
#include <string>

#include "CaptureMetadata.h"

namespace vestrel::decoder {

// The capture a folder holds: the one raw capture with a metadata file in
// the folder itself or in its .KV-trace/data/ (where the receiver keeps its
// own). Throws std::runtime_error saying what was found instead.
std::string captureInFolder(const std::string& folder);

}  // namespace vestrel::decoder
