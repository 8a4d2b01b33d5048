#include "TraceText.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace vestrel::decode {

std::string exceptionName(std::uint32_t number) {
  static const char* const kNames[16] = {
      "Thread",    "Reset",     "NMI",        "HardFault", "MemManage",    "BusFault",   "UsageFault", "SecureFault",
      "Reserved8", "Reserved9", "Reserved10", "SVCall",    "DebugMonitor", "Reserved13", "PendSV",     "SysTick"};
  if (number < 16) return kNames[number];
  return "IRQ " + std::to_string(number - 16);
}

namespace {

std::string hex(std::uint64_t value, int digits) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%0*llX", digits, static_cast<unsigned long long>(value));
  return text;
}

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

}  // namespace

std::string TextWriter::when() const {
  // Appended piece by piece: GCC 12 at -O3 misreads the "a" + b + "c" form
  // as an overlapping copy (-Wrestrict).
  std::string text = "[";
  text.append(std::to_string(cycles_)).append("]");
  if (timing_.clockHz && *timing_.clockHz > 0) {
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "[%.9f s]",
                  static_cast<double>(cycles_) * timing_.timestampPrescale / *timing_.clockHz);
    text += seconds;
  }
  return text;
}

// Terminal control characters (escape, bell, backspace...) in stimulus text
// are shown as \xHH so that a target cannot drive the user's terminal; tabs
// and every byte from 0x80 on (UTF-8) pass as they are.
void TextWriter::appendPrintable(std::string& text, char c) {
  const auto byte = static_cast<unsigned char>(c);
  if ((byte < 0x20 && c != '\t') || byte == 0x7F) {
    char escaped[5];
    std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
    text += escaped;
  } else {
    text += c;
  }
}

void TextWriter::line(const std::string& text) { out_ << when() << " " << text << "\n"; }

void TextWriter::write(const Packet& p) {
  switch (p.kind) {
    case PacketKind::Instrumentation: {
      std::string& text = pendingText_[p.port];
      for (std::uint8_t i = 0; i < p.size; ++i) {
        const char c = static_cast<char>((p.value >> (8 * i)) & 0xFF);
        if (c == '\n') {
          line("port " + std::to_string(p.port) + ": " + text);
          text.clear();
        } else if (c != '\0' && c != '\r') {
          appendPrintable(text, c);
        }
      }
      break;
    }
    case PacketKind::LocalTimestamp:
      cycles_ += p.value;
      break;
    case PacketKind::Sync:
      line("sync");
      break;
    case PacketKind::Overflow:
      line("overflow: the target dropped trace packets");
      break;
    case PacketKind::GlobalTimestamp1:
      line("global timestamp (low) " + std::to_string(p.value) + (p.wrap ? " wrap" : "") +
           (p.clockChange ? " clock-change" : ""));
      break;
    case PacketKind::GlobalTimestamp2:
      line("global timestamp (high) " + std::to_string(p.value));
      break;
    case PacketKind::ExceptionTrace:
      line("exception " + std::to_string(p.exception) + " (" + exceptionName(p.exception) + ") " +
           functionName(p.function));
      break;
    case PacketKind::PcSample:
      line("pc sample " + hex(p.value, 8));
      break;
    case PacketKind::PcSleep:
      line(p.control == 0xFF ? "pc sample: sampling prohibited" : "pc sample: core asleep");
      break;
    case PacketKind::EventCounter:
      line("event counter wrap " + hex(p.control, 2));
      break;
    case PacketKind::DataTracePc:
      line("data trace comparator " + std::to_string(p.port) + " pc " + hex(p.value, 8));
      break;
    case PacketKind::DataTraceAddress:
      line("data trace comparator " + std::to_string(p.port) + " address " + hex(p.value, 4));
      break;
    case PacketKind::DataTraceValue:
      line("data trace comparator " + std::to_string(p.port) + (p.write ? " write " : " read ") +
           hex(p.value, 2 * p.size));
      break;
    case PacketKind::DataTraceMatch:
      line("data trace comparator " + std::to_string(p.port) + " match");
      break;
    case PacketKind::PmuOverflow:
      line("pmu overflow " + hex(p.value, 2));
      break;
    case PacketKind::StimulusPage:
    case PacketKind::Extension:
      break;
    case PacketKind::Malformed:
      line("malformed byte " + hex(p.header, 2) + " at offset " + std::to_string(p.offset));
      break;
  }
}

void TextWriter::flush() {
  for (auto& [port, text] : pendingText_) {
    if (!text.empty()) line("port " + std::to_string(port) + ": " + text);
    text.clear();
  }
}

std::string toJson(const Packet& p) {
  nlohmann::json object = {{"offset", p.offset}, {"kind", kindName(p.kind)}, {"header", p.header}};
  switch (p.kind) {
    case PacketKind::Instrumentation:
      object["port"] = p.port;
      object["size"] = p.size;
      object["value"] = p.value;
      break;
    case PacketKind::ExceptionTrace:
      object["exception"] = p.exception;
      object["name"] = exceptionName(p.exception);
      object["function"] = functionName(p.function);
      break;
    case PacketKind::DataTracePc:
    case PacketKind::DataTraceAddress:
    case PacketKind::DataTraceValue:
    case PacketKind::DataTraceMatch:
      object["comparator"] = p.port;
      object["value"] = p.value;
      if (p.kind == PacketKind::DataTraceValue) object["write"] = p.write;
      break;
    case PacketKind::LocalTimestamp:
      object["value"] = p.value;
      object["tc"] = p.control;
      break;
    case PacketKind::GlobalTimestamp1:
      object["value"] = p.value;
      object["wrap"] = p.wrap;
      object["clock_change"] = p.clockChange;
      break;
    default:
      object["value"] = p.value;
      break;
  }
  return object.dump();
}

void writeStatistics(std::ostream& out, const DecoderStatistics& statistics) {
  out << "bytes: " << statistics.bytes << "\n";
  for (int kind = 0; kind <= static_cast<int>(PacketKind::Malformed); ++kind) {
    if (statistics.packets[kind] != 0) {
      out << kindName(static_cast<PacketKind>(kind)) << ": " << statistics.packets[kind] << "\n";
    }
  }
  out << "malformed bytes: " << statistics.malformedBytes << "\n";
  out << "sync losses: " << statistics.syncLosses << "\n";
}

std::string statisticsJson(const DecoderStatistics& statistics) {
  nlohmann::json packets = nlohmann::json::object();
  for (int kind = 0; kind <= static_cast<int>(PacketKind::Malformed); ++kind) {
    if (statistics.packets[kind] != 0) packets[kindName(static_cast<PacketKind>(kind))] = statistics.packets[kind];
  }
  const nlohmann::json object = {{"kind", "statistics"},
                                 {"bytes", statistics.bytes},
                                 {"packets", packets},
                                 {"malformed-bytes", statistics.malformedBytes},
                                 {"sync-losses", statistics.syncLosses}};
  return object.dump();
}

}  // namespace vestrel::decode
