#include "NonRegularFiles.h"

#include <sys/stat.h>

namespace vestrel_test {

int makeFifo(const std::string& path) { return ::mkfifo(path.c_str(), 0600); }

}  // namespace vestrel_test
