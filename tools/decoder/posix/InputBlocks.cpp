#include "../InputBlocks.h"

#include <errno.h>
#include <unistd.h>

namespace vestrel::decoder {

long readAvailable(std::FILE* file, void* buffer, std::size_t size) {
  for (;;) {
    const ssize_t got = ::read(fileno(file), buffer, size);
    if (got >= 0) return static_cast<long>(got);
    if (errno != EINTR) return -1;
  }
}

}  // namespace vestrel::decoder
