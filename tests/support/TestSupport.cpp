#include "TestSupport.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>

#include "NativePlatform.h"
#include "OsServices.h"
#include "uFile.h"

namespace vestrel_test {

bool onWindows() { return KV_ORV::native::pathSeparator() == '\\'; }
std::string sep() { return std::string(1, KV_ORV::native::pathSeparator()); }
std::string textNewline() { return onWindows() ? "\r\n" : "\n"; }

ScratchDirectory::ScratchDirectory() {
  static std::atomic<int> counter{0};
  const auto base = std::filesystem::temp_directory_path();
  for (;;) {
    auto candidate =
        base / ("vestrel-test-" + std::to_string(KV_ORV::native::currentProcessId()) + "-" + std::to_string(counter++));
    if (std::filesystem::create_directory(candidate)) {
      path_ = candidate.string();
      return;
    }
  }
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

ScopedEnv::ScopedEnv(const char* name, std::optional<std::string> value) : name_(name) {
  std::string current;
  if (KV_ORV::nativeOs().getEnvironmentVariable(name, current)) previous_ = current;
  KV_ORV::nativeOs().setEnvironmentVariable(name, value ? value->c_str() : nullptr);
}

ScopedEnv::~ScopedEnv() {
  KV_ORV::nativeOs().setEnvironmentVariable(name_.c_str(), previous_ ? previous_->c_str() : nullptr);
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

bool fileExists(const std::string& path) { return std::filesystem::exists(path); }

std::int64_t fileLength(const std::string& path) {
  KV_ORV::uFile file;
  if (!file.open(path.c_str(), "rb")) return -1;
  const std::int64_t length = file.length();
  file.close();
  return length;
}

std::string randomBytes(std::size_t size, unsigned seed) {
  std::mt19937_64 generator(seed);
  std::string data(size, '\0');
  for (std::size_t i = 0; i < size; i += 8) {
    const std::uint64_t word = generator();
    std::memcpy(&data[i], &word, std::min<std::size_t>(8, size - i));
  }
  return data;
}

std::vector<std::string> splitLines(const std::string& text, const std::string& newline) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t at; (at = text.find(newline, start)) != std::string::npos; start = at + newline.size()) {
    lines.push_back(text.substr(start, at - start));
  }
  if (start < text.size()) lines.push_back(text.substr(start));
  return lines;
}

}  // namespace vestrel_test
