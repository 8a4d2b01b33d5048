// The report's exception timeline: one lane per exception, a run drawn as a
// rectangle, or, where runs are too many to draw, each pixel column shaded by
// how busy it was; overflow and sync markers; one time unit per axis.
#include <algorithm>
#include <vector>

#include "ExceptionNames.h"
#include "HtmlParts.h"
#include "HtmlReport.h"

namespace vestrel::decoder::html {

namespace {

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
                : run.how == HandlerRun::End::Reset        ? " (closed: the handler stack passed 512 entries)"
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

}  // namespace

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

}  // namespace vestrel::decoder::html
