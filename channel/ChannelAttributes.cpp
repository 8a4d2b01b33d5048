// Facts the host's decoder asks for by name: data and timestamp rates, DWT
// comparator values, the exception map, and per stimulus port whether it
// carries a channel of the special type.
#include <cstdlib>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

#include "CNumberText.h"
#include "ChannelDriver.h"
#include "LogControl.h"
#include "NativePlatform.h"
#include "TraceEnvironment.h"
#include "TraceStartup.h"
#include "cHexkitError.h"

namespace Kv::Orv::Trace::Vestrel {

using Hexkit::cHexkitError;
using KV_ORV::kLogError;
using KV_ORV::kLogMessage;

namespace {

// Attribute type codes.
constexpr std::uint32_t kText = 0;
constexpr std::uint32_t kFlag = 1;
constexpr std::uint32_t kNumber = 2;
constexpr std::uint32_t kName = 5;
constexpr std::uint32_t kFrequency = 6;

constexpr std::uint32_t kDwtComparator0 = 0xE0001020;  // COMP0; COMPn every 16 bytes

// Numbers read the way a default output stream writes them (doubles with
// six significant digits in general notation: 8 MHz is "8e+06").
template <typename T>
std::string streamed(T value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

// Reads one line of at most kSetupLineLimit characters; the rest of a longer
// line is skipped unread into memory, so a huge file costs no more than this.
constexpr std::streamsize kSetupLineLimit = 4096;

bool readSetupLine(std::istream& in, std::string& line) {
  char buffer[kSetupLineLimit + 1];
  in.getline(buffer, sizeof buffer);
  if (in.bad() || (in.fail() && in.gcount() == 0)) return false;
  // The whole line, NUL bytes included; the newline, when one was taken,
  // is counted by gcount but not stored.
  auto length = static_cast<std::size_t>(in.gcount());
  if (!in.fail() && !in.eof() && length > 0) --length;
  line.assign(buffer, length);
  if (in.fail()) {  // the line went on past the limit
    in.clear();
    in.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  return true;
}

// The integer at the start of text, as the C library reads it.
int leadingInteger(const std::string& text) { return KV_ORV::atoi32(text.c_str()); }

}  // namespace

TraceAttribute& ChannelDriver::GetAttribute(const char* name, TraceAttribute& record) {
  if (name == nullptr) Hexkit::throwHexkitError("Null attribute name");
  KV_LOG(2, kLogMessage, "%s: Get the attribute %s.", kTag, name);
  record.name = name;
  const std::string attribute = name;

  auto answer = [&](std::uint32_t type, std::string text) -> TraceAttribute& {
    attributeText_ = std::move(text);
    record.type = type;
    record.value = attributeText_.c_str();
    return record;
  };
  auto constant = [&](std::uint32_t type, const char* text) -> TraceAttribute& {
    record.type = type;
    record.value = text;
    return record;
  };

  if (attribute == "Trace Data Frequency") {
    return answer(kFrequency, streamed(traceClockHz_ / static_cast<double>(prescaler_ + 1)));
  }
  if (attribute == "Timing Clock Frequency") return answer(kFrequency, streamed(traceClockHz_));
  if (attribute == "Buffer Wrapped" || attribute == "TWP Source") return constant(kText, "0");
  if (attribute == "ITM Timestamp Prescale") return answer(kNumber, streamed(tsPrescaler_));
  for (std::uint32_t n = 0; n < 4; ++n) {
    if (attribute == "WP" + std::to_string(n) + " Comp") {
      // One 4-byte read; without an adapter, or when the read fails, 0.
      std::uint32_t value = 0;
      if (targetAdapter_ != nullptr) targetAdapter_->readMemory(&value, kDwtComparator0 + 16 * n, 4, 0);
      return answer(kNumber, streamed(value));
    }
  }
  if (attribute == "ITM Exception Map Name") return answer(kName, exceptionMapName_);
  if (attribute.find("ITMChannelType_") != std::string::npos) {
    if (!itmSetupLoaded_) loadItmChannelSetup();
    const int port = leadingInteger(attribute.substr(attribute.find('_') + 1));
    if (port < 0 || port > 31) {
      KV_LOG(1, kLogMessage, "%s: Unhandled Attribute = %s", kTag, name);
      return constant(kFlag, "0");
    }
    return constant(kFlag, itmChannelTypes_[static_cast<std::size_t>(port)] == 1 ? "1" : "0");
  }
  KV_LOG(1, kLogMessage, "%s: Unhandled Attribute = %s", kTag, name);
  return constant(kFlag, "0");
}

// Reads "TraceCntrl-itm.ini" from the settings directory: one line per
// stimulus port in port order, "<word>_<port>=<type>". A line out of order
// is skipped (and so, since the count goes on, is every line after a gap).
// Without the file, port 0 is the special channel, as in older set-ups.
void ChannelDriver::loadItmChannelSetup() {
  const std::string path = std::string(KV_ORV::GetEnv(KV_ORV::TraceStartup::kSettingsDirVariable)) +
                           KV_ORV::native::pathSeparator() + "TraceCntrl-itm.ini";
  std::ifstream file(path);
  if (file) {
    KV_LOG(1, kLogMessage, "%s: Opened file (%s) to get ITM channel setup.", kTag, path.c_str());
    int expected = 0;
    for (std::string line; readSetupLine(file, line); ++expected) {
      const std::size_t equals = line.find('=');
      const std::string key = line.substr(0, equals);
      const std::string value = equals == std::string::npos ? std::string() : line.substr(equals + 1);
      const std::size_t underscore = key.find('_');
      const int port = leadingInteger(underscore == std::string::npos ? std::string() : key.substr(underscore + 1));
      if (port != expected) {
        KV_LOG(1, kLogError, "%s: Read channel number %d instead of expected channel number %d", kTag, port, expected);
        continue;
      }
      // The table has 32 ports; lines beyond them are ignored.
      if (port >= 0 && port < 32) itmChannelTypes_[static_cast<std::size_t>(port)] = leadingInteger(value);
    }
  } else {
    KV_LOG(1, kLogMessage, "%s: Could not find/open file (%s) to get ITM channel setup. Setting up legacy mapping.",
           kTag, path.c_str());
    itmChannelTypes_.fill(0);
    itmChannelTypes_[0] = 1;
  }
  itmSetupLoaded_ = true;
}

}  // namespace Kv::Orv::Trace::Vestrel
