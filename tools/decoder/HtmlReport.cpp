#include "HtmlReport.h"

#include <algorithm>
#include <cstdio>
#include <set>

namespace vestrel::decode {

namespace {

constexpr double kPlotLeft = 170;   // labels to the left of it
constexpr double kPlotWidth = 900;  // pixels for the whole time span
constexpr double kLane = 24;

const char* const kPalette[] = {"#3b82f6", "#f59e0b", "#10b981", "#ef4444", "#8b5cf6",
                                "#ec4899", "#14b8a6", "#f97316", "#6366f1", "#84cc16"};

std::string number(double value, const char* format = "%.1f") {
  char text[48];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

// One unit for every time on an axis or in a column: the one that suits the
// largest of them.
struct TimeUnit {
  double cyclesPerUnit = 1;  // 0: no clock, times in cycles
  const char* name = "cycles";
};

TimeUnit unitFor(std::uint64_t largest, const Timing& timing) {
  if (!timing.clockHz || *timing.clockHz <= 0) return {};
  const double cyclesPerSecond = *timing.clockHz / timing.timestampPrescale;
  const double seconds = static_cast<double>(largest) / cyclesPerSecond;
  if (seconds < 1e-3) return {cyclesPerSecond / 1e6, "µs"};
  if (seconds < 1) return {cyclesPerSecond / 1e3, "ms"};
  return {cyclesPerSecond, "s"};
}

std::string timeIn(std::uint64_t cycles, const TimeUnit& unit) {
  if (std::string(unit.name) == "cycles") return std::to_string(cycles) + " cycles";
  return number(static_cast<double>(cycles) / unit.cyclesPerUnit, "%.3f") + " " + unit.name;
}

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

// Above this many runs in a window, one rectangle each would merge into
// solid bars: each pixel column then shows how busy the lane was.
constexpr std::size_t kDenseRuns = 300;

std::size_t laneOf(const std::vector<std::uint16_t>& lanes, std::uint16_t exception) {
  return static_cast<std::size_t>(std::find(lanes.begin(), lanes.end(), exception) - lanes.begin());
}

void drawRun(OutputBuffer& out, const ReportData& data, const HandlerRun& run, const std::vector<std::uint16_t>& lanes,
             double left, double right, bool outlineNested) {
  const std::size_t lane = laneOf(lanes, run.exception);
  const double width = std::max(1.0, right - left);
  out.append("<rect class=\"run\" x=\"" + number(left, "%.2f") + "\" y=\"" +
             number(kLane * static_cast<double>(lane) + 4) + "\" width=\"" + number(width, "%.2f") + "\" height=\"" +
             number(kLane - 8) + "\" fill=\"" + kPalette[lane % std::size(kPalette)] + "\"" +
             (outlineNested && run.depth > 0 ? " stroke=\"#111827\" stroke-width=\"1.5\"" : "") + "><title>");
  appendHtml(
      out, exceptionName(run.exception) + ": " + humanTime(run.end - run.begin, data.timing) + " from " +
               humanTime(run.begin - data.firstCycles, data.timing) +
               (run.depth > 0 ? ", pre-empting " + std::to_string(run.depth) + " handler" + (run.depth == 1 ? "" : "s")
                              : "") +
               (run.how == HandlerRun::End::ExitLost       ? " (its exit was lost)"
                : run.how == HandlerRun::End::CaptureEnded ? " (still running when the capture ended)"
                                                           : ""));
  out.append("</title></rect>\n");
}

// Each lane's pixel columns shaded by the share of their time spent in the
// handler, with the runs that began there and that share in a tooltip.
void drawOccupancy(OutputBuffer& out, const ReportData& data, const std::vector<std::uint16_t>& lanes,
                   std::uint64_t from, std::uint64_t to) {
  const std::size_t columns = static_cast<std::size_t>(kPlotWidth);
  const double span = to > from ? static_cast<double>(to - from) : 1.0;
  const double perColumn = span / static_cast<double>(columns);
  std::vector<std::vector<double>> busy(lanes.size(), std::vector<double>(columns, 0.0));
  std::vector<std::vector<std::uint32_t>> began(lanes.size(), std::vector<std::uint32_t>(columns, 0));
  const auto columnOf = [&](double cycles) {
    return std::min(columns - 1,
                    static_cast<std::size_t>(std::max(0.0, (cycles - static_cast<double>(from)) / perColumn)));
  };
  for (const HandlerRun& run : data.runs) {
    if (run.end < from || run.begin > to) continue;
    const std::size_t lane = laneOf(lanes, run.exception);
    const double begin = std::max(static_cast<double>(run.begin), static_cast<double>(from));
    const double end = std::min(static_cast<double>(run.end), static_cast<double>(to));
    ++began[lane][columnOf(begin)];
    for (std::size_t column = columnOf(begin); column <= columnOf(end); ++column) {
      const double left = static_cast<double>(from) + perColumn * static_cast<double>(column);
      busy[lane][column] += std::max(0.0, std::min(end, left + perColumn) - std::max(begin, left));
    }
  }
  for (std::size_t lane = 0; lane < lanes.size(); ++lane) {
    for (std::size_t column = 0; column < columns; ++column) {
      const double share = std::min(1.0, busy[lane][column] / perColumn);
      if (share <= 0 && began[lane][column] == 0) continue;
      const double height = std::max(1.0, (kLane - 8) * share);
      const double y = kLane * static_cast<double>(lane) + 4 + (kLane - 8) - height;
      out.append("<rect class=\"busy\" x=\"" + number(kPlotLeft + static_cast<double>(column), "%.0f") + "\" y=\"" +
                 number(y, "%.2f") + "\" width=\"1\" height=\"" + number(height, "%.2f") + "\" fill=\"" +
                 kPalette[lane % std::size(kPalette)] + "\"><title>");
      const std::uint64_t at = from + static_cast<std::uint64_t>(perColumn * static_cast<double>(column));
      appendHtml(out, exceptionName(lanes[lane]) + " from " + humanTime(at - data.firstCycles, data.timing) + ": " +
                          std::to_string(began[lane][column]) + " run" + (began[lane][column] == 1 ? "" : "s") +
                          " began, busy " + number(share * 100.0, "%.0f") + "% of the time");
      out.append("</title></rect>\n");
    }
  }
}

// Lanes of handler runs (one per exception) over [from, to], with the
// markers in a lane of their own and a time axis.
void drawLanes(OutputBuffer& out, const ReportData& data, const char* id, std::uint64_t from, std::uint64_t to,
               bool outlineNested) {
  const double span = to > from ? static_cast<double>(to - from) : 1.0;
  auto x = [&](std::uint64_t cycles) {
    const double at = (static_cast<double>(cycles) - static_cast<double>(from)) / span;
    return kPlotLeft + std::clamp(at, 0.0, 1.0) * kPlotWidth;
  };
  std::vector<std::uint16_t> lanes;
  for (const auto& [exception, summary] : data.exceptions) lanes.push_back(exception);
  const double markerLane = kLane * static_cast<double>(lanes.size());
  out.append("<svg id=\"" + std::string(id) + "\" xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
             number(kPlotLeft + kPlotWidth + 20, "%.0f") + "\" height=\"" + number(markerLane + kLane + 30, "%.0f") +
             "\" role=\"img\" aria-label=\"exception handler timeline\">\n");
  for (std::size_t lane = 0; lane < lanes.size(); ++lane) {
    const double y = kLane * static_cast<double>(lane);
    out.append("<rect x=\"" + number(kPlotLeft, "%.0f") + "\" y=\"" + number(y + 2) + "\" width=\"" +
               number(kPlotWidth, "%.0f") + "\" height=\"" + number(kLane - 4) + "\" fill=\"#f3f4f6\"/>");
    out.append("<text x=\"4\" y=\"" + number(y + 16) + "\">");
    appendHtml(out, exceptionName(lanes[lane]));
    out.append("</text>\n");
  }
  std::size_t inWindow = 0;
  for (const HandlerRun& run : data.runs) inWindow += run.end >= from && run.begin <= to ? 1 : 0;
  if (!outlineNested && inWindow > kDenseRuns) {
    drawOccupancy(out, data, lanes, from, to);
  } else {
    for (const HandlerRun& run : data.runs) {
      if (run.end < from || run.begin > to) continue;
      drawRun(out, data, run, lanes, x(run.begin), x(run.end), outlineNested);
    }
  }
  out.append("<text x=\"4\" y=\"" + number(markerLane + 16) + "\">overflow / sync</text>\n");
  for (const ReportMarker& marker : data.markers) {
    if (marker.cycles < from || marker.cycles > to) continue;
    const double at = x(marker.cycles);
    out.append("<line class=\"marker\" x1=\"" + number(at, "%.2f") + "\" x2=\"" + number(at, "%.2f") + "\" y1=\"" +
               number(markerLane + 2) + "\" y2=\"" + number(markerLane + kLane - 2) +
               "\" stroke=\"#dc2626\" stroke-width=\"2\"><title>");
    appendHtml(out, marker.what);
    out.append("</title></line>\n");
  }
  const TimeUnit unit = unitFor(to - data.firstCycles, data.timing);
  for (int tick = 0; tick <= 4; ++tick) {
    const std::uint64_t cycles = from + static_cast<std::uint64_t>(span * tick / 4);
    const double at = x(cycles);
    out.append("<line x1=\"" + number(at) + "\" x2=\"" + number(at) + "\" y1=\"" + number(markerLane + kLane) +
               "\" y2=\"" + number(markerLane + kLane + 5) + "\" stroke=\"#9ca3af\"/>");
    out.append("<text x=\"" + number(at) + "\" y=\"" + number(markerLane + kLane + 18) + "\" text-anchor=\"" +
               (tick == 0   ? "start"
                : tick == 4 ? "end"
                            : "middle") +
               "\">");
    appendHtml(out, timeIn(cycles - data.firstCycles, unit));
    out.append("</text>\n");
  }
  out.append("</svg>\n");
}

// The window of the close-up: around the first handler that was pre-empted
// (the first run when none was), a tenth of its length either side.
std::pair<std::uint64_t, std::uint64_t> closeUp(const ReportData& data) {
  const HandlerRun* chosen = &data.runs.front();
  for (const HandlerRun& inner : data.runs) {
    if (inner.depth == 0) continue;
    for (const HandlerRun& outer : data.runs) {
      if (outer.depth + 1 == inner.depth && outer.begin <= inner.begin && outer.end >= inner.end) {
        chosen = &outer;
        break;
      }
    }
    break;
  }
  const std::uint64_t margin = std::max<std::uint64_t>(1, (chosen->end - chosen->begin) / 10);
  return {std::max(data.firstCycles, chosen->begin > margin ? chosen->begin - margin : 0), chosen->end + margin};
}

void timeline(OutputBuffer& out, const ReportData& data) {
  out.append("<section id=\"exceptions\"><h2>Exception handlers</h2>\n");
  if (data.runsTotal == 0 && data.markersTotal == 0) {
    out.append("<p class=\"note\">No exception trace in this capture.</p></section>\n");
    return;
  }
  // The whole: from the first to the last run drawn or marker.
  std::uint64_t from = data.lastCycles, to = data.firstCycles;
  for (const HandlerRun& run : data.runs) {
    from = std::min(from, run.begin);
    to = std::max(to, run.end);
  }
  for (const ReportMarker& marker : data.markers) {
    from = std::min(from, marker.cycles);
    to = std::max(to, marker.cycles);
  }
  if (from > to) from = to;
  drawLanes(out, data, "timeline", from, to, false);
  if (data.runs.size() > kDenseRuns) {
    out.append(
        "<p class=\"note\">Too many runs to draw one by one: each pixel column's height is the share of its time "
        "spent in the handler (hover for the runs that began there).</p>\n");
  }
  if (data.runsTotal > data.runs.size()) {
    out.append("<p class=\"note\">The timeline shows the first " + std::to_string(data.runs.size()) + " of " +
               std::to_string(data.runsTotal) + " handler runs; the table counts them all.</p>\n");
  }
  if (data.markersTotal > data.markers.size()) {
    out.append("<p class=\"note\">" + std::to_string(data.markersTotal - data.markers.size()) +
               " more overflow and sync-loss markers are not drawn.</p>\n");
  }
  if (!data.runs.empty()) {
    const auto [closeFrom, closeTo] = closeUp(data);
    out.append("<h3>Close-up: " + humanTime(closeTo - closeFrom, data.timing) + " from " +
               humanTime(closeFrom - data.firstCycles, data.timing) +
               " (outlined: a handler that pre-empted another)</h3>\n");
    drawLanes(out, data, "timeline-close-up", closeFrom, closeTo, true);
  }
  if (!data.exceptions.empty()) {
    out.append(
        "<table class=\"grid\"><tr><th>exception</th><th>runs</th><th>time inside</th>"
        "<th>pre-empted at most</th></tr>\n");
    for (const auto& [exception, summary] : data.exceptions) {
      out.append("<tr><td>");
      appendHtml(out, exceptionName(exception));
      out.append("</td><td class=\"n\">" + std::to_string(summary.runs) + "</td><td class=\"n\">");
      appendHtml(out, humanTime(summary.cycles, data.timing));
      out.append("</td><td class=\"n\">" + std::to_string(summary.deepest) + "</td></tr>\n");
    }
    out.append("</table>\n");
  }
  out.append("</section>\n");
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
  struct Bar {
    std::string name;
    std::uint64_t samples;
  };
  std::vector<Bar> bars;
  for (std::size_t i = 0; i < report.rows.size() && i < 15; ++i)
    bars.push_back({report.rows[i].function, report.rows[i].samples});
  if (report.asleep != 0) bars.push_back({"(core asleep)", report.asleep});
  if (report.prohibited != 0) bars.push_back({"(sampling prohibited)", report.prohibited});
  std::uint64_t largest = 1;
  for (const Bar& bar : bars) largest = std::max(largest, bar.samples);
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
  if (!timing.clockHz || *timing.clockHz <= 0) return std::to_string(cycles) + " cycles";
  const double seconds = static_cast<double>(cycles) * timing.timestampPrescale / *timing.clockHz;
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
  out.append(data.timing.clockHz && *data.timing.clockHz > 0
                 ? " · trace clock " + number(*data.timing.clockHz, "%.0f") + " Hz, timestamp prescale " +
                       std::to_string(data.timing.timestampPrescale)
                 : std::string(" · times in cycles (no trace clock given)"));
  out.append(" · made by vestrel-decode</p>\n");
  summary(out, data);
  timeline(out, data);
  profile(out, data);
  ports(out, data);
  out.append("</body>\n</html>\n");
}

}  // namespace vestrel::decode
