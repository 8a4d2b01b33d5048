#include "../ProcessResources.h"

#include <dirent.h>
#include <sys/resource.h>

#include <fstream>
#include <string>

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

bool limitOpenHandles(std::size_t room) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
  limit.rlim_cur = static_cast<rlim_t>(handleCount() + room);
  return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

std::size_t peakMemoryBytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stoul(line.substr(6)) * 1024;  // "VmHWM:   123 kB"
  }
  return 0;
}

}  // namespace vestrel_test
