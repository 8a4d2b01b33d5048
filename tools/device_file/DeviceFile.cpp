#include "DeviceFile.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "PrintableText.h"

namespace vestrel::device_file {

namespace {

std::string trim(const std::string& text) {
  const auto first = text.find_first_not_of(" \t\r");
  if (first == std::string::npos) return {};
  const auto last = text.find_last_not_of(" \t\r");
  return text.substr(first, last - first + 1);
}

// A number of at most 32 bits, decimal or 0x hexadecimal, nothing else.
bool parseNumber(const std::string& text, std::uint32_t& value) {
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const std::string digits = hex ? text.substr(2) : text;
  if (digits.empty() || digits.size() > 10) return false;
  if (digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos) return false;
  const unsigned long long number = std::stoull(digits, nullptr, hex ? 16 : 10);
  if (number > 0xFFFFFFFFull) return false;
  value = static_cast<std::uint32_t>(number);
  return true;
}

bool isName(const std::string& word) {
  return !word.empty() && word.size() <= 64 &&
         word.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_") == std::string::npos;
}

}  // namespace

DeviceDescription parseDeviceText(const std::string& text, const std::string& name) {
  DeviceDescription device;
  bool haveId = false;
  std::size_t number = 0;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    const std::string raw = text.substr(start, end - start);
    start = end + 1;
    ++number;
    const auto fault = [&](const std::string& why) {
      return std::invalid_argument(name + ":" + std::to_string(number) + ": " + why);
    };
    if (number > kMaxDeviceFileLines) {
      throw fault("more than " + std::to_string(kMaxDeviceFileLines) + " lines; a device file is a few");
    }
    if (raw.size() > kMaxDeviceLineBytes) {
      throw fault("a line of " + std::to_string(raw.size()) + " bytes; at most " + std::to_string(kMaxDeviceLineBytes));
    }
    const std::string line = trim(raw);
    if (line.empty() || line[0] == '#') continue;
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) throw fault("'" + printable_text::printable(line) + "' has no '='");
    std::istringstream words(trim(line.substr(0, equals)));
    const std::string valueText = trim(line.substr(equals + 1));
    std::string key, module, registerName, extra;
    words >> key >> module >> registerName >> extra;
    std::uint32_t value = 0;
    if (key == "device_id" && module.empty()) {
      if (!parseNumber(valueText, value)) {
        throw fault("device_id " + printable_text::printable(valueText) +
                    " is not a 32-bit number (decimal or 0x hex)");
      }
      if (haveId) throw fault("a second device_id");
      device.deviceId = value;
      haveId = true;
    } else if (key == "register" && isName(module) && isName(registerName) && extra.empty()) {
      if (!parseNumber(valueText, value)) {
        throw fault("the address of " + module + " " + registerName + ", " + printable_text::printable(valueText) +
                    ", is not a 32-bit number (decimal or 0x hex)");
      }
      device.registers.push_back({module, registerName, value});
    } else {
      throw fault("'" + printable_text::printable(line) +
                  "' is neither 'device_id = NUMBER' nor 'register MODULE NAME = ADDRESS'");
    }
  }
  if (!haveId) throw std::invalid_argument(name + ": no device_id line");
  return device;
}

DeviceDescription readDeviceFile(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (error) throw std::invalid_argument(path + ": " + error.message());
  if (!std::filesystem::is_regular_file(status)) {
    throw std::invalid_argument(path + ": not a regular file (a device file is read whole, so not a FIFO or device)");
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::invalid_argument(path + ": cannot be read");
  std::string text(kMaxDeviceFileBytes + 1, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (file.bad()) throw std::invalid_argument(path + ": reading failed");
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (text.size() > kMaxDeviceFileBytes) {
    throw std::invalid_argument(path + ": larger than " + std::to_string(kMaxDeviceFileBytes / 1024) +
                                " KiB; a device file is a few lines");
  }
  return parseDeviceText(text, path);
}

std::string scenarioLines(const DeviceDescription& device) {
  std::string lines = "device_id = " + printable_text::hexWord(device.deviceId) + "\n";
  for (const DeviceRegister& r : device.registers) {
    lines += "register " + r.module + " " + r.name + " = " + printable_text::hexWord(r.address) + "\n";
  }
  return lines;
}

}  // namespace vestrel::device_file
