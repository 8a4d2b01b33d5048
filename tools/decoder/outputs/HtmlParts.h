// What the parts of the HTML report share: the plot's geometry and colours,
// numbers as text, and times in one unit. For the report's own files.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "ExceptionNames.h"
#include "OutputBuffer.h"
#include "ReportCollector.h"
#include "Timing.h"

namespace vestrel::decoder::html {

inline constexpr double kPlotLeft = 170;   // labels to the left of it
inline constexpr double kPlotWidth = 900;  // pixels for the whole time span
inline constexpr double kLane = 24;

inline const char* const kPalette[] = {"#3b82f6", "#f59e0b", "#10b981", "#ef4444", "#8b5cf6",
                                       "#ec4899", "#14b8a6", "#f97316", "#6366f1", "#84cc16"};

inline std::string number(double value, const char* format = "%.1f") {
  char text[48];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

// One unit for every time on an axis or in a column: the one that suits the
// largest of them.
struct TimeUnit {
  double cyclesPerUnit = 1;
  const char* name = "cycles";  // no clock: times in cycles
};

inline TimeUnit unitFor(std::uint64_t largest, const Timing& timing) {
  if (!timing.hasClock()) return {};
  const double cyclesPerSecond = *timing.clockHz / timing.timestampPrescale;
  const double seconds = static_cast<double>(largest) / cyclesPerSecond;
  if (seconds < 1e-3) return {cyclesPerSecond / 1e6, "µs"};
  if (seconds < 1) return {cyclesPerSecond / 1e3, "ms"};
  return {cyclesPerSecond, "s"};
}

inline std::string timeIn(std::uint64_t cycles, const TimeUnit& unit) {
  if (std::string(unit.name) == "cycles") return std::to_string(cycles) + " cycles";
  return number(static_cast<double>(cycles) / unit.cyclesPerUnit, "%.3f") + " " + unit.name;
}

// The exception handlers: the overview, a close-up of a pre-emption, and
// the table of runs per exception.
void timeline(OutputBuffer& out, const ReportData& data);

}  // namespace vestrel::decoder::html
