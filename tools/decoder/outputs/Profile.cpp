#include "Profile.h"
#include "PrintableText.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include "JsonString.h"

namespace vestrel::decoder {

namespace {

std::string hexAddress(std::uint32_t address) { return printable_text::hexWord(address); }

void appendPercent(OutputBuffer& out, double percent, const char* format) {
  char text[32];
  const int length = std::snprintf(text, sizeof text, format, percent);
  out.append(std::string_view(text, static_cast<std::size_t>(length)));
}

void appendPadded(OutputBuffer& out, std::uint64_t value, std::size_t width) {
  const std::string digits = std::to_string(value);
  for (std::size_t i = digits.size(); i < width; ++i) out.append(' ');
  out.append(digits);
}

}  // namespace

void Profile::add(const Packet& packet) {
  if (packet.kind == PacketKind::PcSleep) {
    ++samples_;
    ++(packet.sleepPayload == 0xFF ? prohibited_ : asleep_);
    return;
  }
  if (packet.kind != PacketKind::PcSample) return;
  ++samples_;
  const auto address = static_cast<std::uint32_t>(packet.value);
  auto found = byAddress_.find(address);
  if (found != byAddress_.end()) {
    ++found->second;
  } else if (byAddress_.size() < kMaxAddresses) {
    byAddress_.emplace(address, 1);
  } else {
    ++beyondLimit_;
  }
}

ProfileReport Profile::report(const symbols::SymbolTable* symbols) const {
  ProfileReport report;
  report.samples = samples_;
  report.asleep = asleep_;
  report.prohibited = prohibited_;
  report.beyondLimit = beyondLimit_;
  const bool named = symbols != nullptr && !symbols->empty();

  struct Gathered {
    std::uint64_t samples = 0;
    std::map<std::pair<std::string, std::uint32_t>, std::uint64_t> lines;
    std::string file;
    std::uint32_t line = 0;
  };
  std::map<std::string, Gathered> byFunction;
  for (const auto& [address, count] : byAddress_) {
    if (!named) {
      byFunction[hexAddress(address)].samples += count;
      continue;
    }
    const symbols::FunctionSymbol* function = symbols->functionAt(address);
    Gathered& gathered = byFunction[function != nullptr ? function->name : ProfileReport::kOutside];
    gathered.samples += count;
    if (function == nullptr) continue;
    if (gathered.file.empty()) {
      if (const auto start = symbols->lineAt(function->start)) {
        gathered.file = symbols::baseName(*start->file);
        gathered.line = start->line;
      }
    }
    if (const auto line = symbols->lineAt(address))
      gathered.lines[{symbols::baseName(*line->file), line->line}] += count;
  }
  for (auto& [name, gathered] : byFunction) {
    ProfileRow row{name, gathered.samples, gathered.file, gathered.line, {}};
    for (const auto& [where, count] : gathered.lines) row.hottestLines.push_back({where.first, where.second, count});
    std::stable_sort(row.hottestLines.begin(), row.hottestLines.end(),
                     [](const ProfileLine& a, const ProfileLine& b) { return a.samples > b.samples; });
    if (row.hottestLines.size() > ProfileReport::kLinesPerFunction) {
      row.hottestLines.resize(ProfileReport::kLinesPerFunction);
    }
    report.rows.push_back(std::move(row));
  }
  // byFunction is ordered by name, so equal counts stay in name order.
  std::stable_sort(report.rows.begin(), report.rows.end(),
                   [](const ProfileRow& a, const ProfileRow& b) { return a.samples > b.samples; });
  return report;
}

void writeProfile(OutputBuffer& out, const ProfileReport& report, std::size_t maxRows) {
  out.append("PC-sample profile: ");
  out.appendDecimal(report.samples);
  out.append(report.samples == 1 ? " sample\n" : " samples\n");
  if (report.samples == 0) return;
  out.append(" samples        %  function\n");
  auto row = [&](std::uint64_t samples, const std::string& name, const std::string& where) {
    appendPadded(out, samples, 8);
    appendPercent(out, report.percent(samples), " %7.2f%%  ");
    out.append(name);
    if (!where.empty()) {
      out.append("  ");
      out.append(where);
    }
    out.append('\n');
  };
  std::size_t shown = 0;
  for (const ProfileRow& r : report.rows) {
    if (shown++ == maxRows) {
      std::uint64_t rest = 0;
      for (std::size_t i = maxRows; i < report.rows.size(); ++i) rest += report.rows[i].samples;
      row(rest, "(" + std::to_string(report.rows.size() - maxRows).append(" more)"), "");
      break;
    }
    row(r.samples, r.function, r.file.empty() ? "" : r.file + ":" + std::to_string(r.line));
  }
  if (report.asleep != 0) row(report.asleep, "(core asleep)", "");
  if (report.prohibited != 0) row(report.prohibited, "(sampling prohibited)", "");
  if (report.beyondLimit != 0) {
    row(report.beyondLimit, "(at addresses past the profile's limit of " + std::to_string(Profile::kMaxAddresses) + ")",
        "");
  }
  bool heading = false;
  for (std::size_t i = 0; i < report.rows.size() && i < 3; ++i) {
    const ProfileRow& r = report.rows[i];
    if (r.hottestLines.empty()) continue;
    if (!heading) out.append("hottest lines\n");
    heading = true;
    out.append("  ");
    out.append(r.function);
    out.append('\n');
    for (const ProfileLine& line : r.hottestLines) {
      appendPadded(out, line.samples, 8);
      appendPercent(out, report.percent(line.samples), " %7.2f%%  ");
      out.append(line.file);
      out.append(':');
      out.appendDecimal(line.line);
      out.append('\n');
    }
  }
}

void writeProfileJson(OutputBuffer& out, const ProfileReport& report) {
  out.append("{\"kind\":\"profile\",\"samples\":");
  out.appendDecimal(report.samples);
  out.append(",\"asleep\":");
  out.appendDecimal(report.asleep);
  out.append(",\"prohibited\":");
  out.appendDecimal(report.prohibited);
  out.append(",\"beyond_limit\":");
  out.appendDecimal(report.beyondLimit);
  out.append(",\"functions\":[");
  bool first = true;
  for (const ProfileRow& r : report.rows) {
    out.append(first ? "{\"function\":\"" : ",{\"function\":\"");
    first = false;
    appendJsonString(out, r.function);
    out.append("\",\"samples\":");
    out.appendDecimal(r.samples);
    appendPercent(out, report.percent(r.samples), ",\"percent\":%.4g");
    if (!r.file.empty()) {
      out.append(",\"file\":\"");
      appendJsonString(out, r.file);
      out.append("\",\"line\":");
      out.appendDecimal(r.line);
    }
    out.append(",\"lines\":[");
    for (std::size_t i = 0; i < r.hottestLines.size(); ++i) {
      const ProfileLine& line = r.hottestLines[i];
      out.append(i == 0 ? "{\"file\":\"" : ",{\"file\":\"");
      appendJsonString(out, line.file);
      out.append("\",\"line\":");
      out.appendDecimal(line.line);
      out.append(",\"samples\":");
      out.appendDecimal(line.samples);
      out.append('}');
    }
    out.append("]}");
  }
  out.append("]}\n");
}

void ProfileWriter::finish(const DecoderStatistics&) {
  const ProfileReport table = profile_.report(symbols_);
  json_ ? writeProfileJson(out_, table) : writeProfile(out_, table);
}

}  // namespace vestrel::decoder
