#include "RecordSetup.h"

#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "DeviceFile.h"
#include "PortPath.h"
#include "TraceEnvironment.h"
#include "XmlOptions.h"

namespace vestrel::host {

using Kv::Orv::Hexkit::cHexkitError;

namespace {

// What record assumes when neither the command line nor the options file
// names the probe's firmware: the first release that carries SWO.
constexpr const char* kDefaultProbeFirmware = "V 1.0.0.5";

void setOption(Kv::Orv::Trace::Vestrel::OptionSet& set, std::uint32_t id, const std::string& value) {
  for (auto& option : set) {
    if (option.id == id) option.value = value;
  }
}

std::string optionValue(const Kv::Orv::Trace::Vestrel::OptionSet& set, std::uint32_t id) {
  for (const auto& option : set) {
    if (option.id == id) return option.value;
  }
  return "";
}

// The options the receiver records with: the user's file (or the defaults),
// with what the command line gives in place of its port, clock and prescaler.
// Returns an error text, or "" when the options are complete.
std::string prepareRecordOptions(const RecordSettings& settings, const fs::path& dir) {
  namespace opt = Kv::Orv::Trace::Vestrel;
  opt::ChannelOptionsHandler handler;
  opt::OptionSet set;
  handler.load(set, settings.optionsFile.empty() ? "" : fs::absolute(settings.optionsFile).string(), 2);
  if (!settings.port.empty()) {
    // "7" and "COM7" name the port by number; anything else is a device path.
    const std::string number = comNumberOf(settings.port);
    if (!number.empty()) {
      setOption(set, opt::kOptionComPort, number);
    } else {
      // A device path (Linux): named as COM7 for the receiver through a link.
      std::error_code failed;
      fs::create_directories(dir / "ports", failed);
      fs::remove(dir / "ports" / "COM7", failed);
      fs::create_symlink(settings.port, dir / "ports" / "COM7", failed);
      if (failed)
        return "cannot use " + settings.port + " as the probe's port (give its COM number): " + failed.message();
      KV_ORV::SetEnv("VESTREL_COM_DIR", (dir / "ports").string().c_str());
      setOption(set, opt::kOptionComPort, "7");
    }
  }
  if (!settings.firmware.empty()) {
    setOption(set, opt::kOptionFirmwareVersion, settings.firmware);
  } else if (optionValue(set, opt::kOptionFirmwareVersion).empty()) {
    setOption(set, opt::kOptionFirmwareVersion, kDefaultProbeFirmware);
  }
  if (settings.clockAuto) {
    if (settings.gdbTarget.deviceFile.empty()) {
      return "--clock auto reads the device's clock registers: give --gdb and --device";
    }
    setOption(set, opt::kOptionClockMode, "Auto");
  } else if (settings.clockHz > 0) {
    setOption(set, opt::kOptionClockMode, "Manual");
    setOption(set, opt::kOptionClockValue, std::to_string(static_cast<long long>(settings.clockHz)));
  }
  if (settings.prescaler == "auto") {
    setOption(set, opt::kOptionPrescalerMode, "Auto");
  } else if (!settings.prescaler.empty()) {
    setOption(set, opt::kOptionPrescalerMode, "Manual");
    setOption(set, opt::kOptionPrescalerValue, settings.prescaler);
  }
  // Without a device's registers to read, the clock must be given.
  if (optionValue(set, opt::kOptionClockMode) != "Manual" && !settings.clockAuto) {
    return "give the trace clock with --clock";
  }
  const std::string port = optionValue(set, opt::kOptionComPort);
  if (port.empty() || port.find_first_not_of("0123456789") != std::string::npos) {
    return "give the probe's serial port with --port";
  }
  handler.save(set, (dir / "options.xml").string());
  return "";
}

}  // namespace

int prepareRecordFolder(const RecordSettings& settings, const fs::path& dir) {
  // A device path that is not there is said before anything is made.
  std::error_code noDevice;
  if (!settings.port.empty() && settings.port.find_first_of("/\\") != std::string::npos &&
      !fs::exists(settings.port, noDevice)) {
    std::cerr << "vestrel-host: --port " << settings.port << ": no such device\n";
    return 2;
  }
  // The device: the one the probe simulator knows, or the one described.
  std::string device = "device_id = 0x0B9AF02F\n";
  if (!settings.gdbTarget.deviceFile.empty()) {
    try {
      device = device_file::scenarioLines(device_file::readDeviceFile(settings.gdbTarget.deviceFile));
    } catch (const std::invalid_argument& fault) {
      std::cerr << "vestrel-host: --device " << fault.what() << "\n";
      return 2;
    }
  }
  fs::create_directories(dir);
  KV_ORV::SetEnv("USERPROFILE", dir.string().c_str());
  // The probe software's checks are played by the probe simulator.
  writeFile(dir / "board.txt", "$ calder\n$ swd\n  swd_debug=enabled\n  swo_data=tdo_pin\n");
  writeFile(dir / "probe-scenario.txt", "board * = " + (dir / "board.txt").string() + "\n" + device);
  KV_ORV::SetEnv("VESTREL_PROBE_SCENARIO", (dir / "probe-scenario.txt").string().c_str());
  try {
    const std::string missing = prepareRecordOptions(settings, dir);
    if (!missing.empty()) {
      std::cerr << "vestrel-host: " << missing << "\n";
      return 2;
    }
  } catch (const cHexkitError& e) {
    reportHexkitError("options", e);
    return 1;
  }

  return 0;
}

}  // namespace vestrel::host
