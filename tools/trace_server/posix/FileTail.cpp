#include "../FileTail.h"

namespace vestrel::live {

void readOnAfterEnd(std::FILE* file) { std::clearerr(file); }

}  // namespace vestrel::live
