#include "CommandStatus.h"

#include <sys/wait.h>

namespace vestrel_test {

int commandExitCode(int systemStatus) {
  return systemStatus != -1 && WIFEXITED(systemStatus) ? WEXITSTATUS(systemStatus) : -1;
}

std::FILE* startWritingTo(const std::string& commandLine) { return popen(commandLine.c_str(), "w"); }

int finishWritingTo(std::FILE* input) { return commandExitCode(pclose(input)); }

}  // namespace vestrel_test
