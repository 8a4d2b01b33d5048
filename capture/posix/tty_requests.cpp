#include "tty_requests.h"

#include <atomic>

// <sys/ioctl.h> would pull in the C library's termios, which clashes with
// the kernel's termios2 definitions the serial port uses.
extern "C" int ioctl(int fd, unsigned long request, ...);

namespace Kv::Orv::Trace::Vestrel::tty {

namespace {

class KernelTtyRequests final : public TtyRequests {
 public:
  int request(int fd, unsigned long code, void* argument) override { return ioctl(fd, code, argument); }
};

std::atomic<TtyRequests*> activeOverride{nullptr};

}  // namespace

TtyRequests& kernelTtyRequests() {
  static KernelTtyRequests kernel;
  return kernel;
}

TtyRequests& ttyRequests() {
  TtyRequests* replacement = activeOverride.load(std::memory_order_acquire);
  return replacement != nullptr ? *replacement : kernelTtyRequests();
}

ScopedTtyRequests::ScopedTtyRequests(TtyRequests& replacement)
    : previous_(activeOverride.exchange(&replacement, std::memory_order_acq_rel)) {}

ScopedTtyRequests::~ScopedTtyRequests() { activeOverride.store(previous_, std::memory_order_release); }

}  // namespace Kv::Orv::Trace::Vestrel::tty
