// Reads an input into a decode chain: block by block to its end, or,
// following a file, until following ends; a TDF file's BinTraceData section
// only.
#pragma once

#include <functional>

#include "DecodeChain.h"
#include "DecodePipeline.h"

namespace vestrel::decoder {

// paused is called whenever the input has nothing more for now. The result
// says how reading ended (its statistics and outputs are not filled in).
DecodeResult readInto(const ReadSome& read, DecodeChain& chain, const DecodeOptions& options,
                      const std::function<void()>& paused);

}  // namespace vestrel::decoder
