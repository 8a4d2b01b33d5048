#include "../FileTail.h"

namespace vestrel::trace_server {

void readOnAfterEnd(std::FILE* file) {
  std::clearerr(file);
  _fseeki64(file, 0, SEEK_CUR);  // 64-bit: captures grow past 2 GiB
}

}  // namespace vestrel::trace_server
