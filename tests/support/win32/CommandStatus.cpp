#include "CommandStatus.h"

namespace vestrel_test {

int commandExitCode(int systemStatus) { return systemStatus; }

}  // namespace vestrel_test
