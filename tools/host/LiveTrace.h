// What record and demo show and serve while the receiver records: the raw
// SWO stream over TCP to any number of clients (--serve), and the decoded
// stimulus text and events as they arrive (--decode), both fed by following
// the capture file the collector writes. Decoded lines and the live byte
// counter share the terminal: the counter keeps its own last line.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "CaptureFollower.h"
#include "CaptureMetadata.h"
#include "Endpoint.h"
#include "TraceServer.h"

namespace vestrel::host {

struct LiveSettings {
  std::optional<live::Endpoint> serve;
  bool decode = false;
  std::set<std::uint32_t> ports;  // stimulus ports whose text is shown; empty: all
};

// Lines and a status line on one terminal, from several threads.
class LiveConsole {
 public:
  explicit LiveConsole(bool statusLine) : statusLine_(statusLine) {}
  void lines(const std::string& text);
  void status(const std::string& text);
  void endStatus();

 private:
  std::mutex mutex_;
  bool statusLine_;
  std::string status_;
};

class LiveTrace {
 public:
  // Binds the server at once and says where it serves; throws
  // std::runtime_error when it cannot.
  LiveTrace(const LiveSettings& settings, LiveConsole& console);
  ~LiveTrace();
  // Follows the capture file from its start (the recording has begun),
  // decoding with the recording's clock and prescale; says how to decode the
  // served stream.
  void start(const std::string& capturePath, const metadata::CaptureMetadata& reading);
  // Hands on the rest of the capture, then ends every client's stream.
  void finish();
  std::optional<live::Endpoint> endpoint() const;

 private:
  struct Decoding;
  void take(const std::uint8_t* data, std::size_t size);

  LiveSettings settings_;
  LiveConsole& console_;
  std::unique_ptr<live::TraceServer> server_;
  std::unique_ptr<Decoding> decoding_;
  std::unique_ptr<live::CaptureFollower> follower_;
};

}  // namespace vestrel::host
