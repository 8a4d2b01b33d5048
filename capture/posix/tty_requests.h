// The terminal requests (ioctl) of the Linux serial port, in one place so
// that tests can watch and answer them. The only serial devices a test
// machine has are pseudo-terminals, which refuse the modem-line requests
// (DTR, RTS) that a probe's USB serial port obeys.
#pragma once

namespace Kv::Orv::Trace::Vestrel::tty {

class TtyRequests {
 public:
  virtual ~TtyRequests() = default;
  // As ioctl(2): -1 with errno set on failure. The argument is the request's
  // pointer, or for requests that take a number, that number cast to one.
  virtual int request(int fd, unsigned long code, void* argument) = 0;
};

// The requests in force: the kernel's unless a test installed others.
TtyRequests& ttyRequests();
TtyRequests& kernelTtyRequests();

class ScopedTtyRequests {
 public:
  explicit ScopedTtyRequests(TtyRequests& replacement);
  ~ScopedTtyRequests();
  ScopedTtyRequests(const ScopedTtyRequests&) = delete;
  ScopedTtyRequests& operator=(const ScopedTtyRequests&) = delete;

 private:
  TtyRequests* previous_;
};

}  // namespace Kv::Orv::Trace::Vestrel::tty
