#include "../Terminal.h"

#include <unistd.h>

namespace vestrel::host {

bool isTerminal(std::FILE* stream) { return isatty(fileno(stream)) != 0; }

}  // namespace vestrel::host
