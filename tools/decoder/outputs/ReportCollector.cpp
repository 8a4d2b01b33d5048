#include "ReportCollector.h"

#include <algorithm>

namespace vestrel::decoder {

ReportCollector::ReportCollector(std::string source, Timing timing, ReportLimits limits) {
  data_.source = std::move(source);
  data_.timing = timing;
  data_.limits = limits;
}

void ReportCollector::seen(std::uint64_t cycles) {
  if (!data_.timed) data_.firstCycles = cycles;
  data_.timed = true;
  data_.firstCycles = std::min(data_.firstCycles, cycles);
  data_.lastCycles = std::max(data_.lastCycles, cycles);
}

void ReportCollector::ended(const HandlerRun& run) {
  ExceptionSummary& summary = data_.exceptions[run.exception];
  ++summary.runs;
  summary.cycles += run.end - run.begin;
  summary.deepest = std::max(summary.deepest, run.depth);
  ++data_.runsTotal;
  if (data_.runs.size() < data_.limits.runs) data_.runs.push_back(run);
}

void ReportCollector::marker(std::uint64_t cycles, std::string what) {
  ++data_.markersTotal;
  if (data_.markers.size() < data_.limits.markers) data_.markers.push_back({cycles, std::move(what)});
}

void ReportCollector::line(const StimulusLines::Line& line) {
  PortText& port = data_.ports[line.port];
  ++port.total;
  if (port.lines.size() >= data_.limits.linesPerPort) return;
  port.cycles.push_back(line.time.cycles);
  if (line.text.size() > data_.limits.lineLength) {
    ++port.shortened;
    // Cut on a character boundary: never inside a UTF-8 sequence.
    std::size_t cut = data_.limits.lineLength;
    while (cut > 0 && (static_cast<unsigned char>(line.text[cut]) & 0xC0) == 0x80) --cut;
    port.lines.push_back(line.text.substr(0, cut) + "…");
  } else {
    port.lines.push_back(line.text);
  }
}

void ReportCollector::write(const Packet& p, PacketTime time) {
  seen(time.cycles);
  switch (p.kind) {
    case PacketKind::Instrumentation:
      lines_.add(p, time, [this](const StimulusLines::Line& l) { line(l); });
      return;
    case PacketKind::ExceptionTrace:
      if (p.function == ExceptionFunction::Entered) {
        const std::uint64_t resets = handlers_.resets();
        handlers_.enter(p.exception, time.cycles, [this](const HandlerRun& run) { ended(run); });
        if (handlers_.resets() != resets) {
          marker(time.cycles, "corrupt trace: the handler stack passed 512 entries; every open handler closed");
        }
      } else if (p.function == ExceptionFunction::Exited) {
        handlers_.exit(p.exception, time.cycles, [this](const HandlerRun& run) { ended(run); });
      }
      return;
    case PacketKind::Overflow:
      marker(time.cycles, "overflow: the target dropped trace packets");
      return;
    case PacketKind::Malformed:
      marker(time.cycles, "sync lost: " + std::to_string(p.value) + " malformed byte" + (p.value == 1 ? "" : "s") +
                              " at offset " + std::to_string(p.offset));
      return;
    default:
      return;
  }
}

void ReportCollector::finish(const DecoderStatistics& statistics, ProfileReport profile, bool named) {
  lines_.finish([this](const StimulusLines::Line& l) { line(l); });
  handlers_.finish(data_.lastCycles, [this](const HandlerRun& run) { ended(run); });
  data_.statistics = statistics;
  data_.profile = std::move(profile);
  data_.named = named;
}

}  // namespace vestrel::decoder
