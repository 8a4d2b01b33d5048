// Reads a capture file while the receiver's collector writes it (shared
// reading, so the receiver is unchanged) and hands every new byte on, in
// order, from the start of the file.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

namespace vestrel::trace_server {

class CaptureFollower {
 public:
  using Sink = std::function<void(const std::uint8_t* data, std::size_t size)>;

  // Starts following at once; the file must exist.
  CaptureFollower(std::string path, Sink sink);
  // Hands on what is left in the file, then stops.
  ~CaptureFollower();
  CaptureFollower(const CaptureFollower&) = delete;
  CaptureFollower& operator=(const CaptureFollower&) = delete;

  std::uint64_t bytes() const { return bytes_; }

 private:
  void run();

  std::string path_;
  Sink sink_;
  std::atomic<bool> stopping_{false};
  std::atomic<std::uint64_t> bytes_{0};
  std::thread thread_;
};

}  // namespace vestrel::trace_server
