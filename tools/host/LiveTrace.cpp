#include "LiveTrace.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

#include "DecodeChain.h"
#include "HostCore.h"
#include "ItmDecoder.h"
#include "OutputBuffer.h"
#include "PacketSink.h"
#include "TextWriter.h"
#include "Timing.h"

namespace vestrel::host {

void LiveConsole::lines(const std::string& text) {
  std::lock_guard<std::mutex> guard(mutex_);
  if (statusLine_ && !status_.empty()) std::fputs("\r\x1b[K", stdout);
  std::fputs(text.c_str(), stdout);
  if (statusLine_ && !status_.empty()) std::fputs(status_.c_str(), stdout);
  std::fflush(stdout);
}

void LiveConsole::traceLines(const std::string& text) {
  if (!statusLine_) {
    lines(text);
    return;
  }
  std::string shown;
  {
    std::lock_guard<std::mutex> guard(mutex_);
    const auto now = std::chrono::steady_clock::now();
    if (now - windowStart_ >= std::chrono::seconds(1)) {
      windowStart_ = now;
      shownInWindow_ = 0;
    }
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = std::min(text.find('\n', at), text.size() - 1);
      if (shownInWindow_ < kTraceLinesPerSecond) {
        shown.append(text, at, end - at + 1);
        ++shownInWindow_;
      } else {
        ++hidden_;
      }
      at = end + 1;
    }
    if (shownInWindow_ < kTraceLinesPerSecond && hidden_ > 0) {
      // A new second: what the last one left out is said first.
      shown.insert(0, hiddenNotice());
    }
  }
  if (!shown.empty()) lines(shown);
}

std::string LiveConsole::hiddenNotice() {
  if (hidden_ == 0) return "";
  const std::string notice =
      "  (" + std::to_string(hidden_) + " more lines not shown here; the capture holds them all)\n";
  hidden_ = 0;
  return notice;
}

void LiveConsole::status(const std::string& text) {
  std::lock_guard<std::mutex> guard(mutex_);
  if (!statusLine_) return;
  status_ = text;
  std::fputs(("\r\x1b[K" + status_).c_str(), stdout);
  std::fflush(stdout);
}

void LiveConsole::endStatus() {
  std::lock_guard<std::mutex> guard(mutex_);
  if (statusLine_ && !status_.empty()) std::fputs("\n", stdout);
  std::fputs(hiddenNotice().c_str(), stdout);
  status_.clear();
  std::fflush(stdout);
}

// What the live view shows: the stimulus ports asked for (all when none
// were), overflows and malformed runs, and the other events only when asked
// for; exceptions and PC samples are counted for the status line.
class LiveTrace::Shown final : public decoder::PacketSink {
 public:
  Shown(const LiveSettings& settings, decoder::TextWriter& writer, LiveTrace& owner)
      : ports_(settings.ports), events_(settings.events), writer_(writer), owner_(owner) {}
  void write(const decoder::Packet& packet, decoder::PacketTime time) override {
    using decoder::PacketKind;
    if (packet.kind == PacketKind::ExceptionTrace) ++owner_.exceptions_;
    if (packet.kind == PacketKind::PcSample || packet.kind == PacketKind::PcSleep) ++owner_.pcSamples_;
    if (packet.kind == PacketKind::Instrumentation) {
      if (!ports_.empty() && ports_.count(packet.port) == 0) return;
    } else if (!events_ && packet.kind != PacketKind::Overflow && packet.kind != PacketKind::Malformed) {
      // Exceptions, PC samples, DWT events and timestamps come at
      // thousands a second: shown only when asked for.
      return;
    }
    writer_.write(packet, time);
  }
  void finish(const decoder::DecoderStatistics& statistics) override { writer_.finish(statistics); }

 private:
  std::set<std::uint32_t> ports_;
  bool events_;
  decoder::TextWriter& writer_;
  LiveTrace& owner_;
};

// The decoder of the live view, on the follower's thread.
struct LiveTrace::Decoding {
  Decoding(const LiveSettings& settings, const capture_metadata::CaptureMetadata& reading, LiveTrace& owner)
      : writer(text, timingOf(reading)), shown(settings, writer, owner) {}
  static decoder::Timing timingOf(const capture_metadata::CaptureMetadata& reading) {
    decoder::Timing timing;
    timing.clockHz = reading.clockHz;
    timing.timestampPrescale = reading.timestampPrescale;
    return timing;
  }
  decoder::OutputBuffer text;
  decoder::TextWriter writer;
  Shown shown;
  decoder::DecodeChain chain{{&shown}};
};

LiveTrace::LiveTrace(const LiveSettings& settings, LiveConsole& console) : settings_(settings), console_(console) {
  if (settings_.serve) {
    server_ = std::make_unique<trace_server::TraceServer>(
        *settings_.serve, [this](const std::string& line) { console_.lines("vestrel-host: " + line + "\n"); },
        trace_server::TraceServer::kDefaultClientQueue, settings_.maxClients);
    console_.lines("serving the raw SWO stream on " + server_->endpoint().text() + "\n");
  }
}

LiveTrace::~LiveTrace() { finish(); }

LiveCounts LiveTrace::counts() const { return {lines_.load(), exceptions_.load(), pcSamples_.load()}; }

std::string LiveStatus::line(double seconds, double bytes, const LiveCounts* counts) {
  // Short enough for an 80-column terminal: a longer line would wrap and no
  // longer keep its place.
  const auto format = [](const char* pattern, double value) {
    char text[48];
    std::snprintf(text, sizeof text, pattern, value);
    return std::string(text);
  };
  const double span = seconds - markSeconds_;
  if (span >= 1.0) {
    rates_ = format(", %.1f kB/s", (bytes - markBytes_) / span / 1e3);
    if (counts != nullptr) {
      const auto perSecond = [span](std::uint64_t now, std::uint64_t then) {
        return static_cast<double>(now - then) / span + 0.5;
      };
      rates_ += format(", %.0f lines/s", perSecond(counts->lines, mark_.lines)) +
                format(", %.0f exc/s", perSecond(counts->exceptions, mark_.exceptions)) +
                format(", %.0f PC/s", perSecond(counts->pcSamples, mark_.pcSamples));
      mark_ = *counts;
    }
    markSeconds_ = seconds;
    markBytes_ = bytes;
  }
  return format("  %.2f MB", bytes / 1e6) + rates_;
}

std::optional<trace_server::Endpoint> LiveTrace::endpoint() const {
  if (!server_) return std::nullopt;
  return server_->endpoint();
}

void LiveTrace::start(const std::string& capturePath, const capture_metadata::CaptureMetadata& reading) {
  if (settings_.decode) decoding_ = std::make_unique<Decoding>(settings_, reading, *this);
  if (server_) {
    console_.lines("decode it live: " + decodeCommandFor("--connect " + server_->endpoint().text(), reading, true) +
                   "\n");
  }
  if (!server_ && !decoding_) return;
  follower_ = std::make_unique<trace_server::CaptureFollower>(
      capturePath, [this](const std::uint8_t* data, std::size_t size) { take(data, size); });
}

void LiveTrace::take(const std::uint8_t* data, std::size_t size) {
  if (server_) server_->publish(data, size);
  if (decoding_) {
    decoding_->chain.feed(data, size);
    if (!decoding_->text.text().empty()) {
      const std::string& text = decoding_->text.text();
      lines_ += static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
      console_.traceLines(text);
      decoding_->text.clear();
    }
  }
}

void LiveTrace::finish() {
  follower_.reset();  // reads what is left
  if (decoding_) {
    decoding_->chain.finish();
    if (!decoding_->text.text().empty()) console_.traceLines(decoding_->text.text());
    decoding_.reset();
  }
  if (server_) {
    server_->drain();
    server_.reset();
  }
}

}  // namespace vestrel::host
