#pragma once

#include <string>

#include "OutputBuffer.h"

namespace vestrel::decoder {

// Appends text as a JSON string body: quotes, backslashes and every control
// character escaped; valid UTF-8 kept; a byte that is not part of valid UTF-8
// written as \u00XX (the code point of the byte).
void appendJsonString(OutputBuffer& out, const std::string& text);

}  // namespace vestrel::decoder
