#include "BoardFile.h"

#include <cstring>
#include <memory>
#include <string>

#include "OsServices.h"

namespace Kv::Orv::Trace::Vestrel {

namespace {

constexpr int kLineSize = 16384;  // lines of at most 16383 characters
constexpr std::size_t kSectionNameLimit = 31;

bool isBlank(char c) { return c == ' ' || c == '\t'; }
// A carriage return counts as part of the line end, as text-mode reading on
// Windows drops it.
bool isLineEnd(char c) { return c == '\n' || c == '\r' || c == '\0'; }

bool isHeader(const char* line) { return line[0] == '$' && line[1] == ' '; }

const char* skipBlanks(const char* text) {
  while (isBlank(*text)) ++text;
  return text;
}

std::string sectionName(const char* line) {
  std::string name;
  for (const char* c = line + 2; !isBlank(*c) && !isLineEnd(*c) && name.size() < kSectionNameLimit; ++c) {
    name += *c;
  }
  return name;
}

// From a "name" line of a product section: the value after "=", without
// blanks and quotes around it. False when the line has no "=".
bool productName(const char* line, std::string& value) {
  const char* equals = std::strchr(line, '=');
  if (equals == nullptr) return false;
  const char* c = equals + 1;
  while (isBlank(*c) || *c == '"') ++c;
  value.clear();
  for (; !isBlank(*c) && !isLineEnd(*c) && *c != '"'; ++c) value += *c;
  return true;
}

}  // namespace

bool ParseBoardFile(const std::string& path, const std::function<void(std::FILE*)>& parse) {
  const auto close = [](std::FILE* stream) { KV_ORV::os().closeStream(stream); };
  const std::unique_ptr<std::FILE, decltype(close)> file(KV_ORV::os().openStream(path.c_str(), "r"), close);
  if (!file) return false;
  parse(file.get());
  return true;
}

ProbeKind ReadProbeKind(std::FILE* file) {
  char line[kLineSize];
  bool haveLine = std::fgets(line, kLineSize, file) != nullptr;
  while (haveLine) {
    if (isHeader(line)) {
      const std::string name = sectionName(line);
      if (name == "calder") return kCalderProbe;
      if (name == "product") {
        // Find the section's "name" line; the end of the file ends the search.
        do {
          if (std::fgets(line, kLineSize, file) == nullptr) return kUnsupportedProbe;
        } while (std::strncmp(skipBlanks(line), "name", 4) != 0);
        std::string value;
        if (productName(line, value) && value == "Harrow") return kHarrowProbe;
      }
    }
    haveLine = std::fgets(line, kLineSize, file) != nullptr;
  }
  return kUnsupportedProbe;
}

bool ReadBoardEntry(std::FILE* file, const char* section, const char* key, const char* value) {
  const std::size_t sectionLength = std::strlen(section);
  const std::size_t keyLength = std::strlen(key);
  const std::size_t valueLength = std::strlen(value);
  bool found = false;
  char line[kLineSize];
  while (std::fgets(line, kLineSize, file) != nullptr) {
    if (!isHeader(line) || std::strncmp(line + 2, section, sectionLength) != 0) continue;
    while (std::fgets(line, kLineSize, file) != nullptr) {
      if (!isBlank(line[0])) continue;
      const char* entry = skipBlanks(line);
      if (std::strncmp(entry, key, keyLength) == 0 && entry[keyLength] == '=' &&
          std::strncmp(entry + keyLength + 1, value, valueLength) == 0) {
        found = true;
      }
    }
  }
  return found;
}

}  // namespace Kv::Orv::Trace::Vestrel
