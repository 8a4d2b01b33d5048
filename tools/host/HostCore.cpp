#include "HostCore.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <system_error>

#include "TraceEnvironment.h"

namespace vestrel::host {

bool ReceiverLibrary::load() {
  if (!dll.FindAndLoad("Vestrel", 0xFFFFFFFF)) {
    std::cerr << "vestrel-host: " << dll.LastError() << "\n";
    if (!dll.LoaderMessage().empty()) std::cerr << "vestrel-host: the loader says: " << dll.LoaderMessage() << "\n";
    return false;
  }
  create = reinterpret_cast<CreateRcvrFunction>(dll.GetSymbol("CreateRcvr"));
  destroy = reinterpret_cast<DestroyRcvrFunction>(dll.GetSymbol("DestroyRcvr"));
  if (create == nullptr || destroy == nullptr) {
    std::cerr << "vestrel-host: the library does not export CreateRcvr and DestroyRcvr\n";
    return false;
  }
  return true;
}

void writeFile(const fs::path& path, const std::string& content) {
  std::FILE* file = std::fopen(path.string().c_str(), "wb");
  if (file == nullptr) throw std::runtime_error("cannot write " + path.string() + ": " + std::strerror(errno));
  const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
  const int error = errno;
  const bool flushed = std::fflush(file) == 0;
  const int flushError = errno;
  const bool closed = std::fclose(file) == 0;
  if (!written || !flushed || !closed) {
    throw std::runtime_error("cannot write " + path.string() + ": " +
                             std::strerror(!written   ? error
                                           : !flushed ? flushError
                                                      : errno));
  }
}

std::string statusOf(Kv::Orv::Trace::CChannelDriver& driver) {
  Kv::Orv::Trace::ChannelStatus status;
  driver.GetStatus(status);
  return status.text;
}

void reportHexkitError(const char* what, const Kv::Orv::Hexkit::cHexkitError& error) {
  std::cerr << "vestrel-host: " << what << " error (severity " << error.GetSeverity() << "): " << error.GetMessage()
            << "\n";
}

void writeProbeScenario(const fs::path& dir) {
  writeFile(dir / "board.txt", "$ calder\n$ swd\n  swd_debug=enabled\n  swo_data=tdo_pin\n");
  writeFile(dir / "probe-scenario.txt", "board * = " + (dir / "board.txt").string() +
                                            "\n"
                                            "device_id = 0x0B9AF02F\n"
                                            "register MOD_SYSCLK CSCTL0 = 0x180\n"
                                            "register MOD_SYSCLK CSCTL1 = 0x182\n"
                                            "register MOD_SYSCLK CSCTL2 = 0x184\n"
                                            "register MOD_SYSCLK CSCTL3 = 0x186\n"
                                            "register MOD_SYSCLK CSCLKEN = 0x18E\n"
                                            "register MOD_SYSCLK TLVBASE = 0x1A00\n"
                                            "memory 0x180 = 0x00030000\n"
                                            "memory 0x182 = 0x00010003\n");
  KV_ORV::SetEnv("VESTREL_PROBE_SCENARIO", (dir / "probe-scenario.txt").string().c_str());
}

bool ProbeSession::open(const fs::path& profile, const char* cpu) {
  fs::create_directories(profile);
  KV_ORV::SetEnv("USERPROFILE", fs::absolute(profile).string().c_str());
  writeProbeScenario(fs::absolute(profile));
  if (!library.load()) return false;
  receiver = library.create();
  driver = receiver->GetChannelDriver(cpu, &target, 1, 0);
  return true;
}

ReceiverSession::ReceiverSession(const ReceiverLibrary& library, const char* cpu,
                                 Kv::Orv::Trace::CCpuTraceInterface* target)
    : library_(library), receiver_(library.create()) {
  try {
    driver_ = receiver_->GetChannelDriver(cpu, target, 1, 0);
  } catch (...) {
    library_.destroy(receiver_);
    throw;
  }
}

void ReceiverSession::end() {
  Kv::Orv::Trace::CReceiver* receiver = receiver_;
  Kv::Orv::Trace::CChannelDriver* driver = driver_;
  receiver_ = nullptr;
  driver_ = nullptr;
  if (receiver == nullptr) return;
  try {
    if (driver != nullptr) receiver->ReleaseChannelDriver(driver);
  } catch (...) {
    library_.destroy(receiver);
    throw;
  }
  library_.destroy(receiver);
}

ReceiverSession::~ReceiverSession() {
  try {
    end();
  } catch (const Kv::Orv::Hexkit::cHexkitError& error) {
    reportHexkitError("receiver (letting it go)", error);
  } catch (const std::exception& error) {
    std::cerr << "vestrel-host: letting the receiver go: " << error.what() << "\n";
  } catch (...) {
    std::cerr << "vestrel-host: letting the receiver go failed\n";
  }
}

ProbeSession::~ProbeSession() {
  if (receiver != nullptr) {
    if (driver != nullptr) receiver->ReleaseChannelDriver(driver);
    library.destroy(receiver);
  }
}

void requireCheckableOutput(const fs::path& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    throw UsageError("cannot write " + path.string() + ": not a regular file, so what reaches it could not be checked");
  }
}

void requireWritableOutput(const fs::path& path, bool force, const char* option) {
  requireCheckableOutput(path);
  std::error_code error;
  const bool exists = fs::exists(path, error);
  if (exists && !force) {
    throw UsageError(path.string() + " exists: give --force to replace it, or another " + option);
  }
  // Opened for update when it is there (nothing changes), made and removed
  // when it is not.
  std::FILE* file = std::fopen(path.string().c_str(), exists ? "r+b" : "wb");
  if (file == nullptr) throw UsageError("cannot write " + path.string() + ": " + std::strerror(errno));
  std::fclose(file);
  if (exists) return;
  // Only the empty file made here is removed; a name the C library opens
  // but the file system does not show (Wine's view of a Unix device) is
  // not a file whose contents can be checked.
  if (!fs::is_regular_file(path, error) || fs::file_size(path, error) != 0) {
    throw UsageError("cannot write " + path.string() + ": not a regular file, so what reaches it could not be checked");
  }
  fs::remove(path, error);
}

fs::path numberedOutput(const fs::path& output, int n) {
  return output.parent_path() / (output.stem().string() + "-" + std::to_string(n) + output.extension().string());
}

void requireNoNumberedOutputs(const fs::path& output, bool force, const char* option) {
  if (force) return;
  const fs::path folder = output.parent_path().empty() ? fs::path(".") : output.parent_path();
  const std::string prefix = output.stem().string() + "-";
  const std::string extension = output.extension().string();
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (name.size() <= prefix.size() + extension.size() || name.compare(0, prefix.size(), prefix) != 0 ||
        name.compare(name.size() - extension.size(), extension.size(), extension) != 0) {
      continue;
    }
    const std::string number = name.substr(prefix.size(), name.size() - prefix.size() - extension.size());
    if (number.find_first_not_of("0123456789") == std::string::npos) {
      throw UsageError((output.parent_path() / name).string() + " exists (runs are saved as " +
                       numberedOutput(output, 1).string() + ", ...): give --force to replace them, or another " +
                       option);
    }
  }
}

void requireFreshDemoFolder(const fs::path& folder, bool force) {
  if (force) return;
  std::string found;
  for (const char* name : {"trace.bin", "trace.tdf", "report.html", "trace.perfetto.json"}) {
    std::error_code error;
    if (fs::exists(folder / name, error)) found += (found.empty() ? "" : ", ") + std::string(name);
  }
  if (!found.empty()) {
    throw UsageError(folder.string() + " holds an earlier demo's files (" + found +
                     "): give --force to replace them, or another --folder");
  }
}

void requireFileSize(const fs::path& path, std::uint64_t bytes) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  if (error) throw std::runtime_error("cannot write " + path.string() + ": " + error.message());
  if (size != bytes) {
    throw std::runtime_error("cannot write " + path.string() + ": only " + std::to_string(size) + " of " +
                             std::to_string(bytes) + " bytes reached the file (is the disk full?)");
  }
}

capture_metadata::CaptureMetadata recordingMetadata(Kv::Orv::Trace::CChannelDriver& driver, double knownClockHz,
                                                    const std::string& recordedBy) {
  capture_metadata::CaptureMetadata result;
  result.recordedBy = recordedBy;
  Kv::Orv::Trace::TraceAttribute attribute;
  if (knownClockHz > 0) {
    result.clockHz = knownClockHz;
  } else {
    driver.GetAttribute("Timing Clock Frequency", attribute);
    const double reported = attribute.value != nullptr ? std::strtod(attribute.value, nullptr) : 0.0;
    if (reported >= 1e3 && reported <= 1e10) result.clockHz = reported;
  }
  driver.GetAttribute("ITM Timestamp Prescale", attribute);
  const long prescale = attribute.value != nullptr ? std::strtol(attribute.value, nullptr, 10) : 1;
  if (prescale == 1 || prescale == 4 || prescale == 16 || prescale == 64) {
    result.timestampPrescale = static_cast<std::uint32_t>(prescale);
  }
  return result;
}

std::string decodeCommandFor(const std::string& input, const capture_metadata::CaptureMetadata& metadata,
                             bool withTiming) {
  std::string command = "vestrel-decode";
  if (withTiming) {
    if (metadata.clockHz) command += " --clock " + capture_metadata::clockText(*metadata.clockHz);
    command += " --ts-prescale " + std::to_string(metadata.timestampPrescale);
  }
  return command + " " + input;
}

}  // namespace vestrel::host
