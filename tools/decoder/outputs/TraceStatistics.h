// The decoder's statistics, for the end of text and JSON Lines output.
#pragma once

#include "ItmDecoder.h"
#include "OutputBuffer.h"

namespace vestrel::decoder {

// One "name: count" per line.
void writeStatistics(OutputBuffer& out, const DecoderStatistics& statistics);
// One JSON object of kind "statistics" and its newline; packet counts keyed
// by kind, in snake_case ("pc_sample").
void writeStatisticsJson(OutputBuffer& out, const DecoderStatistics& statistics);

}  // namespace vestrel::decoder
