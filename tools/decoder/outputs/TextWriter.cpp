#include "TextWriter.h"

#include "ExceptionNames.h"
#include "PrintableText.h"
#include "TraceWords.h"

namespace vestrel::decoder {

namespace {

// Terminal control characters (escape, bell, backspace...) in stimulus text
// are shown as \xHH so that a target cannot drive the user's terminal; tabs
// and every byte from 0x80 on (UTF-8) pass as they are.
void appendPrintable(OutputBuffer& out, const std::string& text) {
  std::size_t plain = 0;  // where the run of bytes that pass as they are began
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (!printable_text::needsEscape(byte)) continue;
    out.append(std::string_view(text).substr(plain, at - plain));
    static const char kDigits[] = "0123456789ABCDEF";
    const char escaped[] = {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0x0F]};
    out.append(std::string_view(escaped, sizeof escaped));
    plain = at + 1;
  }
  out.append(std::string_view(text).substr(plain));
}

}  // namespace

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
  if (timing_.hasClock()) {
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

void TextWriter::dataTrace(const Packet& p) {
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
}

void TextWriter::garbage(const Packet& p) {
  if (p.kind == PacketKind::Zeros) {
    out_.append("zeros: ");
    out_.appendDecimal(p.value);
    out_.append(" bytes at offset ");
  } else {
    out_.append("malformed: ");
    out_.appendDecimal(p.value);
    out_.append(p.value == 1 ? " byte at offset " : " bytes at offset ");
  }
  out_.appendDecimal(p.offset);
}

// Cheap for the packets that make no line of their own (timestamps come
// every few packets): the work is in the two steps it calls.
void TextWriter::write(const Packet& p, PacketTime time) {
  if (p.kind == PacketKind::Instrumentation) {
    portText(p, time);
  } else if (hasALineOfItsOwn(p.kind)) {
    packetLine(p, time);
  }
}

void TextWriter::portText(const Packet& p, PacketTime time) {
  lines_.add(p, time, [this](const StimulusLines::Line& line) { textLine(line); });
}

void TextWriter::packetLine(const Packet& p, PacketTime time) {
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
      out_.append(exceptionFunctionName(p.function));
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
      dataTrace(p);
      break;
    case PacketKind::PmuOverflow:
      out_.append("pmu overflow ");
      out_.appendHex(p.value, 2);
      break;
    case PacketKind::Zeros:
    case PacketKind::Malformed:
      garbage(p);
      break;
    default:
      break;
  }
  out_.append('\n');
}

void TextWriter::finish(const DecoderStatistics&) {
  lines_.finish([this](const StimulusLines::Line& line) { textLine(line); });
}

}  // namespace vestrel::decoder
