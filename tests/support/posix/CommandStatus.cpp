#include "CommandStatus.h"

#include <sys/wait.h>

namespace vestrel_test {

int commandExitCode(int systemStatus) {
  return systemStatus != -1 && WIFEXITED(systemStatus) ? WEXITSTATUS(systemStatus) : -1;
}

}  // namespace vestrel_test
