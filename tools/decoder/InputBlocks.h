// Reads what the input has now, up to a block: a file gives full blocks, a
// pipe or terminal what has arrived, so that a pause of the input is seen
// (and the output shown) at once. Standard input is read as bytes.
#pragma once

#include <cstddef>
#include <cstdio>

namespace vestrel::decoder {

// Bytes read (0 at the end of the input), or -1 when the read failed.
long readAvailable(std::FILE* file, void* buffer, std::size_t size);

}  // namespace vestrel::decoder
