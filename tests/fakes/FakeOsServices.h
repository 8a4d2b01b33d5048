// A scripted stand-in for the operating system. Every service forwards to the
// real one unless the test scripted it; the calls of interest are recorded.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "OsServices.h"

namespace vestrel_test {

class FakeOsServices : public KV_ORV::OsServices {
 public:
  FakeOsServices() : real_(KV_ORV::nativeOs()) {}

  // --- scripts -----------------------------------------------------------------
  std::optional<KV_ORV::LocalTime> fixedTime;
  std::optional<std::uint64_t> freeBytes;  // answer of freeBytesAvailable
  bool freeBytesFails = false;
  bool currentDirectoryFails = false;
  bool recordDirectoriesOnly = false;                    // makeDirectory records and succeeds
  std::optional<std::uint32_t> loadFailsWith;            // loadLibrary fails with this code
  bool fakeLibraries = false;                            // loadLibrary succeeds with a dummy handle
  std::map<std::string, std::string> libraryRedirects;   // loader name -> name really loaded
  std::optional<std::vector<std::uint32_t>> processIds;  // the running processes
  bool processListFails = false;
  std::optional<std::uint32_t> processId;  // this process
  // closeStream really closes, then answers EOF, as fclose does when the
  // last buffered bytes do not reach the file (a write-back error, a full
  // or vanished network share).
  bool closeStreamFails = false;
  std::string closeFailsForMode;  // only streams opened in this mode ("r+b")
  // A shared stream asked for in this mode is refused (nullptr), as a file
  // another program holds open for writing is.
  std::string sharedOpenFailsForMode;
  // A shared stream asked for in this mode opens for reading only, so that
  // every write to it fails, as on a file the system will not let change.
  std::string sharedWritesFailForMode;

  // --- records --------------------------------------------------------------------
  std::vector<std::string> madeDirectories;
  std::vector<std::string> createdDirectories;
  std::vector<std::optional<std::string>> freeSpaceQueries;  // nullopt = null directory
  std::vector<std::string> debuggerLines;
  std::vector<std::string> loadedFiles;
  int loadedLibraries = 0;  // real libraries that loaded
  int freedLibraries = 0;
  std::vector<std::string> openedStreams;  // "path (mode)", plain and shared alike
  int closedStreams = 0;
  int failedStreamCloses = 0;  // closes answered with EOF
  // Streams opened through this fake and not closed yet.
  int streamsOpen() const { return openedStreamCount_ - closedStreams; }

  bool getEnvironmentVariable(const char* name, std::string& value) override {
    return real_.getEnvironmentVariable(name, value);
  }
  bool setEnvironmentVariable(const char* name, const char* value) override {
    return real_.setEnvironmentVariable(name, value);
  }
  bool currentDirectory(std::string& out) override {
    if (currentDirectoryFails) return false;
    return real_.currentDirectory(out);
  }
  int makeDirectory(const char* path) override {
    madeDirectories.emplace_back(path);
    if (recordDirectoriesOnly) return 0;
    return real_.makeDirectory(path);
  }
  bool createDirectory(const char* path) override {
    createdDirectories.emplace_back(path);
    if (recordDirectoriesOnly) return true;
    return real_.createDirectory(path);
  }
  bool freeBytesAvailable(const char* directory, std::uint64_t& bytes) override {
    freeSpaceQueries.push_back(directory != nullptr ? std::optional<std::string>(directory) : std::nullopt);
    if (freeBytesFails) return false;
    if (freeBytes) {
      bytes = *freeBytes;
      return true;
    }
    return real_.freeBytesAvailable(directory, bytes);
  }
  bool listProcessIds(std::vector<std::uint32_t>& ids) override {
    if (processListFails) return false;
    if (processIds) {
      ids = *processIds;
      return true;
    }
    return real_.listProcessIds(ids);
  }
  std::uint32_t currentProcessId() override { return processId ? *processId : real_.currentProcessId(); }
  KV_ORV::LocalTime localTime() override { return fixedTime ? *fixedTime : real_.localTime(); }
  void debuggerOutput(const char* text) override { debuggerLines.emplace_back(text); }
  KV_ORV::LibraryHandle loadLibrary(const char* file, std::uint32_t& errorCode) override {
    loadedFiles.emplace_back(file);
    if (loadFailsWith) {
      errorCode = *loadFailsWith;
      return nullptr;
    }
    if (fakeLibraries) return &dummyLibrary_;
    auto redirect = libraryRedirects.find(file);
    KV_ORV::LibraryHandle handle = redirect != libraryRedirects.end()
                                       ? real_.loadLibrary(redirect->second.c_str(), errorCode)
                                       : real_.loadLibrary(file, errorCode);
    if (handle != nullptr) ++loadedLibraries;
    return handle;
  }
  // The real loader's words for a real load that failed; none for one the
  // fake failed or pretended.
  std::string lastLoadFailure() override {
    return loadFailsWith || fakeLibraries ? std::string() : real_.lastLoadFailure();
  }
  void* librarySymbol(KV_ORV::LibraryHandle handle, const char* name, std::uint32_t& errorCode) override {
    if (handle == &dummyLibrary_) {
      errorCode = 127;
      return nullptr;
    }
    return real_.librarySymbol(handle, name, errorCode);
  }
  void freeLibrary(KV_ORV::LibraryHandle handle) override {
    ++freedLibraries;
    if (handle != &dummyLibrary_) real_.freeLibrary(handle);
  }
  std::FILE* openStream(const char* path, const char* mode) override {
    return recordOpen(path, mode, real_.openStream(path, mode));
  }
  std::FILE* openSharedStream(const char* path, const char* mode) override {
    if (!sharedOpenFailsForMode.empty() && sharedOpenFailsForMode == mode) return recordOpen(path, mode, nullptr);
    const bool readOnly = !sharedWritesFailForMode.empty() && sharedWritesFailForMode == mode;
    return recordOpen(path, mode, real_.openSharedStream(path, readOnly ? "rb" : mode));
  }
  int closeStream(std::FILE* stream) override {
    ++closedStreams;
    const bool fails = closeStreamFails || (!closeFailsForMode.empty() && modes_[stream] == closeFailsForMode);
    modes_.erase(stream);
    const int result = real_.closeStream(stream);
    if (!fails && result == 0) return 0;
    ++failedStreamCloses;
    return EOF;
  }

 private:
  std::FILE* recordOpen(const char* path, const char* mode, std::FILE* stream) {
    openedStreams.push_back(std::string(path) + " (" + mode + ")" + (stream == nullptr ? " failed" : ""));
    if (stream != nullptr) {
      ++openedStreamCount_;
      modes_[stream] = mode;
    }
    return stream;
  }

  KV_ORV::OsServices& real_;
  int dummyLibrary_ = 0;
  int openedStreamCount_ = 0;
  std::map<std::FILE*, std::string> modes_;
};

// 16 November 2026, a Monday, 14:03:07.045.
inline KV_ORV::LocalTime referenceTime() { return KV_ORV::LocalTime{2026, 11, 1, 16, 14, 3, 7, 45}; }

}  // namespace vestrel_test
