// What a capture's bytes need to be read right, kept in a small JSON file
// beside the capture ("<capture>.vestrel.json"): the trace clock, the ITM
// timestamp prescale, the TPIU formatter's trace ID when the formatter was
// on, whether the capture is a raw stream or a TDF file, and the firmware's
// ELF file when one is known. vestrel-host writes one beside every capture
// it saves; vestrel-decode reads it, and its own options take precedence.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vestrel::capture_metadata {

struct CaptureMetadata {
  std::optional<double> clockHz;        // the trace clock the timestamps count
  std::uint32_t timestampPrescale = 1;  // 1, 4, 16 or 64
  std::optional<int> tpiuId;            // the formatter was on: the ITM's trace ID
  bool tdf = false;                     // a TDF file: the capture is its BinTraceData section
  std::string elf;                      // the firmware's ELF file, or ""
  std::string recordedBy;               // which command wrote it, for people

  bool operator==(const CaptureMetadata&) const = default;
};

// The file a capture's metadata is kept in.
std::string metadataPathFor(const std::string& capture);

// The largest metadata file read: a few hundred bytes is all it ever holds.
constexpr std::size_t kMaxMetadataBytes = 64 * 1024;

// One JSON object, keys in a fixed order, ending with a newline.
std::string toJson(const CaptureMetadata& metadata);

// Throws std::invalid_argument with the reason when the text is not a
// metadata object or a value is out of range.
CaptureMetadata parseMetadata(std::string_view text);

// The metadata beside capture, or nothing when there is none. Throws
// std::runtime_error naming the file and the reason when there is one that
// cannot be read or is not valid.
std::optional<CaptureMetadata> readMetadataBeside(const std::string& capture);

// Writes the metadata beside capture (replacing what was there for it).
// Throws std::runtime_error naming the file and the reason.
void writeMetadataBeside(const std::string& capture, const CaptureMetadata& metadata);

// A clock for the command line: whole hertz without a fraction, else up to
// nine significant digits.
std::string clockText(double hz);

}  // namespace vestrel::capture_metadata
