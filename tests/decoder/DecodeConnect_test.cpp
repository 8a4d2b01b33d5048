// vestrel-decode --connect with the report and the timeline: however the
// stream ends (the server resets the connection, the user presses Ctrl-C),
// what arrived is decoded and both files are finished.
#include <gtest/gtest.h>

#include <asio.hpp>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "CommandStatus.h"
#include "TestSupport.h"

using vestrel_test::readFile;

namespace {

std::string decodeCommand() { return vestrel_test::onWindows() ? "vestrel-decode.exe" : "./vestrel-decode"; }

// Serves bytes to one client, then resets the connection (or, with hold,
// keeps it open until the client leaves).
class OneShotServer {
 public:
  OneShotServer(std::string bytes, bool hold) {
    port_ = acceptor_.local_endpoint().port();
    thread_ = std::thread([this, bytes = std::move(bytes), hold] {
      asio::error_code error;
      asio::ip::tcp::socket socket(io_);
      acceptor_.accept(socket, error);
      if (error) return;
      asio::write(socket, asio::buffer(bytes), error);
      if (hold) {
        char ignored[16];
        socket.read_some(asio::buffer(ignored), error);  // until the client goes
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      socket.set_option(asio::socket_base::linger(true, 0), error);
      socket.close(error);  // a reset, not an orderly end
    });
  }
  ~OneShotServer() { thread_.join(); }
  std::string address() const { return "127.0.0.1:" + std::to_string(port_); }

 private:
  asio::io_context io_;
  asio::ip::tcp::acceptor acceptor_{io_, asio::ip::tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
  unsigned short port_ = 0;
  std::thread thread_;
};

void expectFinishedOutputs(const std::string& html, const std::string& timeline) {
  const std::string page = readFile(html);
  ASSERT_GE(page.size(), 8u);
  EXPECT_EQ(page.substr(page.size() - 8), "</html>\n");
  EXPECT_NE(page.find("Hi"), std::string::npos) << "the port text that arrived";
  EXPECT_TRUE(nlohmann::json::accept(readFile(timeline))) << "the timeline is not whole JSON";
}

TEST(DecodeConnect, AResetConnectionSaysWhyAndFinishesEveryOutput) {
  OneShotServer server(readFile(std::string(VESTREL_TEST_SOURCE_DIR) + "/decoder/fixtures/hello.swo"), false);
  const int status = vestrel_test::commandExitCode(
      std::system((decodeCommand() + " --connect " + server.address() +
                   " --html connect-reset.html --perfetto connect-reset.json --force > connect-reset.out 2>&1")
                      .c_str()));
  std::string printed = readFile("connect-reset.out");
  std::erase(printed, '\r');
  EXPECT_NE(printed.find("[2] port 0: Hi\n"), std::string::npos) << printed;
  expectFinishedOutputs("connect-reset.html", "connect-reset.json");
  if (vestrel_test::onWindows()) {
    // Wine closes a socket that lingers for 0 s in order: the client sees
    // the end of the stream, not a reset.
    EXPECT_EQ(status, 0) << printed;
    return;
  }
  EXPECT_EQ(status, 1) << printed;
  const std::string said = "vestrel-decode: cannot read " + server.address() + ": ";
  ASSERT_NE(printed.find(said), std::string::npos) << printed;
  EXPECT_NE(printed.find("; what arrived before is decoded and every output finished\n"), std::string::npos) << printed;
}

TEST(DecodeConnect, CtrlCFinishesEveryOutput) {
  if (vestrel_test::onWindows()) {
    GTEST_SKIP() << "a Ctrl-C for another process needs a console of its own under Windows, which this test has not; "
                    "the Linux stage sends SIGINT to the same code";
  }
  OneShotServer server(readFile(std::string(VESTREL_TEST_SOURCE_DIR) + "/decoder/fixtures/hello.swo"), true);
  const int status = vestrel_test::commandExitCode(
      std::system(("timeout --preserve-status -s INT 2 " + decodeCommand() + " --connect " + server.address() +
                   " --html connect-ctrl-c.html --perfetto connect-ctrl-c.json --force > connect-ctrl-c.out 2>&1")
                      .c_str()));
  std::string printed = readFile("connect-ctrl-c.out");
  EXPECT_EQ(status, 0) << printed;
  EXPECT_NE(printed.find("vestrel-decode: stopped (Ctrl-C); what arrived is decoded and every output finished\n"),
            std::string::npos)
      << printed;
  expectFinishedOutputs("connect-ctrl-c.html", "connect-ctrl-c.json");
}

}  // namespace
