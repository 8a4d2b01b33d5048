#include "../SerialLine.h"

#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

extern "C" int ioctl(int fd, unsigned long request, ...);

namespace vestrel::target_simulator {

struct SerialLine::State {
  int master = -1;
  std::string slave;
  std::string linkDirectory;
  std::string why;
};

SerialLine::SerialLine(int comNumber) : state_(std::make_unique<State>()) {
  state_->master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  if (state_->master < 0 || grantpt(state_->master) != 0 || unlockpt(state_->master) != 0) {
    state_->why = "no pseudo-terminal available";
    return;
  }
  state_->slave = ptsname(state_->master);
  state_->linkDirectory =
      (std::filesystem::temp_directory_path() / ("vestrel-line-" + std::to_string(getpid()))).string();
  std::filesystem::create_directories(state_->linkDirectory);
  const std::string link = state_->linkDirectory + "/COM" + std::to_string(comNumber);
  std::filesystem::remove(link);
  std::filesystem::create_symlink(state_->slave, link);
  setenv("VESTREL_COM_DIR", state_->linkDirectory.c_str(), 1);
}

SerialLine::~SerialLine() {
  if (state_->master >= 0) close(state_->master);
  std::error_code ignored;
  if (!state_->linkDirectory.empty()) std::filesystem::remove_all(state_->linkDirectory, ignored);
}

bool SerialLine::ready() const { return state_->master >= 0 && state_->why.empty(); }
const std::string& SerialLine::why() const { return state_->why; }

std::size_t SerialLine::write(const void* data, std::size_t size) {
  const ssize_t put = ::write(state_->master, data, size);
  return put > 0 ? static_cast<std::size_t>(put) : 0;
}

// The slave's settings are the receiver's; reading them opens the slave
// without reading from it.
std::uint32_t SerialLine::receiverBaudRate() const {
  const int fd = ::open(state_->slave.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return 0;
  struct termios2 settings {};
  const int result = ioctl(fd, TCGETS2, &settings);
  ::close(fd);
  return result == 0 ? static_cast<std::uint32_t>(settings.c_ispeed) : 0;
}

void SerialLine::drainReceiverSide(int) {}

}  // namespace vestrel::target_simulator
