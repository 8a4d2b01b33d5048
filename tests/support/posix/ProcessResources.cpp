#include "../ProcessResources.h"

#include <dirent.h>

namespace vestrel_test {

namespace {

std::size_t entriesIn(const char* directory) {
  DIR* dir = opendir(directory);
  if (dir == nullptr) return 0;
  std::size_t count = 0;
  while (const dirent* entry = readdir(dir)) {
    if (entry->d_name[0] != '.') ++count;
  }
  closedir(dir);
  return count;
}

}  // namespace

std::size_t threadCount() { return entriesIn("/proc/self/task"); }
// Less the descriptor of the listing itself.
std::size_t handleCount() { return entriesIn("/proc/self/fd") - 1; }

}  // namespace vestrel_test
