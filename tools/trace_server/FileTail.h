// Reading on at the end of a file that another process is still writing.
// The Windows C runtime remembers that a file was at its end and then reads
// nothing more, however much it grows, until the position is set again.
#pragma once

#include <cstdio>

namespace vestrel::trace_server {

// After a read came up short: forget the end, keep the position.
void readOnAfterEnd(std::FILE* file);

}  // namespace vestrel::trace_server
