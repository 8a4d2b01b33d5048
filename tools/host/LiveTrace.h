// What record and demo show and serve while the receiver records: the raw
// SWO stream over TCP to any number of clients (--serve), and the decoded
// stimulus text and events as they arrive (--decode), both fed by following
// the capture file the collector writes. Decoded lines and the live byte
// counter share the terminal: the counter keeps its own last line.
#pragma once

#include <atomic>
#include <chrono>
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
  std::optional<trace_server::Endpoint> serve;
  std::size_t maxClients = trace_server::TraceServer::kDefaultMaxClients;  // served at once
  bool decode = false;
  std::set<std::uint32_t> ports;  // stimulus ports whose text is shown; empty: all
  bool events = false;            // every exception, PC sample and DWT event shown too
};

// What the live decoder has seen so far, for the status line.
struct LiveCounts {
  std::uint64_t lines = 0;  // stimulus text lines
  std::uint64_t exceptions = 0;
  std::uint64_t pcSamples = 0;
};

// The one-line status of a recording: megabytes so far, and over the last
// second (not an average since the start) kilobytes, text lines, exceptions
// and PC samples per second.
class LiveStatus {
 public:
  // The line at seconds into the recording, with bytes captured and, when
  // the trace is decoded live, its counts (null: bytes only).
  std::string line(double seconds, double bytes, const LiveCounts* counts);

 private:
  double markSeconds_ = 0, markBytes_ = 0;
  LiveCounts mark_;
  std::string rates_ = "";
};

// Lines and a status line on one terminal, from several threads.
class LiveConsole {
 public:
  // On a terminal (statusLine) the decoded trace is shown at most this many
  // lines a second, so that a person can read it; the rest are counted.
  static constexpr int kTraceLinesPerSecond = 100;

  explicit LiveConsole(bool statusLine) : statusLine_(statusLine) {}
  void lines(const std::string& text);
  // Decoded trace lines: all of them off a terminal, a readable share on one.
  void traceLines(const std::string& text);
  void status(const std::string& text);
  void endStatus();

 private:
  // The line that says how many trace lines were left out (none: ""); the
  // count starts again.
  std::string hiddenNotice();
  std::mutex mutex_;
  bool statusLine_;
  std::string status_;
  std::chrono::steady_clock::time_point windowStart_{};
  int shownInWindow_ = 0;
  std::uint64_t hidden_ = 0;
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
  void start(const std::string& capturePath, const capture_metadata::CaptureMetadata& reading);
  // Hands on the rest of the capture, then ends every client's stream.
  void finish();
  std::optional<trace_server::Endpoint> endpoint() const;
  LiveCounts counts() const;
  bool decodes() const { return settings_.decode; }

 private:
  class Shown;
  struct Decoding;
  void take(const std::uint8_t* data, std::size_t size);

  LiveSettings settings_;
  LiveConsole& console_;
  std::atomic<std::uint64_t> lines_{0}, exceptions_{0}, pcSamples_{0};
  std::unique_ptr<trace_server::TraceServer> server_;
  std::unique_ptr<Decoding> decoding_;
  std::unique_ptr<trace_server::CaptureFollower> follower_;
};

}  // namespace vestrel::host
