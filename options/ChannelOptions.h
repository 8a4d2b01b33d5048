// The receiver's options: the fixed descriptor table and the record that
// carries one option with its current value.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Kv::Orv::Trace::Vestrel {

enum OptionId : std::uint32_t {
  kOptionFirmwareVersion = 0,     // RCVRFWVER
  kOptionEncoding = 1,            // ENCTYPE
  kOptionPrescalerMode = 2,       // PRESCALAR
  kOptionPrescalerValue = 3,      // PRESCALARVAL
  kOptionClockMode = 4,           // CLKFREQ
  kOptionClockValue = 5,          // CLKFREQVAL
  kOptionComPort = 6,             // COMPORT
  kOptionTimestampPrescaler = 7,  // TSPRESCALAR
  kOptionUnknown = 8,             // end of the table, and any key not in it
};

// One row of the option table. flagA, flagB, flagC, parentId and kind are
// kept for whoever presents the options; nothing here branches on them.
struct OptionDescriptor {
  std::uint32_t id;
  std::uint32_t flagA;
  std::uint32_t parentId;
  const char* key;
  const char* displayName;
  const char* group;
  const char* choices;  // comma-separated, or the prompt of a free entry
  std::uint32_t flagB;
  std::uint32_t kind;  // 1 pick one, 5 free entry, 6 no user entry
  std::uint32_t flagC;
  std::uint32_t probeKind;  // whose COM ports the port list shows
};

constexpr int kOptionTableRows = 9;

// The process-wide table; only probeKind is ever written.
OptionDescriptor* OptionTable();

class ChannelOptions {
 public:
  ChannelOptions() = default;
  // The option of a table row with its default value. For COMPORT this
  // discovers the probe's auxiliary ports.
  explicit ChannelOptions(const OptionDescriptor& row);
  virtual ~ChannelOptions() = default;
  ChannelOptions(const ChannelOptions&) = default;
  ChannelOptions& operator=(const ChannelOptions&) = default;

  std::uint32_t id = kOptionUnknown;
  std::uint32_t parentId = 0;
  std::string key;
  std::string displayName;
  std::vector<std::string> choices;
  std::uint32_t kind = 0;
  bool flagB = false;
  bool flagC = false;
  bool flagA = false;
  std::string value;
  std::string group;
  std::uint32_t probeKind = 0;
};

using OptionSet = std::vector<ChannelOptions>;

// 0 to 7 for the eight keys (exact, case-sensitive), 8 for anything else.
std::uint32_t keyToId(const std::string& key);
// Index of the first table row with that id, or -1.
int rowIndexOf(std::uint32_t id);
// Writes probeKind into every row of the table.
void setProbeFamily(std::uint32_t probeKind);
// Fills an empty set with the eight options and their defaults, in ID order;
// a set that holds anything stays as it is.
void buildDefaultSet(OptionSet& set, std::uint32_t probeKind);

}  // namespace Kv::Orv::Trace::Vestrel
