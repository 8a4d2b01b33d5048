#include "PerfettoWriter.h"
#include "ExceptionNames.h"
#include "JsonString.h"

#include <cstdio>

namespace vestrel::decoder {

PerfettoWriter::PerfettoWriter(OutputBuffer& out, Timing timing, std::set<std::uint32_t> counterPorts,
                               const symbols::SymbolTable* symbols, std::uint64_t maxEvents)
    : out_(out), timing_(timing), counterPorts_(std::move(counterPorts)), symbols_(symbols), maxEvents_(maxEvents) {
  const bool microseconds = timing_.hasClock();
  out_.append("{\"displayTimeUnit\":\"ns\",\"metadata\":{\"source\":\"vestrel-decode\",\"time_unit\":\"");
  out_.append(microseconds ? "microseconds" : "cycles");
  out_.append("\"},\"traceEvents\":[\n");
  out_.append("{\"name\":\"process_name\",\"ph\":\"M\",\"pid\":1,\"tid\":0,\"args\":{\"name\":\"SWO trace\"}}");
  trackName(kCpuTrack, "CPU: exception handlers");
  trackName(kPcTrack, "PC samples");
  trackName(kMarkerTrack, "overflows and lost sync");
}

void PerfettoWriter::trackName(int track, const std::string& name) {
  out_.append(",\n{\"name\":\"thread_name\",\"ph\":\"M\",\"pid\":1,\"tid\":");
  out_.appendDecimal(static_cast<std::uint64_t>(track));
  out_.append(",\"args\":{\"name\":\"");
  appendJsonString(out_, name);
  out_.append("\"}}");
}

void PerfettoWriter::time(std::uint64_t cycles) {
  if (timing_.hasClock()) {
    out_.appendFixed(timing_.seconds(cycles) * 1e6, 3);
  } else {
    out_.appendDecimal(cycles);
  }
}

bool PerfettoWriter::admit(bool always) {
  if (always || events_ < maxEvents_) {
    ++events_;
    return true;
  }
  ++leftOut_;
  return false;
}

bool PerfettoWriter::event(const char* phase, int track, const std::string& name, std::uint64_t cycles,
                           const std::string& args, bool always) {
  lastCycles_ = cycles;
  if (!admit(always)) return false;
  out_.append(",\n{\"name\":\"");
  appendJsonString(out_, name);
  out_.append("\",\"ph\":\"");
  out_.append(phase);
  out_.append("\",\"pid\":1,\"tid\":");
  out_.appendDecimal(static_cast<std::uint64_t>(track));
  out_.append(",\"ts\":");
  time(cycles);
  if (phase[0] == 'i') out_.append(",\"s\":\"t\"");
  if (!args.empty()) {
    out_.append(",\"args\":");
    out_.append(args);
  }
  out_.append("}");
  return true;
}

// A slice ends where its beginning was written; a run that began after the
// timeline was full is only counted.
void PerfettoWriter::closeRun(const HandlerRun& run) {
  if (firstHiddenRun_ && run.serial >= *firstHiddenRun_) {
    ++leftOut_;
    return;
  }
  const char* closed = run.how == HandlerRun::End::Exited         ? ""
                       : run.how == HandlerRun::End::ExitLost     ? "{\"closed\":\"its exit was lost\"}"
                       : run.how == HandlerRun::End::CaptureEnded ? "{\"closed\":\"at the end of the capture\"}"
                                                                  : "{\"closed\":\"the handler stack passed 512 "
                                                                    "entries: corrupt trace\"}";
  event("E", kCpuTrack, exceptionName(run.exception), run.end, closed, true);
}

void PerfettoWriter::write(const Packet& p, PacketTime when) {
  const std::uint64_t cycles = when.cycles;
  switch (p.kind) {
    case PacketKind::Instrumentation:
      portValue(p, when);
      return;
    case PacketKind::ExceptionTrace:
      exception(p, cycles);
      return;
    case PacketKind::PcSample:
      pcSample(p, cycles);
      return;
    case PacketKind::PcSleep:
      event("i", kPcTrack, "core asleep", cycles);
      return;
    case PacketKind::Overflow:
      event("i", kMarkerTrack, "overflow: the target dropped trace packets", cycles);
      return;
    case PacketKind::Malformed:
      event("i", kMarkerTrack,
            "sync lost: " + std::to_string(p.value) + (p.value == 1 ? " malformed byte" : " malformed bytes") +
                " at offset " + std::to_string(p.offset),
            cycles);
      return;
    case PacketKind::Sync:
      event("i", kMarkerTrack, "sync", cycles);
      return;
    default:
      return;
  }
}

// A counter port's value as a counter event; other ports' text as instant
// events, a line each.
void PerfettoWriter::portValue(const Packet& p, PacketTime when) {
  if (counterPorts_.count(p.port) == 0) {
    lines_.add(p, when, [this](const StimulusLines::Line& line) {
      const int track = kFirstPortTrack + static_cast<int>(line.port);
      if (portsNamed_.insert(line.port).second) trackName(track, "ITM port " + std::to_string(line.port));
      event("i", track, line.text, line.time.cycles);
    });
    return;
  }
  const int track = kFirstPortTrack + static_cast<int>(p.port);
  lastCycles_ = when.cycles;
  if (!admit(false)) return;
  out_.append(",\n{\"name\":\"port ");
  out_.appendDecimal(p.port);
  out_.append("\",\"ph\":\"C\",\"pid\":1,\"tid\":");
  out_.appendDecimal(static_cast<std::uint64_t>(track));
  out_.append(",\"ts\":");
  time(when.cycles);
  out_.append(",\"args\":{\"value\":");
  out_.appendDecimal(p.value);
  out_.append("}}");
}

// Entries begin a slice on the CPU track, exits end it (with every handler
// it pre-empted), returns are instant events.
void PerfettoWriter::exception(const Packet& p, std::uint64_t cycles) {
  const std::string name = exceptionName(p.exception);
  if (p.function == ExceptionFunction::Entered) {
    const std::uint64_t resets = handlers_.resets();
    handlers_.enter(p.exception, cycles, [this](const HandlerRun& run) { closeRun(run); });
    if (handlers_.resets() != resets) {
      event("i", kMarkerTrack, "corrupt trace: the handler stack passed 512 entries; every open handler closed",
            cycles);
    }
    if (!event("B", kCpuTrack, name, cycles) && !firstHiddenRun_) firstHiddenRun_ = handlers_.entries() - 1;
  } else if (p.function == ExceptionFunction::Exited) {
    handlers_.exit(p.exception, cycles, [this](const HandlerRun& run) { closeRun(run); });
  } else if (p.function == ExceptionFunction::Returned) {
    event("i", kCpuTrack, "return to " + name, cycles);
  }
}

// A PC sample as an instant event named by its function when the symbols
// know it.
void PerfettoWriter::pcSample(const Packet& p, std::uint64_t cycles) {
  char text[24];
  std::snprintf(text, sizeof text, "pc 0x%08llX", static_cast<unsigned long long>(p.value));
  const symbols::FunctionSymbol* function =
      symbols_ != nullptr ? symbols_->functionAt(static_cast<std::uint32_t>(p.value)) : nullptr;
  if (function == nullptr) {
    event("i", kPcTrack, text, cycles);
    return;
  }
  OutputBuffer args;
  args.append("{\"pc\":\"");
  args.append(text + 3);
  args.append("\",\"at\":\"");
  appendJsonString(args, symbols_->describe(static_cast<std::uint32_t>(p.value)));
  args.append("\"}");
  event("i", kPcTrack, function->name, cycles, args.text());
}

void PerfettoWriter::finish(const DecoderStatistics&) {
  lines_.finish([this](const StimulusLines::Line& line) {
    const int track = kFirstPortTrack + static_cast<int>(line.port);
    if (portsNamed_.insert(line.port).second) trackName(track, "ITM port " + std::to_string(line.port));
    event("i", track, line.text, line.time.cycles);
  });
  handlers_.finish(lastCycles_, [this](const HandlerRun& run) { closeRun(run); });
  if (leftOut_ > 0) {
    event("i", kMarkerTrack,
          "timeline full: " + std::to_string(leftOut_) + " more events left out (it holds at most " +
              std::to_string(maxEvents_) + ")",
          lastCycles_, "", true);
  }
  out_.append("\n]}\n");
}

}  // namespace vestrel::decoder
