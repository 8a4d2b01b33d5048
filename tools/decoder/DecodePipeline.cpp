#include "DecodePipeline.h"

#include "DecodeChain.h"
#include "DecodeOutputs.h"
#include "InputBlocks.h"
#include "StreamReading.h"

namespace vestrel::decoder {

DecodeResult decodeStream(std::FILE* in, std::FILE* out, const DecodeOptions& options) {
  return decodeStream([in](void* buffer, std::size_t size) { return readAvailable(in, buffer, size); }, out, options);
}

// read -> deframe -> decode -> date -> every output. However the input ended
// (a failed read, a section cut short, Ctrl-C), what was decoded is written
// out whole: every output is finished.
DecodeResult decodeStream(const ReadSome& read, std::FILE* out, const DecodeOptions& options) {
  DecodeOutputs outputs(out, options);
  DecodeChain chain(outputs.sinks(), options.tpiuId);
  DecodeResult result = readInto(read, chain, options, [&outputs] { outputs.paused(); });
  chain.finish();
  outputs.close(result);
  result.statistics = chain.statistics();
  return result;
}

}  // namespace vestrel::decoder
