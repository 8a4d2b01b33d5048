#include "ChannelOptions.h"

#include "AuxPortDiscovery.h"

namespace Kv::Orv::Trace::Vestrel {

namespace {

OptionDescriptor table[kOptionTableRows] = {
    {0, 0, 8, "RCVRFWVER", "", "SWO Selection", "", 0, 6, 0, 2},
    {1, 1, 8, "ENCTYPE", "Encoding Type", "SWO Selection", "UART", 0, 1, 0, 2},
    {2, 0, 8, "PRESCALAR", "Prescalar", "SWO Selection", "Auto,Manual", 0, 1, 0, 2},
    {3, 1, 2, "PRESCALARVAL", "", "SWO Selection", "Prescalar value", 0, 5, 0, 2},
    {4, 1, 1, "CLKFREQ", "Target Clk Frequency", "UART Options", "Auto,Manual", 0, 1, 0, 2},
    {5, 1, 4, "CLKFREQVAL", "", "UART Options", "Frequency in Hz", 0, 5, 0, 2},
    {6, 1, 1, "COMPORT", "COM Port Number", "UART Options", "", 0, 1, 0, 2},
    {7, 0, 8, "TSPRESCALAR", "Resolution", "Timestamping", "1,4,16,64", 0, 1, 0, 2},
    {8, 0, 8, "", "", "", "", 0, 6, 0, 2},
};

// Every comma separates, nothing is trimmed, and an empty text is one empty
// choice.
std::vector<std::string> splitChoices(const std::string& text) {
  std::vector<std::string> choices;
  std::size_t start = 0;
  for (std::size_t comma; (comma = text.find(',', start)) != std::string::npos; start = comma + 1) {
    choices.push_back(text.substr(start, comma - start));
  }
  choices.push_back(text.substr(start));
  return choices;
}

}  // namespace

OptionDescriptor* OptionTable() { return table; }

ChannelOptions::ChannelOptions(const OptionDescriptor& row)
    : id(row.id),
      parentId(row.parentId),
      key(row.key),
      displayName(row.displayName),
      choices(splitChoices(row.choices)),
      kind(row.kind),
      flagB(row.flagB != 0),
      flagC(row.flagC != 0),
      flagA(row.flagA != 0),
      group(row.group),
      probeKind(row.probeKind) {
  if (id == kOptionTimestampPrescaler) {
    // The timestamp prescale defaults to 4, the second choice.
    value = choices.size() > 1 ? choices[1] : choices[0];
    return;
  }
  if (id == kOptionComPort && choices[0].empty()) {
    choices = enumerateAuxPorts(probeKind);
    if (choices.empty()) choices.emplace_back();
  }
  // Free-entry options take their prompt as the default value on purpose:
  // the driver refuses it when the option is set to Manual.
  value = choices[0];
}

std::uint32_t keyToId(const std::string& key) {
  static const char* const kKeys[] = {"RCVRFWVER", "ENCTYPE",    "PRESCALAR", "PRESCALARVAL",
                                      "CLKFREQ",   "CLKFREQVAL", "COMPORT",   "TSPRESCALAR"};
  for (std::uint32_t id = 0; id < 8; ++id) {
    if (key == kKeys[id]) return id;
  }
  return kOptionUnknown;
}

int rowIndexOf(std::uint32_t id) {
  for (int row = 0; row < kOptionTableRows; ++row) {
    if (table[row].id == id) return row;
  }
  return -1;
}

void setProbeFamily(std::uint32_t probeKind) {
  for (OptionDescriptor& row : table) row.probeKind = probeKind;
}

void buildDefaultSet(OptionSet& set, std::uint32_t probeKind) {
  if (!set.empty()) return;
  for (OptionDescriptor& row : table) {
    if (row.id == kOptionUnknown) break;
    row.probeKind = probeKind;
    set.emplace_back(row);
  }
}

}  // namespace Kv::Orv::Trace::Vestrel
