#include "../FileTail.h"

namespace vestrel::trace_server {

void readOnAfterEnd(std::FILE* file) { std::clearerr(file); }

}  // namespace vestrel::trace_server
