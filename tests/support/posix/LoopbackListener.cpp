#include "../LoopbackListener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace vestrel_test {

LoopbackListener::LoopbackListener() {
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  if (listener < 0) throw std::runtime_error("test listener: no socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  socklen_t length = sizeof address;
  if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(listener, 8) != 0 ||
      ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    ::close(listener);
    throw std::runtime_error("test listener: cannot listen on the loopback");
  }
  socket_ = listener;
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { acceptLoop(); });
}

LoopbackListener::~LoopbackListener() {
  stopping_ = true;
  ::shutdown(static_cast<int>(socket_), SHUT_RDWR);  // wakes the blocked accept
  acceptor_.join();
  ::close(static_cast<int>(socket_));
}

void LoopbackListener::acceptLoop() {
  for (;;) {
    const int client = ::accept(static_cast<int>(socket_), nullptr, nullptr);
    if (stopping_) {
      if (client >= 0) ::close(client);
      return;
    }
    if (client < 0) continue;
    ++connections_;
    ::close(client);
  }
}

}  // namespace vestrel_test
