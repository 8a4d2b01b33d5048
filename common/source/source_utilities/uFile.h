// A C stream guarded by its own lock, opened so that other readers and
// writers (the host reading a capture while it grows) may share the file.
// Never throws; every operation reports by its result.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "uMutex.h"

namespace KV_ORV {

class uFile {
 public:
  explicit uFile(const char* path = nullptr, const char* mode = nullptr);
  // Does not close the stream: owners call close() first.
  virtual ~uFile() = default;
  uFile(const uFile&) = delete;
  uFile& operator=(const uFile&) = delete;

  // Opens path (or the stored path when null) in the C mode given. A stream
  // still open from before is closed first.
  bool open(const char* path, const char* mode);
  std::size_t write(const void* buffer, std::size_t count);
  std::size_t read(void* buffer, std::size_t count);
  bool writeText(const char* text);
  bool flush();
  // False when there is no stream. Otherwise true; isOpen() then stays true
  // only if the close itself failed.
  bool close();
  // Length of the open file from its descriptor; -1 without a stream.
  std::int64_t length() const;

  bool isOpen() const { return isOpen_; }
  const std::string& path() const { return path_; }
  const std::string& mode() const { return mode_; }

 private:
  bool isOpen_ = false;
  std::string path_;
  std::string mode_;
  std::FILE* stream_ = nullptr;
  mutable uMutex lock_;
};

}  // namespace KV_ORV
