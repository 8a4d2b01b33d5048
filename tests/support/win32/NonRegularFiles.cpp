#include "NonRegularFiles.h"

namespace vestrel_test {

// Windows' named pipes live in their own namespace, not in the file system.
int makeFifo(const std::string&) { return -1; }

}  // namespace vestrel_test
