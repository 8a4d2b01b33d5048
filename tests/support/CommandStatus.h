// The exit code of a command run with std::system, from the status it
// returns (Windows gives the code itself; POSIX packs it with the signal).
#pragma once

namespace vestrel_test {

// -1 when the command did not exit normally.
int commandExitCode(int systemStatus);

}  // namespace vestrel_test
