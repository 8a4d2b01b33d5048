// The whole of vestrel-decode's work on an open input: blocks read, TPIU
// frames undone, the BinTraceData section found, packets decoded and dated,
// text or JSON Lines written through one large buffer, statistics at the
// end. Shared by the command and its benchmark.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include "FileIdentity.h"
#include "ItmDecoder.h"
#include "SymbolTable.h"
#include "Timing.h"

namespace vestrel::decoder {

struct DecodeOptions {
  bool tdf = false;         // the input is a TDF file: decode its BinTraceData section
  bool json = false;        // JSON Lines instead of text
  bool raw = false;         // JSON Lines: an object for every packet too
  bool statistics = false;  // statistics at the end
  bool quiet = false;       // no per-packet output
  int tpiuId = 0;           // > 0: undo the TPIU formatter and keep this trace ID
  Timing timing;
  std::size_t blockSize = std::size_t{1} << 20;

  // A timeline for the Perfetto UI written here too (null: none), with these
  // stimulus ports as counters.
  std::FILE* perfetto = nullptr;
  std::set<std::uint32_t> counterPorts;
  // The firmware's symbols (null: none): PC values named in every output.
  const symbols::SymbolTable* symbols = nullptr;
  // A PC-sample profile at the end (a JSON object with json).
  bool profile = false;
  // An HTML report written here too (null: none), headed with reportSource.
  std::FILE* html = nullptr;
  std::string reportSource;

  // Following a file as it grows (like tail -f): at its end, wait for more
  // instead of ending. It ends when stop() says so (Ctrl-C), when the file
  // at followPath is deleted, replaced by another file (followIdentity, the
  // one being read, is no longer the one at the path), truncated (shorter
  // than what was read, or its last bytes read are no longer there), or
  // after idleExitSeconds without growth.
  bool follow = false;
  std::string followPath;
  std::optional<FileIdentity> followIdentity;
  std::optional<double> idleExitSeconds;
  bool (*stop)() = nullptr;
};

struct DecodeResult {
  enum class Status { Done, ReadFailed, NoSection, SectionCutShort, WriteFailed } status = Status::Done;
  // Why following ended: "" (not following), "stopped", "deleted", "replaced", "truncated", "idle".
  std::string followEnd;
  DecoderStatistics statistics;
  // Timeline events left out because it was full (PerfettoWriter::kMaxEvents).
  std::uint64_t timelineLeftOut = 0;
  // With WriteFailed: which output ("output", "html", "perfetto") and the
  // system's error number then (0: none known). The first failure is kept.
  std::string failedOutput;
  int writeError = 0;
  void writeFailed(const char* which, int error) {
    if (status == Status::WriteFailed) return;
    status = Status::WriteFailed;
    failedOutput = which;
    writeError = error;
  }
};

// Reads what the input has now, up to size bytes: the count, 0 at its end,
// -1 when reading failed.
using ReadSome = std::function<long(void* buffer, std::size_t size)>;

DecodeResult decodeStream(std::FILE* in, std::FILE* out, const DecodeOptions& options);
DecodeResult decodeStream(const ReadSome& read, std::FILE* out, const DecodeOptions& options);

}  // namespace vestrel::decoder
