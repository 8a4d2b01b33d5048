#include "PortFeeder.h"

#include <chrono>
#include <thread>

namespace vestrel_test {

bool PortFeeder::write(const void* data, std::size_t size, const std::atomic<bool>* keepGoing) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  while (size > 0) {
    const std::size_t chunk = size > 65536 ? 65536 : size;
    const std::size_t put = line_.write(bytes, chunk);
    bytes += put;
    size -= put;
    if (put == 0) {
      if (keepGoing != nullptr && !keepGoing->load()) return false;
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  }
  return true;
}

}  // namespace vestrel_test
