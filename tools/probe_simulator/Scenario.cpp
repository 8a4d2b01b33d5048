#include "Scenario.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "TraceEnvironment.h"

namespace vestrel::probe_simulator {

namespace {

std::string trim(const std::string& text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return {};
  const auto last = text.find_last_not_of(" \t\r\n");
  return text.substr(first, last - first + 1);
}

// A 32-bit number as C reads one (decimal, 0x hex, 0 octal), and nothing
// after it; anything else is a fault of the scenario's line.
std::uint32_t number(const std::string& text, std::size_t line) {
  std::size_t used = 0;
  unsigned long long value = 0;
  try {
    if (!text.empty() && text[0] != '-' && text[0] != '+') value = std::stoull(text, &used, 0);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used == 0 || used != text.size() || value > 0xFFFFFFFFull) {
    throw std::invalid_argument("scenario line " + std::to_string(line) + ": " + text + " is not a 32-bit number");
  }
  return static_cast<std::uint32_t>(value);
}

}  // namespace

std::string Scenario::boardFor(const std::string& cpuName) const {
  auto found = boards.find(cpuName);
  if (found == boards.end()) found = boards.find("*");
  return found != boards.end() ? found->second : std::string();
}

Scenario ParseScenario(const std::string& text) {
  Scenario scenario;
  std::istringstream lines(text);
  std::string line;
  std::size_t lineNumber = 0;
  while (std::getline(lines, line)) {
    ++lineNumber;
    line = trim(line);
    if (line.empty() || line[0] == '#') continue;
    const auto equals = line.find('=');
    if (equals == std::string::npos) continue;
    std::istringstream keyWords(trim(line.substr(0, equals)));
    const std::string value = trim(line.substr(equals + 1));
    std::string key, first, second;
    keyWords >> key >> first >> second;

    if (key == "setup_adapter") {
      scenario.setupAdapterNull = value == "null";
      scenario.setupAdapterThrows = value == "throw";
    } else if (key == "destroy_setup_adapter") {
      scenario.destroySetupAdapterThrows = value == "throw";
    } else if (key == "initialize") {
      if (value == "ok") {
        scenario.initialize = Scenario::Initialize::Ok;
      } else if (value == "throw") {
        scenario.initialize = Scenario::Initialize::Throw;
      } else {
        scenario.initialize = Scenario::Initialize::Fail;
        scenario.initializeError = value.rfind("fail", 0) == 0 ? trim(value.substr(4)) : value;
      }
    } else if (key == "board") {
      scenario.boards[first] = value;
    } else if (key == "identifier") {
      scenario.identifierNull = value == "null";
      scenario.identifierOutOfMemory = value == "out_of_memory";
      scenario.identifierThrows = value == "throw";
      scenario.identifierThrowsHexkitError = value == "hexkit_error";
    } else if (key == "destroy_identifier") {
      scenario.destroyIdentifierThrows = value == "throw";
    } else if (key == "device_id") {
      scenario.deviceId = number(value, lineNumber);
    } else if (key == "device_info") {
      scenario.deviceInfoNull = value == "null";
    } else if (key == "register") {
      scenario.modules[first][second] = value;
    } else if (key == "memory") {
      scenario.memory[number(first, lineNumber)] = number(value, lineNumber);
    } else if (key == "target_adapter") {
      scenario.targetAdapterNull = value == "null";
    }
  }
  return scenario;
}

Scenario LoadScenario() {
  const std::string path = KV_ORV::GetEnv("VESTREL_PROBE_SCENARIO");
  if (path.empty()) return Scenario{};
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return ParseScenario(text.str());
}

}  // namespace vestrel::probe_simulator
