// Drives the probe simulator libraries: writes a scenario file (and board
// files) in a scratch directory and names it in VESTREL_PROBE_SCENARIO.
#pragma once

#include <fstream>
#include <string>

#include "TestSupport.h"
#include "uDll.h"
#include "uString.h"

namespace vestrel_test {

class ProbeScenario {
 public:
  ProbeScenario() : env_("VESTREL_PROBE_SCENARIO", dir_.file("scenario.txt")) { write(""); }

  void write(const std::string& text) { std::ofstream(dir_.file("scenario.txt"), std::ios::binary) << text; }
  // Writes a board data file and returns its path.
  std::string board(const std::string& content, const std::string& name = "board.txt") {
    std::ofstream(dir_.file(name), std::ios::binary) << content;
    return dir_.file(name);
  }
  // A Calder probe, SWD with SWO on TDO, and a Larkin device.
  void workingProbe(const std::string& extra = "") {
    write("board * = " + board("$ calder\n$ swd\n  swd_debug=enabled\n  swo_data=tdo_pin\n") +
          "\ndevice_id = 0x0B9AF02F\n" + extra);
  }
  const std::string& directory() const { return dir_.path(); }
  // The path of a file of that name beside the scenario (not created).
  std::string file(const std::string& name) const { return dir_.file(name); }

 private:
  ScratchDirectory dir_;
  ScopedEnv env_;
};

// The name the platform loader is handed for a library called bare.
inline std::string loaderName(const char* bare) {
  std::string file = KV_ORV::uDll::GetPlatformName(bare);
  return KV_ORV::uString::replaceAll(file, ".dll", "");
}

}  // namespace vestrel_test
