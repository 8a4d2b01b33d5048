#include "CaptureLookup.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace vestrel::decoder {

namespace {

constexpr std::string_view kSuffix = ".vestrel.json";
// A folder is searched, not walked: more entries than this are not looked at.
constexpr std::size_t kMaxEntries = 100000;

void rawCapturesIn(const std::filesystem::path& folder, std::vector<std::string>& found) {
  namespace fs = std::filesystem;
  std::error_code error;
  std::size_t seen = 0;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end && seen < kMaxEntries;
       entry.increment(error), ++seen) {
    const std::string name = entry->path().filename().string();
    if (name.size() <= kSuffix.size() || name.compare(name.size() - kSuffix.size(), kSuffix.size(), kSuffix) != 0) {
      continue;
    }
    const std::string capture = entry->path().string().substr(0, entry->path().string().size() - kSuffix.size());
    std::error_code ignored;
    if (!fs::is_regular_file(capture, ignored)) continue;
    const auto metadata = capture_metadata::readMetadataBeside(capture);
    if (metadata && !metadata->tdf) found.push_back(capture);
  }
}

}  // namespace

std::string captureInFolder(const std::string& folder) {
  std::vector<std::string> found;
  rawCapturesIn(folder, found);
  if (found.empty()) rawCapturesIn(std::filesystem::path(folder) / ".KV-trace" / "data", found);
  std::sort(found.begin(), found.end());
  if (found.size() == 1) return found.front();
  if (found.empty()) {
    throw std::runtime_error(folder + " is a folder, not a capture, and holds no capture with a metadata file");
  }
  std::string names;
  for (const std::string& capture : found) names += (names.empty() ? "" : ", ") + capture;
  throw std::runtime_error(folder + " holds several captures (" + names + "): name one");
}

}  // namespace vestrel::decoder
