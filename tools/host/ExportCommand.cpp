// export: the capture a demo or record folder holds, as a TDF section or a
// binary dump, each checked against the sample count once written.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Commands.h"
#include "HostCore.h"
#include "Terminal.h"

namespace vestrel::host {

using Kv::Orv::Hexkit::cHexkitError;
using Kv::Orv::Trace::CChannelDriver;

namespace {

// SaveToFile with a progress bar on a terminal: the export runs on a worker
// thread while this one watches the file grow towards its expected size.
// An error thrown by the export is thrown again here.
void saveWithProgress(CChannelDriver& driver, const fs::path& path, std::uint32_t format, std::uint64_t growth,
                      const char* label) {
  if (!host::isTerminal(stdout)) {
    driver.SaveToFile(path.string(), format);
    return;
  }
  std::error_code error;
  const std::uint64_t before = fs::exists(path) ? fs::file_size(path, error) : 0;
  std::exception_ptr failure;
  std::atomic<bool> done{false};
  std::thread worker([&] {
    try {
      driver.SaveToFile(path.string(), format);
    } catch (...) {
      failure = std::current_exception();
    }
    done = true;
  });
  const auto draw = [&](std::uint64_t written) {
    const double fraction = growth == 0 ? 1.0 : std::min(1.0, static_cast<double>(written) / growth);
    const int filled = static_cast<int>(fraction * 40);
    std::printf("\r  %-6s [%s%s] %3d%%", label, std::string(filled, '#').c_str(), std::string(40 - filled, '.').c_str(),
                static_cast<int>(fraction * 100));
    std::fflush(stdout);
  };
  while (!done) {
    const std::uint64_t now = fs::exists(path, error) ? fs::file_size(path, error) : 0;
    draw(error || now < before ? 0 : now - before);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  worker.join();
  if (failure) {
    std::printf("\n");
    std::rethrow_exception(failure);
  }
  draw(growth);
  std::printf("\n");
}

// The cores whose captures the folder holds: swotrace_<core>.bin in the
// receiver's data folder.
std::vector<std::string> capturedCores(const fs::path& from) {
  std::vector<std::string> cores;
  std::error_code error;
  const fs::path data = from / ".KV-trace" / "data";
  if (!fs::is_directory(data, error)) return cores;
  for (const auto& entry : fs::directory_iterator(data, error)) {
    const std::string name = entry.path().filename().string();
    if (entry.is_regular_file(error) && name.size() > 13 && name.compare(0, 9, "swotrace_") == 0 &&
        name.compare(name.size() - 4, 4, ".bin") == 0) {
      cores.push_back(name.substr(9, name.size() - 13));
    }
  }
  std::sort(cores.begin(), cores.end());
  return cores;
}

// The core whose capture is exported: --core when the folder holds it, or
// the folder's only one; empty when neither (said why).
std::string chooseCore(const ExportSettings& settings, const fs::path& from) {
  const std::vector<std::string> cores = capturedCores(from);
  std::string names;
  for (const auto& name : cores) names += (names.empty() ? "" : ", ") + name;
  if (!settings.core.empty()) {
    if (std::find(cores.begin(), cores.end(), settings.core) != cores.end()) return settings.core;
    std::cerr << "vestrel-host export: " << settings.from << " holds no capture of core " << settings.core;
    if (!cores.empty()) std::cerr << " (it holds: " << names << ")";
    std::cerr << "\n";
    return "";
  }
  if (cores.empty()) {
    std::cerr << "vestrel-host export: " << settings.from
              << " holds no capture (no .KV-trace/data/swotrace_<core>.bin): give the folder of a demo or record\n";
    return "";
  }
  if (cores.size() > 1) {
    std::cerr << "vestrel-host export: " << settings.from << " holds captures of several cores (" << names
              << "): choose one with --core\n";
    return "";
  }
  return cores.front();
}

// The capture as a BinTraceData section appended to --tdf and as a binary
// dump in --binary, each checked by its size.
void writeExports(CChannelDriver& driver, const ExportSettings& settings, std::uint64_t bytes) {
  if (!settings.tdf.empty()) {
    const fs::path tdf = fs::absolute(settings.tdf);
    if (!fs::exists(tdf)) writeFile(tdf, "VTDF0001");  // the host creates TDF files
    const std::uint64_t before = fs::file_size(tdf);
    // The section: a 24-byte header, then the samples.
    saveWithProgress(driver, tdf, 0, 24 + bytes, "TDF");
    requireFileSize(settings.tdf, before + 24 + bytes);
    std::cout << "appended a BinTraceData section to " << settings.tdf << "\n";
  }
  if (!settings.binary.empty()) {
    saveWithProgress(driver, fs::absolute(settings.binary), 2, bytes, "binary");
    requireFileSize(settings.binary, bytes);
    std::cout << "wrote " << settings.binary << "\n";
  }
}

}  // namespace

int exportCapture(const ExportSettings& settings) {
  if (settings.tdf.empty() && settings.binary.empty()) {
    std::cerr << "vestrel-host export: nothing to do: give --tdf <file> and/or --binary <file>\n";
    return 2;
  }
  const fs::path from = settings.from;
  std::error_code error;
  if (!fs::is_directory(from, error)) {
    std::cerr << "vestrel-host export: " << settings.from << " is not a folder\n";
    return 2;
  }
  // Nothing is created in a folder that holds no capture.
  const std::string core = chooseCore(settings, from);
  if (core.empty()) return 2;
  if (!settings.tdf.empty()) requireCheckableOutput(settings.tdf);
  if (!settings.binary.empty()) requireWritableOutput(settings.binary, settings.force, "--binary");

  // The session (and with it the receiver library) outlives the handler:
  // an error thrown inside the library lives in the library.
  ProbeSession session;
  try {
    if (!session.open(from, ("Export/" + core).c_str())) return 1;  // the library would not load: said why
    const std::uint32_t samples = session.driver->GetNumSamples();
    const std::uint64_t bytes = samples * 8ull;
    std::cout << samples << " samples (" << bytes << " bytes) of core " << core << std::endl;
    writeExports(*session.driver, settings, bytes);
  } catch (const cHexkitError& e) {
    reportHexkitError("receiver", e);
    return 1;
  }
  return 0;
}

}  // namespace vestrel::host
