#include "../InputBlocks.h"

#include <fcntl.h>
#include <io.h>

#include <climits>

namespace vestrel::decode {

long readAvailable(std::FILE* file, void* buffer, std::size_t size) {
  const int descriptor = _fileno(file);
  // Trace is bytes: no CR-LF translation, no end at a Ctrl-Z.
  static const bool binary = _setmode(_fileno(stdin), _O_BINARY) != -1;
  (void)binary;
  const unsigned count = size > INT_MAX ? INT_MAX : static_cast<unsigned>(size);
  return _read(descriptor, buffer, count);
}

}  // namespace vestrel::decode
