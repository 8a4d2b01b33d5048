// vestrel-decode shows what arrived while its input is still open, whatever
// the input: a pipe, a TCP stream or a growing file. Each test keeps the
// input open (and alive) until the line is shown, and fails if the line only
// came once the input ended.
#include <gtest/gtest.h>

#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>

#include "CommandStatus.h"
#include "TestSupport.h"

using vestrel_test::readFile;

namespace {

// Port 0's "Hi\n", then a timestamp: the decoder has seen the line's end.
const std::string kLine = std::string("\x01H\x01i\x01\n\xc0\x05", 8);
const std::string kShown = "[5] port 0: Hi\n";

std::string decodeCommand() { return vestrel_test::onWindows() ? "vestrel-decode.exe" : "./vestrel-decode"; }

std::string printed(const std::string& file) {
  std::string text = vestrel_test::fileExists(file) ? readFile(file) : "";
  std::erase(text, '\r');
  return text;
}

// Calls keepAlive every 100 ms until the file shows the line (or a minute
// passed); says whether it did.
template <typename KeepAlive>
bool shownWhileOpen(const std::string& file, KeepAlive keepAlive) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (std::chrono::steady_clock::now() < deadline) {
    for (int i = 0; i < 10; ++i) {
      if (printed(file).find(kShown) != std::string::npos) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    keepAlive();
  }
  return false;
}

// Serves the bytes to one client and holds the connection open until
// released, then ends the stream in order.
class HeldServer {
 public:
  explicit HeldServer(std::string bytes) {
    thread_ = std::thread([this, bytes = std::move(bytes)] {
      asio::error_code error;
      asio::ip::tcp::socket socket(io_);
      acceptor_.accept(socket, error);
      if (error) return;
      asio::write(socket, asio::buffer(bytes), error);
      std::unique_lock<std::mutex> lock(mutex_);
      released_.wait(lock, [this] { return release_; });
      socket.shutdown(asio::ip::tcp::socket::shutdown_both, error);
      socket.close(error);
    });
  }
  ~HeldServer() {
    release();
    thread_.join();
  }
  void release() {
    std::lock_guard<std::mutex> guard(mutex_);
    release_ = true;
    released_.notify_all();
  }
  std::string address() const { return "127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port()); }

 private:
  asio::io_context io_;
  asio::ip::tcp::acceptor acceptor_{io_, asio::ip::tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
  std::mutex mutex_;
  std::condition_variable released_;
  bool release_ = false;
  std::thread thread_;
};

}  // namespace

TEST(DecodeLive, APipeStillOpenShowsTheLineAtOnce) {
  std::remove("live-pipe.out");
  std::FILE* input = vestrel_test::startWritingTo(decodeCommand() + " > live-pipe.out 2>&1");
  ASSERT_NE(input, nullptr);
  ASSERT_EQ(std::fwrite(kLine.data(), 1, kLine.size(), input), kLine.size());
  std::fflush(input);
  const bool shown = shownWhileOpen("live-pipe.out", [] {});
  const int status = vestrel_test::finishWritingTo(input);
  EXPECT_TRUE(shown) << "nothing was shown before the pipe closed";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(printed("live-pipe.out"), kShown);
}

TEST(DecodeLive, AStreamStillOpenShowsTheLineAtOnce) {
  std::remove("live-connect.out");
  HeldServer server(kLine);
  int status = -1;
  std::thread decoding([&] {
    status = vestrel_test::commandExitCode(
        std::system((decodeCommand() + " --connect " + server.address() + " > live-connect.out 2>&1").c_str()));
  });
  const bool shown = shownWhileOpen("live-connect.out", [] {});
  server.release();
  decoding.join();
  EXPECT_TRUE(shown) << "nothing was shown before the stream ended";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(printed("live-connect.out"), kShown);
}

// The file grows by a byte of an unfinished line every 100 ms until the line
// is shown, so the follower never sees it idle that long.
TEST(DecodeLive, AGrowingFileShowsTheLineAtOnce) {
  const std::string path = "live-follow.swo";
  std::remove("live-follow.out");
  std::ofstream(path, std::ios::binary) << kLine;
  std::atomic<bool> ended{false};
  int status = -1;
  std::thread decoding([&] {
    status = vestrel_test::commandExitCode(
        std::system((decodeCommand() + " --follow " + path + " --idle-exit 3 > live-follow.out 2>&1").c_str()));
    ended = true;
  });
  bool endedFirst = false;
  const bool shown = shownWhileOpen("live-follow.out", [&] {
    endedFirst = endedFirst || ended;
    std::ofstream(path, std::ios::binary | std::ios::app) << std::string("\x01.", 2);
  });
  endedFirst = endedFirst || (!shown && ended);
  decoding.join();
  EXPECT_TRUE(shown);
  EXPECT_FALSE(endedFirst) << "the line was shown only once the follower ended";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(printed("live-follow.out").substr(0, kShown.size()), kShown);
}
