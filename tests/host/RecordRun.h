// vestrel-host record run as a user runs it: a separate process that opens
// COM7 while the test plays the probe's end of the line, and what to check
// of its capture.
#pragma once

#include <functional>
#include <string>

namespace vestrel_test {

std::string hostCommand();
std::string decodeCommand();

struct Recording {
  int exitCode = -1;
  std::string sent;     // everything this side managed to put on the line
  std::string dump;     // the command's output file
  std::string printed;  // its standard output and error
};

// The port in "serving the raw SWO stream on 127.0.0.1:<port>", once printed.
std::string servedPort(std::string printed);

// Runs "<command> --output <name>.bin" (vestrel-host's) while feeding
// COM7 at about 50 KB/s until it exits; whilePrinting sees what it printed so
// far until it returns true.
// With output given, the command's --output is that path instead.
// With holdInputUntil given, its standard input stays open (and silent, no
// Enter) until it has printed that text.
Recording runHost(const std::string& command, const std::string& name,
                  const std::function<bool(const std::string& printed)>& whilePrinting, const std::string& output = "",
                  const std::string& holdInputUntil = "");

// Runs "record <arguments> --output <name>.bin" while feeding the line at
// about 50 KB/s until it exits; onServing gets the served port once printed.
Recording runRecord(const std::string& arguments, const std::string& name,
                    const std::function<void(const std::string& port)>& onServing = nullptr);

// The capture, without the zero padding of its last 8-byte sample.
std::string withoutPadding(std::string dump);

// The bytes sent before the receiver opened the port are purged, and those
// sent after it stopped are not recorded; in between, every byte is kept
// (at least minimum bytes of them).
void expectOneUnbrokenRunOfWhatWasSent(const Recording& run, std::size_t minimum = 20000);

// The printed line that starts with prefix ("" if none).
std::string printedLine(const std::string& printed, const std::string& prefix);

}  // namespace vestrel_test
