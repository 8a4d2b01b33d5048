// The serial port on Linux: "\\.\COM<n>" is the tty that the environment
// names (VESTREL_COM_DIR/COM<n>, a link tests and simulators point at a
// pseudo-terminal), else the USB serial tty with that number
// (LinuxTtyNumbers.h: /dev/ttyACM<n>, or /dev/ttyUSB<n - 100> from COM100
// on). Any baud rate
// is requested through termios2 with BOTHER. Members of the Windows state
// record that termios cannot express are kept in a shadow record, so a
// state read back is the state last set.
#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <asm/termios.h>  // TIOCM_DTR, TIOCM_RTS
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "../LinuxTtyNumbers.h"
#include "../SerialPort.h"
#include "tty_requests.h"

namespace Kv::Orv::Trace::Vestrel {

namespace {

thread_local std::uint32_t lastErrorCode = 0;

bool failed() {
  lastErrorCode = static_cast<std::uint32_t>(errno);
  return false;
}

struct Port {
  int fd = -1;
  struct termios2 original {};
  PortState shadow;
  PortTimeouts timeouts;
};

struct File {
  int fd = -1;
};

Port* asPort(PortHandle handle) { return static_cast<Port*>(handle); }

// Every terminal request goes through the replaceable tty::ttyRequests().
int request(int fd, unsigned long code, void* argument = nullptr) {
  return tty::ttyRequests().request(fd, code, argument);
}

std::string narrow(const std::wstring& text) {
  std::string out;
  for (wchar_t c : text) out += static_cast<char>(c);
  return out;
}

std::string devicePathFor(const std::wstring& devicePath) {
  const std::string path = narrow(devicePath);
  const std::size_t com = path.rfind("COM");
  if (com == std::string::npos) return path;
  const std::string number = path.substr(com + 3);
  if (const char* dir = std::getenv("VESTREL_COM_DIR")) return std::string(dir) + "/COM" + number;
  const std::string device = tty::devicePathOf(number);
  return device.empty() ? "/dev/COM" + number : device;  // no such port: the open fails
}

// What a freshly opened Windows port reports for the members termios has no
// place for (the values Windows and Wine use).
PortState defaultShadow() {
  PortState state;
  state.DCBlength = 28;
  state.fBinary = 1;
  state.fTXContinueOnXoff = 0;
  state.XonLim = 2048;
  state.XoffLim = 512;
  state.XonChar = 0x11;
  state.XoffChar = 0x13;
  return state;
}

speed_t nominal(std::uint32_t rate) { return rate; }

// DTR and RTS as the Windows state asks: disabled lines are dropped, any
// other control raises them. A pseudo-terminal has no modem lines and
// refuses the request; that is not an error of the port.
void applyModemLines(int fd, const PortState& state) {
  int dtr = TIOCM_DTR;
  int rts = TIOCM_RTS;
  request(fd, state.fDtrControl == 0 ? TIOCMBIC : TIOCMBIS, &dtr);
  request(fd, state.fRtsControl == 0 ? TIOCMBIC : TIOCMBIS, &rts);
}

}  // namespace

class PosixSerialApi final : public SerialApi {
 public:
  PortHandle openPort(const std::wstring& devicePath) override {
    const std::string path = devicePathFor(devicePath);
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
      failed();
      return nullptr;
    }
    auto* port = new Port;
    port->fd = fd;
    if (request(fd, TCGETS2, &port->original) != 0) {
      failed();
      ::close(fd);
      delete port;
      return nullptr;
    }
    port->shadow = defaultShadow();
    // The driver of a USB serial port raises DTR and RTS when it opens; the
    // state reports a raised line as enabled, as Windows does, so that
    // restoring the state found raises them again. A pseudo-terminal has no
    // modem lines and refuses: both read as disabled.
    int lines = 0;
    if (request(fd, TIOCMGET, &lines) == 0) {
      port->shadow.fDtrControl = (lines & TIOCM_DTR) != 0 ? 1 : 0;
      port->shadow.fRtsControl = (lines & TIOCM_RTS) != 0 ? 1 : 0;
    }
    return port;
  }

  // Reads never block; the collector only ever asks for reads that return
  // at once with what is queued.
  bool setTimeouts(PortHandle port, const PortTimeouts& timeouts) override {
    asPort(port)->timeouts = timeouts;
    return true;
  }

  bool getState(PortHandle handle, PortState& state) override {
    Port& port = *asPort(handle);
    struct termios2 tio {};
    if (request(port.fd, TCGETS2, &tio) != 0) return failed();
    state = port.shadow;
    state.BaudRate = static_cast<std::uint32_t>(tio.c_ispeed != 0 ? tio.c_ispeed : tio.c_ospeed);
    switch (tio.c_cflag & CSIZE) {
      case CS5:
        state.ByteSize = 5;
        break;
      case CS6:
        state.ByteSize = 6;
        break;
      case CS7:
        state.ByteSize = 7;
        break;
      default:
        state.ByteSize = 8;
        break;
    }
    state.Parity = (tio.c_cflag & PARENB) == 0 ? 0 : ((tio.c_cflag & PARODD) != 0 ? 1 : 2);
    state.StopBits = (tio.c_cflag & CSTOPB) != 0 ? 2 : 0;
    state.fParity = (tio.c_iflag & INPCK) != 0 ? 1 : 0;
    state.fOutxCtsFlow = (tio.c_cflag & CRTSCTS) != 0 ? 1 : 0;
    state.fOutX = (tio.c_iflag & IXON) != 0 ? 1 : 0;
    state.fInX = (tio.c_iflag & IXOFF) != 0 ? 1 : 0;
    return true;
  }

  bool setState(PortHandle handle, const PortState& state) override {
    Port& port = *asPort(handle);
    struct termios2 tio {};
    if (request(port.fd, TCGETS2, &tio) != 0) return failed();
    // Raw bytes in, nothing interpreted.
    tio.c_iflag &= ~static_cast<tcflag_t>(IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IXON | IXOFF |
                                          IXANY | INPCK);
    tio.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    tio.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL | ICANON | ISIG | IEXTEN);
    tio.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS | CBAUD);
    tio.c_cflag |= CREAD | CLOCAL | BOTHER;
    switch (state.ByteSize) {
      case 5:
        tio.c_cflag |= CS5;
        break;
      case 6:
        tio.c_cflag |= CS6;
        break;
      case 7:
        tio.c_cflag |= CS7;
        break;
      default:
        tio.c_cflag |= CS8;
        break;
    }
    if (state.Parity == 1 || state.Parity == 2) tio.c_cflag |= PARENB | (state.Parity == 1 ? PARODD : 0);
    if (state.StopBits == 2) tio.c_cflag |= CSTOPB;
    if (state.fParity != 0) tio.c_iflag |= INPCK;
    if (state.fOutxCtsFlow != 0) tio.c_cflag |= CRTSCTS;
    if (state.fOutX != 0) tio.c_iflag |= IXON;
    if (state.fInX != 0) tio.c_iflag |= IXOFF;
    tio.c_ispeed = nominal(state.BaudRate);
    tio.c_ospeed = nominal(state.BaudRate);
    tio.c_cc[VMIN] = 0;
    tio.c_cc[VTIME] = 0;
    if (request(port.fd, TCSETS2, &tio) != 0) return failed();
    applyModemLines(port.fd, state);
    port.shadow = state;
    return true;
  }

  bool purge(PortHandle handle, std::uint32_t flags) override {
    const bool input = (flags & kPurgeRxClear) != 0;
    const bool output = (flags & kPurgeTxClear) != 0;
    if (!input && !output) return true;
    const int queue = input && output ? TCIOFLUSH : (input ? TCIFLUSH : TCOFLUSH);
    return request(asPort(handle)->fd, TCFLSH, reinterpret_cast<void*>(static_cast<std::intptr_t>(queue))) == 0 ||
           failed();
  }

  bool clearError(PortHandle handle, std::uint32_t& queuedBytes) override {
    int queued = 0;
    if (request(asPort(handle)->fd, FIONREAD, &queued) != 0) return failed();
    queuedBytes = static_cast<std::uint32_t>(queued);
    return true;
  }

  bool setBreak(PortHandle handle) override { return request(asPort(handle)->fd, TIOCSBRK) == 0 || failed(); }

  bool read(PortHandle handle, void* buffer, std::uint32_t size, std::uint32_t& bytesRead) override {
    bytesRead = 0;
    for (;;) {
      const int fd = asPort(handle)->fd;
      const ssize_t got = ::read(fd, buffer, size);
      if (got > 0) {
        bytesRead = static_cast<std::uint32_t>(got);
        return true;
      }
      if (got == 0) {
        // With VMIN and VTIME 0 an empty read means nothing is queued, or
        // that the line hung up (the USB device or the pseudo-terminal's
        // master is gone), which poll tells apart. A vanished port fails
        // the read, as ReadFile does on Windows.
        pollfd line{fd, POLLIN, 0};
        if (poll(&line, 1, 0) > 0 && (line.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) {
          errno = EIO;
          return failed();
        }
        return true;
      }
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) return true;  // nothing queued
      return failed();                                           // EIO: the device went away
    }
  }

  // The terminal settings found at opening are put back, whatever the
  // caller restored.
  bool closePort(PortHandle handle) override {
    Port* port = asPort(handle);
    if (port == nullptr) return true;
    request(port->fd, TCSETS2, &port->original);
    const int result = ::close(port->fd);
    const int error = errno;
    delete port;
    if (result != 0) {
      errno = error;
      return failed();
    }
    return true;
  }

  FileHandle createCaptureFile(const std::wstring& path) override {
    const int fd = ::open(narrow(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
      failed();
      return nullptr;
    }
    return new File{fd};
  }

  bool writeFile(FileHandle handle, const void* data, std::uint32_t size, std::uint32_t& written) override {
    written = 0;
    const auto* bytes = static_cast<const unsigned char*>(data);
    while (written < size) {
      const ssize_t put = ::write(static_cast<File*>(handle)->fd, bytes + written, size - written);
      if (put < 0) {
        if (errno == EINTR) continue;
        return failed();
      }
      written += static_cast<std::uint32_t>(put);
    }
    return true;
  }

  bool closeFile(FileHandle handle) override {
    auto* file = static_cast<File*>(handle);
    const int result = ::close(file->fd);
    delete file;
    return result == 0 || failed();
  }

  std::uint32_t lastError() override { return lastErrorCode; }
};

SerialApi& systemSerialApi() {
  static PosixSerialApi api;
  return api;
}

}  // namespace Kv::Orv::Trace::Vestrel
