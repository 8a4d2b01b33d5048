// The outputs vestrel-decode's options ask for, as the sinks of a chain in
// the order their text goes out: text or JSON Lines, statistics and profile
// (all to the one output), the Perfetto timeline and the HTML report (each
// to its own file).
#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

#include "DecodePipeline.h"
#include "OutputBuffer.h"
#include "PacketSink.h"

namespace vestrel::decoder {

class DecodeOutputs {
 public:
  DecodeOutputs(std::FILE* out, const DecodeOptions& options);
  ~DecodeOutputs();

  const std::vector<PacketSink*>& sinks() const { return sinks_; }
  // Shows what is decoded so far (the input paused).
  void paused() { output_.flush(); }
  // After the chain finished: every file written out; the first that could
  // not be is kept in result.
  void close(DecodeResult& result);

 private:
  OutputBuffer output_;
  std::optional<OutputBuffer> timeline_;
  std::optional<OutputBuffer> page_;
  std::vector<std::unique_ptr<PacketSink>> owned_;
  std::vector<PacketSink*> sinks_;
  class PerfettoWriter* perfetto_ = nullptr;
};

}  // namespace vestrel::decoder
