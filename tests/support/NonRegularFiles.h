// Files that are not regular files, for readers that must refuse them.
#pragma once

#include <string>

namespace vestrel_test {

// Makes a FIFO (a named pipe in the file system) at path: 0, or -1 where
// the platform has none (Windows).
int makeFifo(const std::string& path);

}  // namespace vestrel_test
