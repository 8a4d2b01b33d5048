// attributes: what the driver tells a decoder, for an options file.
#include <cstdio>
#include <string>
#include <vector>

#include "Commands.h"
#include "HostCore.h"

namespace vestrel::host {

using Kv::Orv::Hexkit::cHexkitError;

int attributes(const std::string& optionsFile, const std::string& profile) {
  // The session (and with it the receiver library) outlives the handler:
  // an error thrown inside the library lives in the library.
  ProbeSession session;
  try {
    if (!session.open(profile, kDemoCpu)) return 1;  // the library would not load: said why
    session.driver->SetConfiguration(fs::absolute(optionsFile).string().c_str());
    std::vector<std::string> names = {"Trace Data Frequency",
                                      "Timing Clock Frequency",
                                      "ITM Timestamp Prescale",
                                      "Buffer Wrapped",
                                      "TWP Source",
                                      "WP0 Comp",
                                      "WP1 Comp",
                                      "WP2 Comp",
                                      "WP3 Comp",
                                      "ITM Exception Map Name"};
    for (int port = 0; port < 32; ++port) names.push_back("ITMChannelType_" + std::to_string(port));
    for (const std::string& name : names) {
      Kv::Orv::Trace::TraceAttribute attribute;
      session.driver->GetAttribute(name.c_str(), attribute);
      std::printf("  %-24s %s (type %u)\n", name.c_str(), attribute.value, attribute.type);
    }
  } catch (const cHexkitError& e) {
    reportHexkitError("receiver", e);
    return 1;
  }
  return 0;
}

}  // namespace vestrel::host
