#include "DecodeOutputs.h"

#include <cerrno>

#include "HtmlReport.h"
#include "JsonWriter.h"
#include "PerfettoWriter.h"
#include "Profile.h"
#include "TextWriter.h"
#include "TraceStatistics.h"

namespace vestrel::decoder {

DecodeOutputs::DecodeOutputs(std::FILE* out, const DecodeOptions& options) : output_(out) {
  auto add = [this](std::unique_ptr<PacketSink> sink) {
    sinks_.push_back(sink.get());
    owned_.push_back(std::move(sink));
  };
  if (!options.quiet && options.json) {
    auto json = std::make_unique<JsonWriter>(output_, options.timing, options.raw);
    json->setSymbols(options.symbols);
    add(std::move(json));
  } else if (!options.quiet) {
    auto text = std::make_unique<TextWriter>(output_, options.timing);
    text->setSymbols(options.symbols);
    add(std::move(text));
  }
  if (options.statistics) add(std::make_unique<StatisticsWriter>(output_, options.json));
  if (options.profile) add(std::make_unique<ProfileWriter>(output_, options.symbols, options.json));
  if (options.perfetto != nullptr) {
    timeline_.emplace(options.perfetto);
    auto perfetto = std::make_unique<PerfettoWriter>(*timeline_, options.timing, options.counterPorts, options.symbols);
    perfetto_ = perfetto.get();
    add(std::move(perfetto));
  }
  if (options.html != nullptr) {
    page_.emplace(options.html);
    add(std::make_unique<HtmlReportWriter>(*page_, options.reportSource, options.timing, options.symbols));
  }
}

DecodeOutputs::~DecodeOutputs() = default;

void DecodeOutputs::close(DecodeResult& result) {
  if (page_ && !page_->flush()) result.writeFailed("html", errno);
  if (perfetto_ != nullptr) {
    result.timelineLeftOut = perfetto_->leftOut();
    if (!timeline_->flush()) result.writeFailed("perfetto", errno);
  }
  if (!output_.flush()) result.writeFailed("output", errno);
}

}  // namespace vestrel::decoder
