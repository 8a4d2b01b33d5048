// A client of the GDB Remote Serial Protocol, enough to drive a Cortex-M
// target through any GDB server (OpenOCD, pyOCD, the Black Magic Probe,
// probe-rs, J-Link's server, QEMU's gdbstub): it acknowledges packets (and
// turns acknowledgements off when the server can), reads and writes memory,
// halts, resumes, sets breakpoints and waits for stop replies. Every failure
// is a GdbError that names the request.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "ByteTransport.h"
#include "RspFraming.h"
#include "StopReply.h"

namespace vestrel::gdb_remote {

class GdbRemoteClient {
 public:
  static constexpr int kAttempts = 3;  // sends of a packet the server refuses, receipts of a garbled reply

  // Starts the session: qSupported, then no-acknowledgement mode when
  // offered. timeout bounds each wait for the server.
  GdbRemoteClient(std::unique_ptr<ByteTransport> transport,
                  std::chrono::milliseconds timeout = std::chrono::seconds(5));
  // Joins a session another debugger started (a proxy's own requests between
  // the debugger's): no handshake; acknowledgements as that session has them.
  struct JoinSession {
    bool noAck = false;
  };
  GdbRemoteClient(std::unique_ptr<ByteTransport> transport, std::chrono::milliseconds timeout, JoinSession session);
  void setNoAckMode(bool noAck) { noAck_ = noAck; }

  // One request and its reply (not for the requests that resume).
  std::string request(const std::string& payload);

  std::string readMemory(std::uint32_t address, std::uint32_t length);
  void writeMemory(std::uint32_t address, const std::string& bytes);
  std::uint32_t readWord(std::uint32_t address);
  void writeWord(std::uint32_t address, std::uint32_t value);

  // Why the target is stopped now ('?').
  StopReply haltReason();
  // Resumes the target ('c'); its stop reply comes later (waitForStop).
  void resume();
  // Asks a running target to halt (the interrupt byte) and waits for its
  // stop reply.
  StopReply halt();
  // The stop reply of a running target, if it stops within timeout.
  std::optional<StopReply> waitForStop(std::chrono::milliseconds timeout);
  bool running() const { return running_; }

  // A software breakpoint (Z0), or a hardware one (Z1: code in flash);
  // kind 2 is a 16-bit Thumb instruction.
  void insertBreakpoint(std::uint32_t address, bool hardware = false, int kind = 2);
  void removeBreakpoint(std::uint32_t address, bool hardware = false, int kind = 2);

  bool noAckMode() const { return noAck_; }
  // Why the connection can no longer be used ("" while it can): after the
  // server closed it, went silent, garbled its replies or sent what the
  // protocol does not allow, every request fails at once with this reason.
  const std::string& failure() const { return failure_; }
  const std::string& features() const { return features_; }

 private:
  [[noreturn]] void fail(const std::string& why);
  void requireLink() const;
  std::string unendedPacket() const;
  void transmit(std::string_view bytes);
  void sendPacket(const std::string& payload);
  // The next packet; nullopt on time-out.
  std::optional<std::string> receivePacket(std::chrono::milliseconds timeout, const std::string& what);
  // The next item from the server; nullopt when none came before deadline.
  std::optional<RspReader::Item> nextItem(std::chrono::steady_clock::time_point deadline);
  void expectOk(const std::string& payload, const std::string& what);

  std::unique_ptr<ByteTransport> transport_;
  std::chrono::milliseconds timeout_;
  RspReader incoming_{"the GDB server"};
  std::string failure_;
  bool noAck_ = false;
  bool running_ = false;
  std::string features_;
};

}  // namespace vestrel::gdb_remote
