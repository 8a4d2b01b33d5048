#include "../PortFeeder.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "TestSupport.h"

namespace vestrel_test {

struct PortFeeder::State {
  ScratchDirectory links;
  ScopedEnv comDir{"VESTREL_COM_DIR", links.path()};
  int master = -1;
  std::string why;
};

PortFeeder::PortFeeder(int comNumber) : state_(std::make_unique<State>()) {
  state_->master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  if (state_->master < 0 || grantpt(state_->master) != 0 || unlockpt(state_->master) != 0) {
    state_->why = "no pseudo-terminal";
    return;
  }
  const char* slave = ptsname(state_->master);
  std::filesystem::create_symlink(slave, state_->links.file("COM" + std::to_string(comNumber)));
}

PortFeeder::~PortFeeder() {
  if (state_->master >= 0) close(state_->master);
}

bool PortFeeder::ready() const { return state_->master >= 0 && state_->why.empty(); }
const std::string& PortFeeder::why() const { return state_->why; }

bool PortFeeder::write(const void* data, std::size_t size, const std::atomic<bool>* keepGoing) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  while (size > 0) {
    const ssize_t put = ::write(state_->master, bytes, size);
    if (put < 0) {
      if (errno == EINTR) continue;
      if (errno != EAGAIN) return false;
      if (keepGoing != nullptr && !keepGoing->load()) return false;
      pollfd writable{state_->master, POLLOUT, 0};
      poll(&writable, 1, 10);
      continue;
    }
    bytes += put;
    size -= static_cast<std::size_t>(put);
  }
  return true;
}

}  // namespace vestrel_test
