#include "../PseudoTerminal.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

namespace vestrel_bench {

PseudoTerminal::PseudoTerminal(int comNumber, const std::string& linkDirectory) {
  master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) throw std::runtime_error("no pseudo-terminal");
  const std::string link = linkDirectory + "/COM" + std::to_string(comNumber);
  std::filesystem::remove(link);
  std::filesystem::create_symlink(ptsname(master_), link);
  setenv("VESTREL_COM_DIR", linkDirectory.c_str(), 1);
}

PseudoTerminal::~PseudoTerminal() {
  if (master_ >= 0) close(master_);
}

std::size_t PseudoTerminal::writeSome(const void* data, std::size_t size) {
  const ssize_t put = ::write(master_, data, size);
  return put > 0 ? static_cast<std::size_t>(put) : 0;
}

void PseudoTerminal::writeAll(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  while (size > 0) {
    const ssize_t put = ::write(master_, bytes, size);
    if (put < 0) {
      if (errno != EAGAIN && errno != EINTR) throw std::runtime_error("pseudo-terminal write failed");
      pollfd writable{master_, POLLOUT, 0};
      poll(&writable, 1, 10);
      continue;
    }
    bytes += put;
    size -= static_cast<std::size_t>(put);
  }
}

}  // namespace vestrel_bench

#include <pthread.h>
#include <sched.h>

namespace vestrel_bench {

bool raiseToRealTimePriority() {
  sched_param parameter{};
  parameter.sched_priority = 10;
  return pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameter) == 0;
}

}  // namespace vestrel_bench
