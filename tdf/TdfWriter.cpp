#include "TdfWriter.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "NativePlatform.h"
#include "OsServices.h"
#include "cHexkitError.h"

namespace Kv::Orv::Trace::Vestrel {

namespace {

using Hexkit::cHexkitError;

// Positions are 32-bit and seeks signed 32-bit: a TDF file stays below 2 GiB.
constexpr long kLargestOffset = 0x7FFFFFFF;

// Closes the file on every way out, errors included.
class TdfFile {
 public:
  explicit TdfFile(const char* path) {
    // The file must exist already: the host creates TDF files.
    if (path == nullptr || *path == '\0') Hexkit::throwHexkitError("File name passed to save file is not valid.");
    checkReadable(path);
    stream_ = KV_ORV::os().openSharedStream(path, "r+b");
    if (stream_ == nullptr) Hexkit::throwHexkitError("Could not open TDF file as specified.");
  }
  // A way out by an error closes without a check; the way out after the
  // last write calls close() and so learns whether that write reached the
  // file: the length rewrite is still buffered until the stream closes.
  ~TdfFile() {
    if (stream_ != nullptr) KV_ORV::os().closeStream(stream_);
  }
  void close(const char* failure) {
    std::FILE* stream = stream_;
    stream_ = nullptr;
    if (KV_ORV::os().closeStream(stream) != 0) Hexkit::throwHexkitError(failure);
  }
  // The file-name check: the file exists and opens for reading.
  static void checkReadable(const char* path) {
    std::FILE* probe = KV_ORV::os().openSharedStream(path, "rb");
    if (probe == nullptr) Hexkit::throwHexkitError("File name passed to save file is not valid.");
    KV_ORV::os().closeStream(probe);
  }
  TdfFile(const TdfFile&) = delete;
  TdfFile& operator=(const TdfFile&) = delete;

  std::FILE* stream() const { return stream_; }
  bool seek(std::uint64_t offset) {
    return offset <= static_cast<std::uint64_t>(kLargestOffset) &&
           std::fseek(stream_, static_cast<long>(offset), SEEK_SET) == 0;
  }
  bool writeWord(std::uint32_t value) {
    const unsigned char bytes[4] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
                                    static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
    return std::fwrite(bytes, 1, 4, stream_) == 4;
  }
  bool readWord(std::uint32_t& value) {
    unsigned char bytes[4];
    if (std::fread(bytes, 1, 4, stream_) != 4) return false;
    value = static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
            static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
    return true;
  }
  long position() const { return std::ftell(stream_); }

 private:
  std::FILE* stream_ = nullptr;
};

}  // namespace

void writeSectionHeader(const char* filePath, const char* sectionName, std::uint32_t sectionVersion,
                        std::uint32_t& sectionOffset) {
  sectionOffset = 0;
  TdfFile file(filePath);
  if (std::fseek(file.stream(), 0, SEEK_END) != 0) Hexkit::throwHexkitError("Could not open TDF file as specified.");
  const long end = file.position();
  if (end < 0 || end > kLargestOffset)
    Hexkit::throwHexkitError("TDF file is too large: sections must start below 2 GiB.");
  const auto start = static_cast<std::uint32_t>(end);
  sectionOffset = start;

  if (!file.seek(start) || !file.writeWord(0)) Hexkit::throwHexkitError("Write error -  TDF section header size.");
  const std::size_t nameLength = sectionName != nullptr ? std::strlen(sectionName) : 0;
  if (!file.writeWord(sectionVersion) || !file.writeWord(static_cast<std::uint32_t>(nameLength)) ||
      (nameLength > 0 && std::fwrite(sectionName, 1, nameLength, file.stream()) != nameLength)) {
    Hexkit::throwHexkitError("Write error -  TDF section name and version.");
  }
  const auto headerLength = static_cast<std::uint32_t>(file.position() - end);
  if (!file.seek(start) || !file.writeWord(headerLength)) Hexkit::throwHexkitError("Write error - size of TDF header.");
  file.close("Write error - size of TDF header.");
}

void ensureSectionFits(const char* filePath, const char* sectionName, std::uint64_t dataBytes) {
  std::uint64_t end = 0;
  if (filePath != nullptr && *filePath != '\0') {
    if (std::FILE* stream = KV_ORV::os().openSharedStream(filePath, "rb")) {
      const std::int64_t length = KV_ORV::native::streamLength(stream);
      KV_ORV::os().closeStream(stream);
      if (length > 0) end = static_cast<std::uint64_t>(length);
    }
  }
  const std::uint64_t header = 12 + (sectionName != nullptr ? std::strlen(sectionName) : 0);
  if (end + header + dataBytes > static_cast<std::uint64_t>(kLargestOffset))
    Hexkit::throwHexkitError("TDF file is too large: sections must end below 2 GiB.");
}

void writeSectionData(const char* filePath, const char*, std::uint32_t sectionOffset, const void* data,
                      std::size_t elementSize, std::size_t elementCount, std::uint32_t& sectionLength) {
  sectionLength = 0;
  if (filePath == nullptr || *filePath == '\0') Hexkit::throwHexkitError("File name passed to save file is not valid.");
  TdfFile::checkReadable(filePath);
  if (sectionOffset < 4) Hexkit::throwHexkitError("Section header offset to save data is not valid.");
  if (data == nullptr) Hexkit::throwHexkitError("No data to write TDF.");
  TdfFile file(filePath);

  std::uint32_t length = 0;
  if (!file.seek(sectionOffset) || !file.readWord(length)) {
    Hexkit::throwHexkitError("Write I/O error - unable to determine section length.");
  }
  const std::uint64_t end = static_cast<std::uint64_t>(sectionOffset) + length;
  const std::uint64_t grown = end + static_cast<std::uint64_t>(elementSize) * elementCount;
  if (grown > static_cast<std::uint64_t>(kLargestOffset))
    Hexkit::throwHexkitError("TDF file is too large: sections must end below 2 GiB.");
  if (!file.seek(end) || std::fwrite(data, elementSize, elementCount, file.stream()) != elementCount) {
    Hexkit::throwHexkitError("Write I/O error - unable to write section data.");
  }
  if (std::ferror(file.stream()) != 0) Hexkit::throwHexkitError("Write error - section data corrupted.");

  const auto newLength = static_cast<std::uint32_t>(file.position() - static_cast<long>(sectionOffset));
  sectionLength = newLength;
  if (!file.seek(sectionOffset) || !file.writeWord(newLength))
    Hexkit::throwHexkitError("Write error - size of TDF header.");
  file.close("Write error - size of TDF header.");
}

}  // namespace Kv::Orv::Trace::Vestrel
