#include "../InputBlocks.h"

#include <fcntl.h>
#include <io.h>

#include <climits>
#include <cstdio>

namespace vestrel::decoder {

long readAvailable(std::FILE* file, void* buffer, std::size_t size) {
  const int descriptor = _fileno(file);
  // Trace is bytes: no CR-LF translation, no end at a Ctrl-Z.
  static const bool binary = _setmode(_fileno(stdin), _O_BINARY) != -1;
  (void)binary;
  const unsigned count = size > INT_MAX ? INT_MAX : static_cast<unsigned>(size);
  const int got = _read(descriptor, buffer, count);
  // At the end of a file the runtime remembers the end and reads nothing
  // more until the position is set again: set it where it is, so that a
  // file that grows (--follow) is read on. (A pipe has no position.)
  if (got == 0) _lseeki64(descriptor, 0, SEEK_CUR);
  return got;
}

}  // namespace vestrel::decoder
