#include "../Terminal.h"

#include <io.h>

namespace vestrel::host {

bool isTerminal(std::FILE* stream) { return _isatty(_fileno(stream)) != 0; }

}  // namespace vestrel::host
