#include "LiveTrace.h"

#include <cstdio>
#include <iostream>

#include "HostCore.h"
#include "ItmDecoder.h"
#include "OutputBuffer.h"
#include "PacketTimer.h"
#include "TraceText.h"

namespace vestrel::host {

void LiveConsole::lines(const std::string& text) {
  std::lock_guard<std::mutex> guard(mutex_);
  if (statusLine_ && !status_.empty()) std::fputs("\r\x1b[K", stdout);
  std::fputs(text.c_str(), stdout);
  if (statusLine_ && !status_.empty()) std::fputs(status_.c_str(), stdout);
  std::fflush(stdout);
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
  status_.clear();
  std::fflush(stdout);
}

// The decoder of the live view, on the follower's thread.
struct LiveTrace::Decoding {
  Decoding(const LiveSettings& settings, const metadata::CaptureMetadata& reading)
      : writer(text, timingOf(reading)), ports(settings.ports) {}
  static decode::Timing timingOf(const metadata::CaptureMetadata& reading) {
    decode::Timing timing;
    timing.clockHz = reading.clockHz;
    timing.timestampPrescale = reading.timestampPrescale;
    return timing;
  }
  decode::OutputBuffer text;
  decode::TextWriter writer;
  std::set<std::uint32_t> ports;
  decode::PacketTimer timer{[this](const decode::Packet& packet, decode::PacketTime time) {
    if (packet.kind == decode::PacketKind::Instrumentation && !ports.empty() && ports.count(packet.port) == 0) return;
    writer.write(packet, time);
  }};
  decode::ItmDecoder decoder{[this](const decode::Packet& packet) { timer.add(packet); }};
};

LiveTrace::LiveTrace(const LiveSettings& settings, LiveConsole& console) : settings_(settings), console_(console) {
  if (settings_.serve) {
    server_ = std::make_unique<live::TraceServer>(
        *settings_.serve, [this](const std::string& line) { console_.lines("vestrel-host: " + line + "\n"); });
    console_.lines("serving the raw SWO stream on " + server_->endpoint().text() + "\n");
  }
}

LiveTrace::~LiveTrace() { finish(); }

std::optional<live::Endpoint> LiveTrace::endpoint() const {
  if (!server_) return std::nullopt;
  return server_->endpoint();
}

void LiveTrace::start(const std::string& capturePath, const metadata::CaptureMetadata& reading) {
  if (settings_.decode) decoding_ = std::make_unique<Decoding>(settings_, reading);
  if (server_) {
    console_.lines("decode it live: " + decodeCommandFor("--connect " + server_->endpoint().text(), reading, true) +
                   "\n");
  }
  if (!server_ && !decoding_) return;
  follower_ = std::make_unique<live::CaptureFollower>(
      capturePath, [this](const std::uint8_t* data, std::size_t size) { take(data, size); });
}

void LiveTrace::take(const std::uint8_t* data, std::size_t size) {
  if (server_) server_->publish(data, size);
  if (decoding_) {
    decoding_->decoder.feed(data, size);
    if (!decoding_->text.text().empty()) {
      console_.lines(decoding_->text.text());
      decoding_->text.clear();
    }
  }
}

void LiveTrace::finish() {
  follower_.reset();  // reads what is left
  if (decoding_) {
    decoding_->decoder.finish();
    decoding_->timer.release();
    decoding_->writer.flush();
    if (!decoding_->text.text().empty()) console_.lines(decoding_->text.text());
    decoding_.reset();
  }
  if (server_) {
    server_->drain();
    server_.reset();
  }
}

}  // namespace vestrel::host
