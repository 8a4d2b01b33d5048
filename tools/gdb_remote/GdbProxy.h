// A debugger's GDB session passed through to a GDB server unchanged (but for
// the PacketSize the server advertises, capped at what the proxy takes),
// watched on the way: the proxy says when the debugger resumes the target
// (any continue: before it goes on, while the target is still halted; a
// step is not a run of its own) and when the server says it stopped (after
// the stop reply to a continue or a step has gone on). In those moments the
// owner may make requests of its own to the server (server()); the
// debugger's next packets wait until it is done. Acknowledgement mode
// follows the session's.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "GdbRemoteClient.h"

namespace vestrel::gdb_remote {

class GdbProxy {
 public:
  struct Events {
    std::function<void()> resuming;
    std::function<void(const StopReply&)> stopped;
  };

  // Listens on listenHost:listenPort (0: any free port); throws GdbError.
  GdbProxy(const std::string& listenHost, unsigned short listenPort, std::string serverHost, unsigned short serverPort);
  ~GdbProxy();

  unsigned short port() const;
  // Waits for a debugger, connects to the server and passes the session
  // on until one side closes it or keepGoing() says no; then both
  // connections are closed, and the next call serves the next debugger.
  // Returns why it ended ("the debugger disconnected", ...). Throws GdbError
  // when the server cannot be reached.
  std::string run(const Events& events, const std::function<bool()>& keepGoing);
  // The server, for requests of the owner's own during an event.
  GdbRemoteClient& server();
  // In all-stop mode nothing but the interrupt byte may go to a server
  // whose target runs: requests are possible only while a session is open
  // and its target halted (a detach lets it run).
  bool canRequest() const;
  bool targetRunning() const { return running_; }

  // A packet from either side must end within this time once begun.
  static constexpr std::chrono::seconds kPacketTimeout{10};
  // The server's qSupported features as passed to the debugger: PacketSize
  // at most what the proxy takes (kMaxPacketPayload), added when missing.
  static std::string advertisedFeatures(const std::string& serverFeatures);

  struct Impl;

 private:
  class Relay;
  std::unique_ptr<Impl> impl_;
  bool running_ = false;
};

}  // namespace vestrel::gdb_remote
