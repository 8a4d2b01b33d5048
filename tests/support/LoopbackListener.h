// A TCP listener on 127.0.0.1 that counts the connections made to it, each
// closed at once: tells a test whether the code under test tried to connect.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

namespace vestrel_test {

class LoopbackListener {
 public:
  LoopbackListener();
  ~LoopbackListener();
  LoopbackListener(const LoopbackListener&) = delete;
  LoopbackListener& operator=(const LoopbackListener&) = delete;

  std::uint16_t port() const { return port_; }
  int connections() const { return connections_.load(); }

 private:
  void acceptLoop();

  std::intptr_t socket_ = -1;
  std::uint16_t port_ = 0;
  std::atomic<int> connections_{0};
  std::atomic<bool> stopping_{false};
  std::thread acceptor_;
};

}  // namespace vestrel_test
