#include "../LoopbackListener.h"

#include <winsock2.h>

#include <stdexcept>

namespace vestrel_test {

LoopbackListener::LoopbackListener() {
  WSADATA data;
  if (WSAStartup(MAKEWORD(2, 2), &data) != 0) throw std::runtime_error("test listener: no Winsock");
  const SOCKET listener = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (listener == INVALID_SOCKET) throw std::runtime_error("test listener: no socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  int length = sizeof address;
  if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(listener, 8) != 0 ||
      ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    ::closesocket(listener);
    throw std::runtime_error("test listener: cannot listen on the loopback");
  }
  socket_ = static_cast<std::intptr_t>(listener);
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { acceptLoop(); });
}

LoopbackListener::~LoopbackListener() {
  stopping_ = true;
  ::closesocket(static_cast<SOCKET>(socket_));  // ends the blocked accept
  acceptor_.join();
  WSACleanup();
}

void LoopbackListener::acceptLoop() {
  for (;;) {
    const SOCKET client = ::accept(static_cast<SOCKET>(socket_), nullptr, nullptr);
    if (stopping_) {
      if (client != INVALID_SOCKET) ::closesocket(client);
      return;
    }
    if (client == INVALID_SOCKET) continue;
    ++connections_;
    ::closesocket(client);
  }
}

}  // namespace vestrel_test
