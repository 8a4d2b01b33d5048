#include "CaptureMetadata.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <system_error>

namespace vestrel::capture_metadata {

namespace {

constexpr const char* kFormat = "vestrel-capture-metadata";
constexpr int kVersion = 1;
// The clocks a Cortex-M's trace can run at, with room either side.
constexpr double kLowestClockHz = 1e3;
constexpr double kHighestClockHz = 1e10;
constexpr std::size_t kMaxPathText = 4096;

using nlohmann::ordered_json;

const nlohmann::json& member(const nlohmann::json& object, const char* key) {
  static const nlohmann::json null;
  const auto found = object.find(key);
  return found == object.end() ? null : *found;
}

std::string text(const nlohmann::json& object, const char* key) {
  const nlohmann::json& value = member(object, key);
  if (value.is_null()) return "";
  if (!value.is_string()) throw std::invalid_argument(std::string(key) + " is not a text");
  const std::string result = value.get<std::string>();
  if (result.size() > kMaxPathText) throw std::invalid_argument(std::string(key) + " is too long");
  return result;
}

}  // namespace

std::string metadataPathFor(const std::string& capture) { return capture + ".vestrel.json"; }

std::string toJson(const CaptureMetadata& metadata) {
  ordered_json object;
  object["format"] = kFormat;
  object["version"] = kVersion;
  object["clock_hz"] = metadata.clockHz ? ordered_json(*metadata.clockHz) : ordered_json(nullptr);
  object["timestamp_prescale"] = metadata.timestampPrescale;
  object["tpiu_id"] = metadata.tpiuId ? ordered_json(*metadata.tpiuId) : ordered_json(nullptr);
  object["container"] = metadata.tdf ? "tdf" : "raw";
  object["elf"] = metadata.elf;
  object["recorded_by"] = metadata.recordedBy;
  return object.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

CaptureMetadata parseMetadata(std::string_view text_) {
  nlohmann::json object;
  try {
    object = nlohmann::json::parse(text_.begin(), text_.end());
  } catch (const nlohmann::json::exception& error) {
    throw std::invalid_argument(std::string("not JSON: ") + error.what());
  }
  if (!object.is_object()) throw std::invalid_argument("not a JSON object");
  if (member(object, "format") != kFormat) throw std::invalid_argument(std::string("format is not ") + kFormat);
  const nlohmann::json& version = member(object, "version");
  if (!version.is_number_integer() || version.get<long long>() != kVersion) {
    throw std::invalid_argument("version " + version.dump() + " is not one this build reads (1)");
  }
  CaptureMetadata metadata;
  const nlohmann::json& clock = member(object, "clock_hz");
  if (!clock.is_null()) {
    const double hz = clock.is_number() ? clock.get<double>() : 0.0;
    if (!clock.is_number() || !std::isfinite(hz) || hz < kLowestClockHz || hz > kHighestClockHz) {
      throw std::invalid_argument("clock_hz " + clock.dump() + " is not a clock from 1 kHz to 10 GHz");
    }
    metadata.clockHz = hz;
  }
  const nlohmann::json& prescale = member(object, "timestamp_prescale");
  if (!prescale.is_null()) {
    const long long value = prescale.is_number_integer() ? prescale.get<long long>() : 0;
    if (value != 1 && value != 4 && value != 16 && value != 64) {
      throw std::invalid_argument("timestamp_prescale " + prescale.dump() + " is not 1, 4, 16 or 64");
    }
    metadata.timestampPrescale = static_cast<std::uint32_t>(value);
  }
  const nlohmann::json& tpiu = member(object, "tpiu_id");
  if (!tpiu.is_null()) {
    const long long value = tpiu.is_number_integer() ? tpiu.get<long long>() : 0;
    if (value < 1 || value > 127) throw std::invalid_argument("tpiu_id " + tpiu.dump() + " is not from 1 to 127");
    metadata.tpiuId = static_cast<int>(value);
  }
  const std::string container = text(object, "container");
  if (container != "raw" && container != "tdf" && !container.empty()) {
    throw std::invalid_argument("container \"" + container + "\" is neither raw nor tdf");
  }
  metadata.tdf = container == "tdf";
  metadata.elf = text(object, "elf");
  metadata.recordedBy = text(object, "recorded_by");
  return metadata;
}

std::optional<CaptureMetadata> readMetadataBeside(const std::string& capture) {
  namespace fs = std::filesystem;
  const std::string path = metadataPathFor(capture);
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (!fs::exists(status)) return std::nullopt;
  if (!fs::is_regular_file(status)) throw std::runtime_error(path + ": not a regular file");
  const std::uintmax_t size = fs::file_size(path, error);
  if (error) throw std::runtime_error(path + ": " + error.message());
  if (size > kMaxMetadataBytes) {
    throw std::runtime_error(path + ": " + std::to_string(size) + " bytes, more than a metadata file holds (" +
                             std::to_string(kMaxMetadataBytes) + ")");
  }
  std::ifstream file(path, std::ios::binary);
  std::string content(static_cast<std::size_t>(size), '\0');
  if (!file || !file.read(content.data(), static_cast<std::streamsize>(content.size()))) {
    throw std::runtime_error(path + ": cannot be read");
  }
  try {
    return parseMetadata(content);
  } catch (const std::invalid_argument& why) {
    throw std::runtime_error(path + ": " + why.what());
  }
}

void writeMetadataBeside(const std::string& capture, const CaptureMetadata& metadata) {
  const std::string path = metadataPathFor(capture);
  const std::string content = toJson(metadata);
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
  const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
  const int writeError = errno;
  const bool closed = std::fclose(file) == 0;
  if (!written || !closed) {
    throw std::runtime_error("cannot write " + path + ": " + std::strerror(written ? errno : writeError));
  }
}

std::string clockText(double hz) {
  char text[64];
  if (std::isfinite(hz) && hz >= 0 && hz < 1e15 && hz == std::floor(hz)) {
    std::snprintf(text, sizeof text, "%.0f", hz);
  } else {
    std::snprintf(text, sizeof text, "%.9g", hz);
  }
  return text;
}

}  // namespace vestrel::capture_metadata
