#include "PerfettoWriter.h"

#include <cstdio>

namespace vestrel::decode {

PerfettoWriter::PerfettoWriter(OutputBuffer& out, Timing timing, std::set<std::uint32_t> counterPorts,
                               const symbols::SymbolTable* symbols)
    : out_(out), timing_(timing), counterPorts_(std::move(counterPorts)), symbols_(symbols) {
  const bool microseconds = timing_.clockHz && *timing_.clockHz > 0;
  out_.append("{\"displayTimeUnit\":\"ns\",\"metadata\":{\"source\":\"vestrel-decode\",\"time-unit\":\"");
  out_.append(microseconds ? "microseconds" : "cycles");
  out_.append("\"},\"traceEvents\":[\n");
  out_.append("{\"name\":\"process_name\",\"ph\":\"M\",\"pid\":1,\"tid\":0,\"args\":{\"name\":\"SWO trace\"}}");
  first_ = false;
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
  if (timing_.clockHz && *timing_.clockHz > 0) {
    out_.appendFixed(static_cast<double>(cycles) * timing_.timestampPrescale / *timing_.clockHz * 1e6, 3);
  } else {
    out_.appendDecimal(cycles);
  }
}

void PerfettoWriter::event(const char* phase, int track, const std::string& name, std::uint64_t cycles,
                           const std::string& args) {
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
  lastCycles_ = cycles;
}

void PerfettoWriter::write(const Packet& p, PacketTime when) {
  const std::uint64_t cycles = when.cycles;
  switch (p.kind) {
    case PacketKind::Instrumentation:
      if (counterPorts_.count(p.port) != 0) {
        const int track = kFirstPortTrack + static_cast<int>(p.port);
        out_.append(",\n{\"name\":\"port ");
        out_.appendDecimal(p.port);
        out_.append("\",\"ph\":\"C\",\"pid\":1,\"tid\":");
        out_.appendDecimal(static_cast<std::uint64_t>(track));
        out_.append(",\"ts\":");
        time(cycles);
        out_.append(",\"args\":{\"value\":");
        out_.appendDecimal(p.value);
        out_.append("}}");
        lastCycles_ = cycles;
        return;
      }
      lines_.add(p, when, [this](const StimulusLines::Line& line) {
        const int track = kFirstPortTrack + static_cast<int>(line.port);
        if (portsNamed_.insert(line.port).second) trackName(track, "ITM port " + std::to_string(line.port));
        event("i", track, line.text, line.time.cycles);
      });
      return;
    case PacketKind::ExceptionTrace: {
      const std::string name = exceptionName(p.exception);
      if (p.function == ExceptionFunction::Entered) {
        handlers_.enter(p.exception, cycles);
        event("B", kCpuTrack, name, cycles);
      } else if (p.function == ExceptionFunction::Exited) {
        handlers_.exit(p.exception, cycles, [this](const HandlerRun& run) {
          event("E", kCpuTrack, exceptionName(run.exception), run.end,
                run.how == HandlerRun::End::Exited ? "" : "{\"closed\":\"its exit was lost\"}");
        });
      } else if (p.function == ExceptionFunction::Returned) {
        event("i", kCpuTrack, "return to " + name, cycles);
      }
      return;
    }
    case PacketKind::PcSample: {
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
      return;
    }
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

void PerfettoWriter::finish() {
  lines_.finish([this](const StimulusLines::Line& line) {
    const int track = kFirstPortTrack + static_cast<int>(line.port);
    if (portsNamed_.insert(line.port).second) trackName(track, "ITM port " + std::to_string(line.port));
    event("i", track, line.text, line.time.cycles);
  });
  handlers_.finish(lastCycles_, [this](const HandlerRun& run) {
    event("E", kCpuTrack, exceptionName(run.exception), run.end, "{\"closed\":\"at the end of the capture\"}");
  });
  out_.append("\n]}\n");
}

}  // namespace vestrel::decode
