// options: writes a default options file, or shows one.
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "Commands.h"
#include "HostCore.h"
#include "XmlOptions.h"

namespace vestrel::host {

using Kv::Orv::Hexkit::cHexkitError;

int options(const std::string& writePath, const std::string& showPath, bool force) {
  using Kv::Orv::Trace::Vestrel::ChannelOptionsHandler;
  using Kv::Orv::Trace::Vestrel::OptionSet;
  if (writePath.empty() && showPath.empty()) {
    std::cerr << "vestrel-host options: nothing to do: give --write <file> or --show <file>\n";
    return 2;
  }
  try {
    ChannelOptionsHandler handler;
    if (!writePath.empty()) {
      requireWritableOutput(writePath, force, "--write");
      OptionSet defaults;
      handler.load(defaults, "", 2);
      handler.save(defaults, writePath);
      // The receiver's save does not say whether its write reached the file:
      // what is there must read back as what was written.
      OptionSet written;
      ChannelOptionsHandler reader;
      try {
        reader.load(written, writePath, 2);
      } catch (const cHexkitError&) {
        written.clear();
      }
      // (An option with an empty value reads back as no option at all.)
      bool same = !written.empty();
      for (const auto& option : defaults) {
        if (option.value.empty()) continue;
        bool found = false;
        for (const auto& back : written) found = found || (back.key == option.key && back.value == option.value);
        same = same && found;
      }
      if (!same) throw std::runtime_error("cannot write " + writePath + ": the file does not read back as written");
      std::cout << "wrote the default options to " << writePath << "\n";
    }
    if (!showPath.empty()) {
      std::error_code missing;
      if (!fs::exists(showPath, missing)) std::cerr << "vestrel-host options: " << showPath << ": no such file\n";
      OptionSet set;
      handler.load(set, showPath, 2);
      for (const auto& option : set) std::printf("  %-13s %s\n", option.key.c_str(), option.value.c_str());
    }
  } catch (const cHexkitError& e) {
    reportHexkitError("options", e);
    return 1;
  }
  return 0;
}

}  // namespace vestrel::host
