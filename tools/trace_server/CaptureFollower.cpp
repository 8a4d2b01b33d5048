#include "CaptureFollower.h"

#include "FileTail.h"

#include <chrono>
#include <cstdio>
#include <vector>

namespace vestrel::trace_server {

CaptureFollower::CaptureFollower(std::string path, Sink sink) : path_(std::move(path)), sink_(std::move(sink)) {
  thread_ = std::thread([this] { run(); });
}

CaptureFollower::~CaptureFollower() {
  stopping_ = true;
  thread_.join();
}

// Polls every 2 ms: a byte reaches the clients a few milliseconds after it
// reaches the file.
void CaptureFollower::run() {
  std::FILE* file = nullptr;
  while (file == nullptr) {
    file = std::fopen(path_.c_str(), "rb");
    if (file == nullptr) {
      if (stopping_) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }
  std::vector<std::uint8_t> block(std::size_t{1} << 16);
  for (;;) {
    const bool last = stopping_;  // read once more after the stop: what the collector wrote last
    const std::size_t got = std::fread(block.data(), 1, block.size(), file);
    if (got > 0) {
      bytes_ += got;
      sink_(block.data(), got);
    }
    if (got < block.size()) {
      if (last) break;
      readOnAfterEnd(file);
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }
  std::fclose(file);
}

}  // namespace vestrel::trace_server
