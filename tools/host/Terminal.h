// Whether a stream is an interactive terminal: live counters and progress
// bars are drawn only there, so that logs and pipes get plain lines.
#pragma once

#include <cstdio>

namespace vestrel::host {

bool isTerminal(std::FILE* stream);

}  // namespace vestrel::host
