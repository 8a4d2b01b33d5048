#include "TraceText.h"

#include <cstdio>

namespace vestrel::decode {

namespace {
const char* const kExceptionNames[16] = {
    "Thread",    "Reset",     "NMI",        "HardFault", "MemManage",    "BusFault",   "UsageFault", "SecureFault",
    "Reserved8", "Reserved9", "Reserved10", "SVCall",    "DebugMonitor", "Reserved13", "PendSV",     "SysTick"};
}

std::string exceptionName(std::uint32_t number) {
  if (number < 16) return kExceptionNames[number];
  return "IRQ " + std::to_string(number - 16);
}

void appendExceptionName(OutputBuffer& out, std::uint32_t number) {
  if (number < 16) {
    out.append(kExceptionNames[number]);
    return;
  }
  out.append("IRQ ");
  out.appendDecimal(number - 16);
}

namespace {

const char* functionName(ExceptionFunction function) {
  switch (function) {
    case ExceptionFunction::Entered:
      return "entered";
    case ExceptionFunction::Exited:
      return "exited";
    case ExceptionFunction::Returned:
      return "returned to";
    default:
      return "reserved";
  }
}

void appendSeconds(OutputBuffer& out, const Timing& timing, std::uint64_t cycles) {
  out.appendFixed(static_cast<double>(cycles) * timing.timestampPrescale / *timing.clockHz, 9);
}

bool haveClock(const Timing& timing) { return timing.clockHz && *timing.clockHz > 0; }

// Terminal control characters (escape, bell, backspace...) in stimulus text
// are shown as \xHH so that a target cannot drive the user's terminal; tabs
// and every byte from 0x80 on (UTF-8) pass as they are.
void appendPrintable(OutputBuffer& out, const std::string& text) {
  for (char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte < 0x20 && c != '\t') || byte == 0x7F) {
      out.append("\\x");
      static const char kDigits[] = "0123456789ABCDEF";
      out.append(kDigits[byte >> 4]);
      out.append(kDigits[byte & 0x0F]);
    } else {
      out.append(c);
    }
  }
}

}  // namespace

std::size_t StimulusLines::partEnd(const std::string& text) {
  std::size_t start = text.size();
  while (start > 0 && text.size() - start < 4 && (static_cast<unsigned char>(text[start - 1]) & 0xC0) == 0x80) {
    --start;
  }
  if (start == 0) return text.size();
  const auto lead = static_cast<unsigned char>(text[start - 1]);
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
  return start - 1 + length > text.size() ? start - 1 : text.size();
}

// --- text ----------------------------------------------------------------------------

void TextWriter::where(std::uint64_t pc) {
  if (symbols_ == nullptr) return;
  const std::string description = symbols_->describe(static_cast<std::uint32_t>(pc));
  if (description.empty()) return;
  out_.append(' ');
  out_.append(description);
}

void TextWriter::when(PacketTime time) {
  out_.append('[');
  out_.appendDecimal(time.cycles);
  if (!time.exact) out_.append('+');
  out_.append(']');
  if (haveClock(timing_)) {
    out_.append('[');
    appendSeconds(out_, timing_, time.cycles);
    out_.append(" s]");
  }
}

void TextWriter::lineStart(PacketTime time) {
  when(time);
  out_.append(' ');
}

void TextWriter::textLine(const StimulusLines::Line& line) {
  lineStart(line.time);
  out_.append("port ");
  out_.appendDecimal(line.port);
  out_.append(": ");
  appendPrintable(out_, line.text);
  if (line.continues) out_.append(" [the line goes on]");
  out_.append('\n');
}

// Timestamps and stimulus pages are in the times and port numbers of the
// rest; they have no line of their own.
bool hasALineOfItsOwn(PacketKind kind) {
  return kind != PacketKind::LocalTimestamp && kind != PacketKind::StimulusPage && kind != PacketKind::Extension;
}

void TextWriter::write(const Packet& p, PacketTime time) {
  if (p.kind == PacketKind::Instrumentation) {
    lines_.add(p, time, [this](const StimulusLines::Line& line) { textLine(line); });
    return;
  }
  if (!hasALineOfItsOwn(p.kind)) return;
  lineStart(time);
  switch (p.kind) {
    case PacketKind::Sync:
      out_.append("sync");
      break;
    case PacketKind::Overflow:
      out_.append("overflow: the target dropped trace packets");
      break;
    case PacketKind::GlobalTimestamp1:
      out_.append("global timestamp (low) ");
      out_.appendDecimal(p.value);
      if (p.wrap) out_.append(" wrap");
      if (p.clockChange) out_.append(" clock-change");
      break;
    case PacketKind::GlobalTimestamp2:
      out_.append("global timestamp (high) ");
      out_.appendDecimal(p.value);
      break;
    case PacketKind::ExceptionTrace:
      out_.append("exception ");
      out_.appendDecimal(p.exception);
      out_.append(" (");
      appendExceptionName(out_, p.exception);
      out_.append(") ");
      out_.append(functionName(p.function));
      break;
    case PacketKind::PcSample:
      out_.append("pc sample ");
      out_.appendHex(p.value, 8);
      where(p.value);
      break;
    case PacketKind::PcSleep:
      out_.append(p.sleepPayload == 0xFF ? "pc sample: sampling prohibited" : "pc sample: core asleep");
      break;
    case PacketKind::EventCounter:
      out_.append("event counter wrap ");
      out_.appendHex(p.counterWraps, 2);
      break;
    case PacketKind::DataTracePc:
    case PacketKind::DataTraceAddress:
    case PacketKind::DataTraceValue:
    case PacketKind::DataTraceMatch:
      out_.append("data trace comparator ");
      out_.appendDecimal(p.comparator);
      if (p.kind == PacketKind::DataTracePc) {
        out_.append(" pc ");
        out_.appendHex(p.value, 8);
        where(p.value);
      } else if (p.kind == PacketKind::DataTraceAddress) {
        out_.append(" address ");
        out_.appendHex(p.value, 4);
      } else if (p.kind == PacketKind::DataTraceValue) {
        out_.append(p.write ? " write " : " read ");
        out_.appendHex(p.value, 2 * p.size);
      } else {
        out_.append(" match");
      }
      break;
    case PacketKind::PmuOverflow:
      out_.append("pmu overflow ");
      out_.appendHex(p.value, 2);
      break;
    case PacketKind::Zeros:
      out_.append("zeros: ");
      out_.appendDecimal(p.value);
      out_.append(" bytes at offset ");
      out_.appendDecimal(p.offset);
      break;
    case PacketKind::Malformed:
      out_.append("malformed: ");
      out_.appendDecimal(p.value);
      out_.append(p.value == 1 ? " byte at offset " : " bytes at offset ");
      out_.appendDecimal(p.offset);
      break;
    default:
      break;
  }
  out_.append('\n');
}

void TextWriter::flush() {
  lines_.finish([this](const StimulusLines::Line& line) { textLine(line); });
}

// --- JSON Lines ----------------------------------------------------------------------

void appendJsonString(OutputBuffer& out, const std::string& text) {
  static const char kDigits[] = "0123456789abcdef";
  auto escapeByte = [&](unsigned char byte) {
    out.append("\\u00");
    out.append(kDigits[byte >> 4]);
    out.append(kDigits[byte & 0x0F]);
  };
  const std::size_t size = text.size();
  for (std::size_t i = 0; i < size;) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x80) {
      if (byte == '"') {
        out.append("\\\"");
      } else if (byte == '\\') {
        out.append("\\\\");
      } else if (byte == '\n') {
        out.append("\\n");
      } else if (byte == '\t') {
        out.append("\\t");
      } else if (byte < 0x20 || byte == 0x7F) {
        escapeByte(byte);
      } else {
        out.append(static_cast<char>(byte));
      }
      ++i;
      continue;
    }
    // A UTF-8 sequence: its length by the lead byte, its continuation bytes
    // 10xxxxxx, no overlong form, no surrogate, nothing above U+10FFFF.
    std::size_t length = 0;
    std::uint32_t code = 0;
    if (byte >= 0xC2 && byte <= 0xDF) {
      length = 2;
      code = byte & 0x1F;
    } else if (byte >= 0xE0 && byte <= 0xEF) {
      length = 3;
      code = byte & 0x0F;
    } else if (byte >= 0xF0 && byte <= 0xF4) {
      length = 4;
      code = byte & 0x07;
    }
    bool valid = length != 0 && i + length <= size;
    for (std::size_t k = 1; valid && k < length; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      valid = (next & 0xC0) == 0x80;
      code = (code << 6) | (next & 0x3F);
    }
    if (valid) {
      valid = !(length == 3 && (code < 0x800 || (code >= 0xD800 && code <= 0xDFFF))) &&
              !(length == 4 && (code < 0x10000 || code > 0x10FFFF));
    }
    if (!valid) {
      escapeByte(byte);
      ++i;
      continue;
    }
    out.append(std::string_view(text.data() + i, length));
    i += length;
  }
}

void JsonWriter::time(PacketTime when) {
  out_.append(",\"cycles\":");
  out_.appendDecimal(when.cycles);
  out_.append(when.exact ? ",\"exact\":true" : ",\"exact\":false");
  if (haveClock(timing_)) {
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
      out_.append(functionName(p.function));
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

void JsonWriter::flush() {
  lines_.finish([this](const StimulusLines::Line& line) { textLine(line); });
}

}  // namespace vestrel::decode
