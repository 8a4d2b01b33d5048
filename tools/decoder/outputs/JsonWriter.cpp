#include "JsonWriter.h"

#include "ExceptionNames.h"
#include "JsonString.h"
#include "TraceWords.h"

namespace vestrel::decoder {

void JsonWriter::time(PacketTime when) {
  out_.append(",\"cycles\":");
  out_.appendDecimal(when.cycles);
  out_.append(when.exact ? ",\"exact\":true" : ",\"exact\":false");
  if (timing_.hasClock()) {
    out_.append(",\"seconds\":");
    appendSeconds(out_, timing_, when.cycles);
  }
}

void JsonWriter::textLine(const StimulusLines::Line& line) {
  out_.append("{\"kind\":\"text\",\"offset\":");
  out_.appendDecimal(line.offset);
  out_.append(",\"port\":");
  out_.appendDecimal(line.port);
  out_.append(",\"text\":\"");
  appendJsonString(out_, line.text);
  out_.append('"');
  if (line.continues) out_.append(",\"continues\":true");
  time(line.time);
  out_.append("}\n");
}

// What a packet's object says besides its kind, offset, header and time.
void JsonWriter::fields(const Packet& p) {
  switch (p.kind) {
    case PacketKind::Instrumentation:
      out_.append(",\"port\":");
      out_.appendDecimal(p.port);
      out_.append(",\"size\":");
      out_.appendDecimal(p.size);
      out_.append(",\"value\":");
      out_.appendDecimal(p.value);
      break;
    case PacketKind::ExceptionTrace:
      out_.append(",\"exception\":");
      out_.appendDecimal(p.exception);
      out_.append(",\"name\":\"");
      appendExceptionName(out_, p.exception);
      out_.append("\",\"function\":\"");
      out_.append(exceptionFunctionName(p.function));
      out_.append('"');
      break;
    case PacketKind::DataTracePc:
    case PacketKind::DataTraceAddress:
    case PacketKind::DataTraceValue:
    case PacketKind::DataTraceMatch:
      out_.append(",\"comparator\":");
      out_.appendDecimal(p.comparator);
      out_.append(",\"value\":");
      out_.appendDecimal(p.value);
      if (p.kind == PacketKind::DataTraceValue) out_.append(p.write ? ",\"write\":true" : ",\"write\":false");
      if (p.kind == PacketKind::DataTracePc) where(p.value);
      break;
    case PacketKind::PcSample:
      out_.append(",\"value\":");
      out_.appendDecimal(p.value);
      where(p.value);
      break;
    case PacketKind::LocalTimestamp:
      out_.append(",\"value\":");
      out_.appendDecimal(p.value);
      out_.append(",\"tc\":");
      out_.appendDecimal(p.timestampRelation);
      break;
    case PacketKind::GlobalTimestamp1:
      out_.append(",\"value\":");
      out_.appendDecimal(p.value);
      out_.append(p.wrap ? ",\"wrap\":true" : ",\"wrap\":false");
      out_.append(p.clockChange ? ",\"clock_change\":true" : ",\"clock_change\":false");
      break;
    case PacketKind::Zeros:
    case PacketKind::Malformed:
      out_.append(",\"bytes\":");
      out_.appendDecimal(p.value);
      break;
    default:
      out_.append(",\"value\":");
      out_.appendDecimal(p.value);
      break;
  }
}

void JsonWriter::write(const Packet& p, PacketTime when) {
  if (!raw_) {
    if (p.kind == PacketKind::Instrumentation) {
      lines_.add(p, when, [this](const StimulusLines::Line& line) { textLine(line); });
      return;
    }
    if (!hasALineOfItsOwn(p.kind)) return;
  }
  out_.append("{\"kind\":\"");
  out_.append(kindName(p.kind));
  out_.append("\",\"offset\":");
  out_.appendDecimal(p.offset);
  out_.append(",\"header\":");
  out_.appendDecimal(p.header);
  fields(p);
  time(when);
  out_.append("}\n");
  if (p.kind == PacketKind::Instrumentation) {
    lines_.add(p, when, [this](const StimulusLines::Line& line) { textLine(line); });
  }
}

void JsonWriter::where(std::uint64_t pc) {
  if (symbols_ == nullptr) return;
  const symbols::FunctionSymbol* function = symbols_->functionAt(static_cast<std::uint32_t>(pc));
  if (function == nullptr) return;
  out_.append(",\"function\":\"");
  appendJsonString(out_, function->name);
  out_.append("\",\"function_offset\":");
  out_.appendDecimal(pc - function->start);
  if (const auto line = symbols_->lineAt(static_cast<std::uint32_t>(pc))) {
    out_.append(",\"file\":\"");
    appendJsonString(out_, symbols::baseName(*line->file));
    out_.append("\",\"line\":");
    out_.appendDecimal(line->line);
  }
}

void JsonWriter::finish(const DecoderStatistics&) {
  lines_.finish([this](const StimulusLines::Line& line) { textLine(line); });
}

}  // namespace vestrel::decoder
