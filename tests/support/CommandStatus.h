// Running the tools from tests: the exit code of a command run with
// std::system (Windows gives the code itself; POSIX packs it with the
// signal), and a command whose standard input the test writes, in binary.
#pragma once

#include <cstdio>
#include <string>

namespace vestrel_test {

// -1 when the command did not exit normally.
int commandExitCode(int systemStatus);

// Starts the command with its standard input the returned pipe (nullptr when
// it cannot start); finishWritingTo closes the pipe, waits for the command
// and gives its exit code (-1 when it did not exit normally).
std::FILE* startWritingTo(const std::string& commandLine);
int finishWritingTo(std::FILE* input);

}  // namespace vestrel_test
