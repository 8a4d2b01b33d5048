// The commands of vestrel-host, one file each; main() only reads the command
// line. Each returns the process's exit status: 0 done, 1 the receiver or a
// check failed, 2 the command could not start. Filesystem and write errors
// are thrown as std::exception and reported by main(). No command replaces
// an existing output file unless its --force is given; outputs are checked
// before anything is recorded.
#pragma once

#include <string>

#include "GdbTarget.h"
#include "LiveTrace.h"

namespace vestrel::host {

struct DemoSettings {
  double seconds = 3.0;
  std::string output = "vestrel-demo";
  int excerptLines = 12;
  bool force = false;  // replace an earlier demo's files
  LiveSettings live;   // decode defaults to on when standard output is a terminal
};
int demo(const DemoSettings& settings);

struct RecordSettings {
  std::string port;  // a COM number, or (Linux) a device path
  double clockHz = 0;
  bool clockAuto = false;  // read from the device's registers (with gdbTarget.deviceFile)
  std::string prescaler;   // a number, or auto
  std::string optionsFile;
  std::string firmware;  // the probe's firmware version, as its software reports it
  double seconds = 0;    // 0: until Enter
  std::string output = "capture.bin";
  bool force = false;  // replace an existing output
  LiveSettings live;
  GdbTargetSettings gdbTarget;  // a real target behind a GDB server
};
int record(const RecordSettings& settings);

struct ProxySettings {
  std::string listen;     // [HOST:]PORT the user's debugger connects to
  RecordSettings record;  // the GDB server, the port, the clock, what to trace
  int sessions = 0;       // end after this many debugger sessions; 0: until Ctrl-C
};
int gdbProxy(const ProxySettings& settings);

int options(const std::string& writePath, const std::string& showPath, bool force);

int attributes(const std::string& optionsFile, const std::string& profile);

struct ExportSettings {
  std::string from = "vestrel-demo";
  std::string core;  // the core whose capture to export; needed only when there are several
  std::string tdf;
  std::string binary;
  bool force = false;  // replace an existing binary dump
};
int exportCapture(const ExportSettings& settings);

int ports();

}  // namespace vestrel::host
