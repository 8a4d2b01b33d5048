#include "HtmlReport.h"

#include "HtmlParts.h"

#include <algorithm>
#include <cstdio>
#include <set>

namespace vestrel::decoder {

namespace {

using namespace html;

void row(OutputBuffer& out, const std::string& name, const std::string& value) {
  out.append("<tr><th>");
  appendHtml(out, name);
  out.append("</th><td>");
  appendHtml(out, value);
  out.append("</td></tr>\n");
}

void style(OutputBuffer& out) {
  out.append(
      "<style>\n"
      "body{font-family:system-ui,-apple-system,'Segoe UI',sans-serif;margin:24px;color:#1f2937;background:#fff}\n"
      "h1{font-size:22px;margin:0 0 4px}h2{font-size:17px;margin:28px 0 8px;border-bottom:1px solid #e5e7eb}\n"
      "h3{font-size:14px;margin:16px 0 6px}.note{color:#6b7280;font-size:13px}\n"
      "table{border-collapse:collapse;font-size:13px}th,td{padding:3px 10px;text-align:left}\n"
      "th{color:#4b5563;font-weight:600}td.n{text-align:right;font-variant-numeric:tabular-nums}\n"
      "table.grid td,table.grid th{border-bottom:1px solid #f3f4f6}\n"
      "pre{background:#f9fafb;border:1px solid #e5e7eb;padding:8px;max-height:320px;overflow:auto;font-size:12px}\n"
      "svg text{font-family:inherit;font-size:12px;fill:#374151}\n"
      ".port{display:flex;max-height:320px;overflow:auto;border:1px solid #e5e7eb;background:#f9fafb}\n"
      ".port pre{max-height:none;overflow:visible;border:none;margin:0}\n"
      ".port pre.times{color:#6b7280;text-align:right;border-right:1px solid #e5e7eb}.port pre:not(.times){flex:1}\n"
      "</style>\n");
}

void summary(OutputBuffer& out, const ReportData& data) {
  const DecoderStatistics& s = data.statistics;
  out.append("<section id=\"summary\"><h2>Summary</h2><table>\n");
  row(out, "bytes decoded", std::to_string(s.bytes));
  std::uint64_t packets = 0;
  for (std::uint64_t count : s.packets) packets += count;
  row(out, "packets", std::to_string(packets));
  if (data.timed) row(out, "time covered", humanTime(data.lastCycles - data.firstCycles, data.timing));
  row(out, "exception handler runs", std::to_string(data.runsTotal));
  row(out, "PC samples", std::to_string(data.profile.samples));
  std::uint64_t lines = 0;
  for (const auto& [port, text] : data.ports) lines += text.total;
  row(out, "text lines",
      std::to_string(lines) + " on " + std::to_string(data.ports.size()) + " port" +
          (data.ports.size() == 1 ? "" : "s"));
  row(out, "overflows", std::to_string(s.count(PacketKind::Overflow)));
  row(out, "synchronisation lost",
      std::to_string(s.syncLosses) + " time" + (s.syncLosses == 1 ? "" : "s") + ", " +
          std::to_string(s.malformedBytes) + " malformed bytes");
  out.append("</table></section>\n");
}

struct ProfileBar {
  std::string name;
  std::uint64_t samples;
};

// The bars drawn: the top 15 functions, then the samples taken asleep and
// where sampling was prohibited.
std::vector<ProfileBar> profileBars(const ProfileReport& report) {
  std::vector<ProfileBar> bars;
  for (std::size_t i = 0; i < report.rows.size() && i < 15; ++i)
    bars.push_back({report.rows[i].function, report.rows[i].samples});
  if (report.asleep != 0) bars.push_back({"(core asleep)", report.asleep});
  if (report.prohibited != 0) bars.push_back({"(sampling prohibited)", report.prohibited});
  return bars;
}

void profileChart(OutputBuffer& out, const ProfileReport& report) {
  const std::vector<ProfileBar> bars = profileBars(report);
  std::uint64_t largest = 1;
  for (const ProfileBar& bar : bars) largest = std::max(largest, bar.samples);
  out.append("<svg id=\"profile-chart\" xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
             number(kPlotLeft + kPlotWidth + 20, "%.0f") + "\" height=\"" +
             number(kLane * static_cast<double>(bars.size()) + 4, "%.0f") +
             "\" role=\"img\" aria-label=\"PC samples by function\">\n");
  for (std::size_t i = 0; i < bars.size(); ++i) {
    const double y = kLane * static_cast<double>(i);
    const double width =
        std::max(1.0, static_cast<double>(bars[i].samples) / static_cast<double>(largest) * (kPlotWidth - 120));
    out.append("<text x=\"4\" y=\"" + number(y + 16) + "\">");
    appendHtml(out, bars[i].name);
    out.append("</text><rect class=\"bar\" x=\"" + number(kPlotLeft, "%.0f") + "\" y=\"" + number(y + 3) +
               "\" width=\"" + number(width, "%.2f") + "\" height=\"" + number(kLane - 6) + "\" fill=\"" +
               (bars[i].name.front() == '(' ? "#9ca3af" : "#3b82f6") + "\"/><text x=\"" +
               number(kPlotLeft + width + 6, "%.2f") + "\" y=\"" + number(y + 16) + "\">" +
               std::to_string(bars[i].samples) + " (" + number(report.percent(bars[i].samples), "%.1f") +
               "%)</text>\n");
  }
  out.append("</svg>\n");
  if (report.rows.size() > 15) {
    out.append("<p class=\"note\">" + std::to_string(report.rows.size() - 15) + " more functions are not drawn.</p>\n");
  }
}

// The hottest lines of the top three functions, when the symbols have lines.
void hottestLines(OutputBuffer& out, const ProfileReport& report) {
  bool heading = false;
  for (std::size_t i = 0; i < report.rows.size() && i < 3; ++i) {
    const ProfileRow& r = report.rows[i];
    if (r.hottestLines.empty()) continue;
    if (!heading)
      out.append(
          "<h3>Hottest lines</h3><table class=\"grid\"><tr><th>function</th><th>line</th>"
          "<th>samples</th><th>share</th></tr>\n");
    heading = true;
    for (const ProfileLine& line : r.hottestLines) {
      out.append("<tr><td>");
      appendHtml(out, r.function);
      out.append("</td><td>");
      appendHtml(out, line.file + ":" + std::to_string(line.line));
      out.append("</td><td class=\"n\">" + std::to_string(line.samples) + "</td><td class=\"n\">" +
                 number(report.percent(line.samples), "%.2f") + "%</td></tr>\n");
    }
  }
  if (heading) out.append("</table>\n");
}

void profile(OutputBuffer& out, const ReportData& data) {
  const ProfileReport& report = data.profile;
  out.append("<section id=\"profile\"><h2>Where the time goes</h2>\n");
  if (report.samples == 0) {
    out.append("<p class=\"note\">No PC samples in this capture.</p></section>\n");
    return;
  }
  out.append("<p class=\"note\">" + std::to_string(report.samples) + " PC samples" +
             (data.named ? ", by function." : ", by address (decode with --elf for function names).") + "</p>\n");
  profileChart(out, report);
  hottestLines(out, report);
  out.append("</section>\n");
}

void ports(OutputBuffer& out, const ReportData& data) {
  out.append("<section id=\"ports\"><h2>Stimulus port text</h2>\n");
  if (data.ports.empty()) out.append("<p class=\"note\">No stimulus port text in this capture.</p>\n");
  for (const auto& [port, text] : data.ports) {
    out.append("<h3>ITM port " + std::to_string(port) + " (" + std::to_string(text.total) + " line" +
               (text.total == 1 ? "" : "s") + ")</h3>\n<div class=\"port\">");
    // The times beside the text, in one unit, so that the text copies clean.
    const TimeUnit unit = unitFor(
        text.cycles.empty() ? 0 : text.cycles.back() - std::min(text.cycles.back(), data.firstCycles), data.timing);
    out.append("<pre class=\"times\" id=\"port-" + std::to_string(port) + "-times\">");
    for (const std::uint64_t cycles : text.cycles) {
      appendHtml(out, timeIn(cycles - std::min(cycles, data.firstCycles), unit));
      out.append('\n');
    }
    out.append("</pre><pre id=\"port-" + std::to_string(port) + "\">");
    for (const std::string& line : text.lines) {
      appendHtml(out, line);
      out.append('\n');
    }
    out.append("</pre></div>\n");
    if (text.total > text.lines.size()) {
      out.append("<p class=\"note\">The first " + std::to_string(text.lines.size()) + " of " +
                 std::to_string(text.total) + " lines.</p>\n");
    }
    if (text.shortened != 0) {
      out.append("<p class=\"note\">" + std::to_string(text.shortened) + " line" + (text.shortened == 1 ? "" : "s") +
                 " cut at " + std::to_string(data.limits.lineLength) + " characters.</p>\n");
    }
  }
  out.append("</section>\n");
}

}  // namespace

void appendHtml(OutputBuffer& out, const std::string& text) {
  for (const char c : text) {
    switch (c) {
      case '&':
        out.append("&amp;");
        break;
      case '<':
        out.append("&lt;");
        break;
      case '>':
        out.append("&gt;");
        break;
      case '"':
        out.append("&quot;");
        break;
      case '\'':
        out.append("&#39;");
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20 && c != '\t') {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned>(c));
          out.append(escaped);
        } else if (c == 0x7F) {
          out.append("\\x7F");
        } else {
          out.append(c);
        }
    }
  }
}

std::string humanTime(std::uint64_t cycles, const Timing& timing) {
  if (!timing.hasClock()) return std::to_string(cycles) + " cycles";
  const double seconds = timing.seconds(cycles);
  if (seconds < 1e-3) return number(seconds * 1e6, "%.3f µs");
  if (seconds < 1) return number(seconds * 1e3, "%.3f ms");
  return number(seconds, "%.3f s");
}

void writeHtmlReport(OutputBuffer& out, const ReportData& data) {
  out.append("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>SWO trace: ");
  appendHtml(out, data.source);
  out.append("</title>\n");
  style(out);
  out.append("</head>\n<body>\n<h1>SWO trace</h1>\n<p class=\"note\">");
  appendHtml(out, data.source);
  out.append(data.timing.hasClock() ? " · trace clock " + number(*data.timing.clockHz, "%.0f") +
                                          " Hz, timestamp prescale " + std::to_string(data.timing.timestampPrescale)
                                    : std::string(" · times in cycles (no trace clock given)"));
  out.append(" · made by vestrel-decode</p>\n");
  summary(out, data);
  timeline(out, data);
  profile(out, data);
  ports(out, data);
  out.append("</body>\n</html>\n");
}

void HtmlReportWriter::finish(const DecoderStatistics& statistics) {
  const bool named = symbols_ != nullptr && !symbols_->empty();
  collector_.finish(statistics, profile_.report(symbols_), named);
  writeHtmlReport(page_, collector_.data());
}

}  // namespace vestrel::decoder
