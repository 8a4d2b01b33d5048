// Reading the capture as 8-byte samples, and exporting it as a binary dump
// or a "BinTraceData" section of a TDF file. None of this takes the driver's
// lock: it may run while the collector still appends, and then sees the file
// as far as it was written.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "ChannelDriver.h"
#include "LogControl.h"
#include "NativePlatform.h"
#include "TdfWriter.h"
#include "cHexkitError.h"
#include "uFile.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;
using KV_ORV::kLogError;
using KV_ORV::kLogMessage;

namespace {

constexpr std::uint32_t kSampleSize = 8;
constexpr std::uint32_t kExportChunk = 8192;  // samples per read and write
constexpr std::uint32_t kBinaryFormat = 2;
constexpr std::uint32_t kMaxSamples = 0xFFFFFFFF;

// A partial last sample counts as a sample.
std::uint32_t sampleCount(const std::string& path) {
  KV_ORV::uFile file;
  if (!file.open(path.c_str(), "rb")) return 0;
  const std::int64_t length = file.length();
  file.close();
  if (length <= 0) return 0;
  // The host counts samples in 32 bits: past 32 GiB the count stays at the
  // largest it can hold rather than wrapping round to a small one.
  const std::uint64_t samples = (static_cast<std::uint64_t>(length) + 7) / 8;
  return samples > kMaxSamples ? kMaxSamples : static_cast<std::uint32_t>(samples);
}

struct StreamCloser {
  void operator()(std::FILE* stream) const {
    if (stream != nullptr) std::fclose(stream);
  }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

}  // namespace

std::uint32_t ChannelDriver::GetNumSamples() {
  const std::uint32_t count = sampleCount(captureFilePath_);
  KV_LOG(2, kLogMessage, "%s: GetNumSamples retrieved %d samples", kTag, static_cast<int>(count));
  return count;
}

std::uint32_t ChannelDriver::SeekReadTraceData(std::uint32_t startSample, std::uint32_t numRequested,
                                               std::uint64_t* buffer, std::uint32_t* numRead) {
  KV_LOG(1, kLogMessage, "%s: SeekReadTraceData start sample = %d, num samples requested = %d", kTag,
         static_cast<int>(startSample), static_cast<int>(numRequested));
  const std::uint32_t total = sampleCount(captureFilePath_);
  if (startSample >= total) {
    KV_LOG(1, kLogMessage, "%s: seek read start sample out of range", kTag);
    if (numRead != nullptr) *numRead = 0;
    return 0;
  }
  const std::uint32_t n =
      static_cast<std::uint64_t>(startSample) + numRequested > total ? total - startSample : numRequested;
  // Nothing asked for, nothing to touch: the buffer may have no room at all.
  if (n == 0 || buffer == nullptr) {
    if (numRead != nullptr) *numRead = 0;
    return 0;
  }

  Stream file(KV_ORV::native::openSharedStream(captureFilePath_.c_str(), "rb"));
  if (!file) {
    KV_LOG(1, kLogError, "%s: seek read file failed to open internal data file", kTag);
    return 0;
  }
  if (!KV_ORV::native::seekStream(file.get(), static_cast<std::uint64_t>(startSample) * kSampleSize)) {
    KV_LOG(1, kLogError, "%s: seek read file failed to seek to start of data", kTag);
    return 0;
  }
  // A partial last sample reads as zero-padded.
  buffer[n - 1] = 0;
  const std::size_t bytes = std::fread(buffer, 1, static_cast<std::size_t>(n) * kSampleSize, file.get());
  const auto samplesRead = static_cast<std::uint32_t>(bytes / kSampleSize + (bytes % kSampleSize != 0 ? 1 : 0));
  if (samplesRead != n) {
    KV_LOG(1, kLogError, "%s: seek read file failed with numSamplesActual=%u, numSamplesRead=%u", kTag, n, samplesRead);
  }
  if (numRead != nullptr) *numRead = samplesRead;
  return samplesRead;
}

void ChannelDriver::SaveToFile(std::string fileName, std::uint32_t format) {
  if (fileName.empty()) Hexkit::throwHexkitError("Data cannot be saved to empty file");
  {
    Stream probe(KV_ORV::native::openSharedStream(fileName.c_str(), "ab"));
    if (!probe) {
      KV_LOG(1, kLogError, "%s : %s : %s", kTag, std::strerror(errno), fileName.c_str());
      Hexkit::throwHexkitError("Could not open file");
    }
  }

  const std::uint32_t total = GetNumSamples();
  Stream binary;
  std::uint32_t sectionOffset = 0;
  if (format == kBinaryFormat) {
    binary.reset(KV_ORV::native::openSharedStream(fileName.c_str(), "wb"));
    if (!binary) Hexkit::throwHexkitError("Could not open file");
    // Chunks are large already; unbuffered, what fwrite counts is on disk.
    std::setvbuf(binary.get(), nullptr, _IONBF, 0);
  } else {
    // A section that cannot be whole is refused before a byte is written.
    ensureSectionFits(fileName.c_str(), "BinTraceData", static_cast<std::uint64_t>(total) * kSampleSize);
    writeSectionHeader(fileName.c_str(), "BinTraceData", 1, sectionOffset);
  }

  std::vector<std::uint64_t> chunk(kExportChunk);
  std::uint32_t position = 0;
  while (position < total) {
    std::uint32_t got = 0;
    const std::uint32_t n = SeekReadTraceData(position, kExportChunk, chunk.data(), &got);
    // A read that yields nothing would never reach the total: the export
    // ends with what it has.
    if (n == 0) break;
    if (binary) {
      // The host is told only of a file it cannot open; a dump cut short
      // (a full disk) is at least in the log, with how far it got.
      const std::size_t written = std::fwrite(chunk.data(), kSampleSize, n, binary.get());
      if (written != n) {
        KV_LOG(1, kLogError, "%s: binary export wrote %u of %u samples to %s", kTag,
               static_cast<unsigned>(position + written), static_cast<unsigned>(total), fileName.c_str());
        break;
      }
    } else {
      std::uint32_t sectionLength = 0;
      writeSectionData(fileName.c_str(), "BinTraceData", sectionOffset, chunk.data(), kSampleSize, n, sectionLength);
    }
    position += n;
  }
}

}  // namespace Kv::Orv::Trace::Vestrel
