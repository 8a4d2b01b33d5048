// ports: the probes' auxiliary serial ports found on this machine.
#include <iostream>

#include "AuxPortDiscovery.h"
#include "Commands.h"

namespace vestrel::host {

int ports() {
  for (std::uint32_t selector : {0u, 1u}) {
    const auto found = Kv::Orv::Trace::Vestrel::enumerateAuxPorts(selector);
    std::cout << (selector == 0 ? "Calder" : "Harrow") << " probe ports:";
    if (found.empty()) std::cout << " none";
    for (const auto& port : found) std::cout << " COM" << port;
    std::cout << "\n";
  }
  return 0;
}

}  // namespace vestrel::host
