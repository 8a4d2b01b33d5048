#include "CommandStatus.h"

#include <stdio.h>

namespace vestrel_test {

int commandExitCode(int systemStatus) { return systemStatus; }

std::FILE* startWritingTo(const std::string& commandLine) { return _popen(commandLine.c_str(), "wb"); }

int finishWritingTo(std::FILE* input) { return _pclose(input); }

}  // namespace vestrel_test
