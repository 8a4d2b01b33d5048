// The live trace stream: clients that come and go, one that stops reading,
// a port that is taken, the end of the stream, and following a growing file.
#include "TraceServer.h"

#include <gtest/gtest.h>

#include <asio.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <random>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "CaptureFollower.h"
#include "Endpoint.h"
#include "ProcessResources.h"
#include "TestSupport.h"
#include "TraceClient.h"

using namespace vestrel::trace_server;

namespace {

std::vector<std::uint8_t> bytes(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<std::uint8_t> out(size);
  for (auto& byte : out) byte = static_cast<std::uint8_t>(random());
  return out;
}

// Reads a client's stream to its end.
std::vector<std::uint8_t> readAll(TraceClient& client) {
  std::vector<std::uint8_t> all;
  std::vector<std::uint8_t> block(65536);
  for (long got; (got = client.read(block.data(), block.size())) > 0;) {
    all.insert(all.end(), block.begin(), block.begin() + got);
  }
  return all;
}

template <typename Condition>
bool waitFor(Condition condition, int seconds = 20) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

struct Logged {
  std::mutex mutex;
  std::vector<std::string> lines;
  TraceServer::Log log() {
    return [this](const std::string& line) {
      std::lock_guard<std::mutex> guard(mutex);
      lines.push_back(line);
    };
  }
  bool anyContains(const std::string& part) {
    std::lock_guard<std::mutex> guard(mutex);
    for (const auto& line : lines) {
      if (line.find(part) != std::string::npos) return true;
    }
    return false;
  }
  // The clients ("127.0.0.1:<port>") of every line "client <name><saying>".
  std::vector<std::string> clientsSaying(const std::string& saying) {
    static const std::regex kLine("client (127\\.0\\.0\\.1:[0-9]+)(.*)");
    std::lock_guard<std::mutex> guard(mutex);
    std::vector<std::string> names;
    for (const auto& line : lines) {
      std::smatch match;
      if (std::regex_match(line, match, kLine) && match[2] == saying) names.push_back(match[1]);
    }
    return names;
  }
  bool anyStartsWith(const std::string& prefix) {
    std::lock_guard<std::mutex> guard(mutex);
    for (const auto& line : lines) {
      if (line.rfind(prefix, 0) == 0) return true;
    }
    return false;
  }
};

Endpoint loopback() { return Endpoint{"127.0.0.1", 0}; }

}  // namespace

TEST(Endpoint, HostDefaultsToTheLoopbackAndThePortIsChecked) {
  EXPECT_EQ(parseEndpoint("3443")->text(), "127.0.0.1:3443");
  EXPECT_EQ(parseEndpoint(":3443")->text(), "127.0.0.1:3443");
  EXPECT_EQ(parseEndpoint("0.0.0.0:80")->text(), "0.0.0.0:80");
  EXPECT_EQ(parseEndpoint("[::1]:7")->host, "::1");
  EXPECT_FALSE(parseEndpoint("65536"));
  EXPECT_FALSE(parseEndpoint("host:"));
  EXPECT_FALSE(parseEndpoint("x"));
  EXPECT_FALSE(parseEndpoint("1:2x"));
}

TEST(TraceServer, EveryClientGetsEveryByteFromWhenItConnectedInOrder) {
  Logged logged;
  const std::vector<std::uint8_t> early = bytes(100000, 1), late = bytes(3 << 20, 2);
  std::vector<std::uint8_t> first, second;
  auto server = std::make_unique<TraceServer>(loopback(), logged.log());
  TraceClient a(server->endpoint());
  ASSERT_TRUE(waitFor([&] { return server->clientCount() == 1; }));
  std::thread readerA([&] { first = readAll(a); });
  server->publish(early.data(), early.size());
  server->drain();
  TraceClient b(server->endpoint());
  ASSERT_TRUE(waitFor([&] { return server->clientCount() == 2; }));
  std::thread readerB([&] { second = readAll(b); });
  for (std::size_t at = 0; at < late.size(); at += 4096) server->publish(&late[at], 4096);
  server->drain();
  server.reset();  // the end of the stream for both
  readerA.join();
  readerB.join();
  std::vector<std::uint8_t> all = early;
  all.insert(all.end(), late.begin(), late.end());
  EXPECT_TRUE(first == all) << first.size() << " of " << all.size();
  EXPECT_TRUE(second == late) << second.size() << " of " << late.size();
  const std::vector<std::string> connected = logged.clientsSaying(" connected");
  ASSERT_EQ(connected.size(), 2u);
  EXPECT_NE(connected[0], connected[1]);
  EXPECT_EQ(logged.clientsSaying(" left"), std::vector<std::string>{}) << "the server ended the streams";
}

// The end of the server is the end of the stream, but only after every byte
// published before it: nobody drains the queues first.
TEST(TraceServer, ItsEndDeliversEverythingStillQueuedFirst) {
  Logged logged;
  const std::vector<std::uint8_t> stream = bytes(4 << 20, 5);
  auto server = std::make_unique<TraceServer>(loopback(), logged.log());
  TraceClient client(server->endpoint());
  ASSERT_TRUE(waitFor([&] { return server->clientCount() == 1; }));
  for (std::size_t at = 0; at < stream.size(); at += 65536) server->publish(&stream[at], 65536);
  std::vector<std::uint8_t> got;
  std::thread reader([&] {
    // Late, so that the queue still holds most of the stream at the end.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    got = readAll(client);
  });
  server.reset();
  reader.join();
  EXPECT_EQ(got.size(), stream.size());
  EXPECT_TRUE(got == stream);
}

// A client that never reads is cut off once it is a queue behind; the one
// that reads goes on and gets every byte.
TEST(TraceServer, AClientThatStopsReadingIsDisconnectedAndTheOthersGoOnByteExact) {
  Logged logged;
  constexpr std::size_t kLimit = std::size_t{1} << 20;
  auto server = std::make_unique<TraceServer>(loopback(), logged.log(), kLimit);
  TraceClient stalled(server->endpoint());
  TraceClient reading(server->endpoint());
  ASSERT_TRUE(waitFor([&] { return server->clientCount() == 2; }));
  std::atomic<std::size_t> received{0};
  std::vector<std::uint8_t> got;
  std::thread reader([&] {
    std::vector<std::uint8_t> block(65536);
    for (long n; (n = reading.read(block.data(), block.size())) > 0;) {
      got.insert(got.end(), block.begin(), block.begin() + n);
      received += static_cast<std::size_t>(n);
    }
  });
  const std::vector<std::uint8_t> stream = bytes(24 << 20, 3);
  for (std::size_t at = 0; at < stream.size(); at += 65536) {
    // The reader is never let fall half a queue behind.
    ASSERT_TRUE(waitFor([&] { return at - received.load() < kLimit / 2 || at < received.load(); }));
    server->publish(&stream[at], 65536);
  }
  ASSERT_TRUE(waitFor([&] { return server->clientCount() == 1; }));
  server->drain();
  server.reset();
  reader.join();
  EXPECT_TRUE(got == stream) << got.size() << " of " << stream.size();
  EXPECT_TRUE(logged.anyStartsWith("client 127.0.0.1:"));
  bool cutOff = false;
  {
    std::lock_guard<std::mutex> guard(logged.mutex);
    for (const auto& line : logged.lines) {
      cutOff = cutOff || line.find(" disconnected: it stopped reading and fell ") != std::string::npos;
    }
  }
  EXPECT_TRUE(cutOff);
}

TEST(TraceServer, AClientThatLeavesMidStreamChangesNothingForTheRest) {
  Logged logged;
  auto server = std::make_unique<TraceServer>(loopback(), logged.log());
  auto leaving = std::make_unique<TraceClient>(server->endpoint());
  TraceClient staying(server->endpoint());
  ASSERT_TRUE(waitFor([&] { return server->clientCount() == 2; }));
  std::vector<std::uint8_t> got;
  std::thread reader([&] { got = readAll(staying); });
  const std::vector<std::uint8_t> stream = bytes(2 << 20, 4);
  server->publish(stream.data(), stream.size() / 2);
  leaving.reset();
  ASSERT_TRUE(waitFor([&] { return server->clientCount() == 1; }));
  server->publish(stream.data() + stream.size() / 2, stream.size() - stream.size() / 2);
  server->drain();
  server.reset();
  reader.join();
  EXPECT_TRUE(got == stream) << got.size() << " of " << stream.size();
  const std::vector<std::string> connected = logged.clientsSaying(" connected");
  ASSERT_EQ(connected.size(), 2u);
  const std::vector<std::string> left = logged.clientsSaying(" left");
  ASSERT_EQ(left.size(), 1u) << "the client that left is said to have left, and only it";
  EXPECT_TRUE(left[0] == connected[0] || left[0] == connected[1]) << left[0];
}

TEST(TraceServer, ClientsBeyondTheMostServedAreRefusedWithALine) {
  Logged logged;
  auto server = std::make_unique<TraceServer>(loopback(), logged.log(), TraceServer::kDefaultClientQueue, 2);
  auto first = std::make_unique<TraceClient>(server->endpoint());
  TraceClient second(server->endpoint());
  ASSERT_TRUE(waitFor([&] { return server->clientCount() == 2; }));
  TraceClient third(server->endpoint());
  std::uint8_t byte = 0;
  EXPECT_EQ(third.read(&byte, 1), 0) << "the third client is closed at once";
  EXPECT_TRUE(logged.anyStartsWith("client 127.0.0.1:"));
  EXPECT_TRUE(
      waitFor([&] { return logged.anyContains(" refused: 2 clients are served already (--serve-max-clients)"); }));
  EXPECT_EQ(server->clientCount(), 2u);
  first.reset();  // room for one again
  ASSERT_TRUE(waitFor([&] { return server->clientCount() == 1; }));
  TraceClient fourth(server->endpoint());
  ASSERT_TRUE(waitFor([&] { return server->clientCount() == 2; }));
  const std::vector<std::uint8_t> stream = bytes(1000, 9);
  server->publish(stream.data(), stream.size());
  server->drain();
  server.reset();
  EXPECT_TRUE(readAll(fourth) == stream);
}

// Out of descriptors, accepting fails; the server says so and accepts
// again once descriptors are free (it used to stop accepting for good).
TEST(TraceServer, AcceptingGoesOnOnceDescriptorsAreFreeAgain) {
  if (!vestrel_test::limitOpenHandles(1000)) {
    GTEST_SKIP() << "Windows has no per-process handle limit to lower; the retry after a failed accept is the same "
                    "code on both platforms";
  }
  if (vestrel_test::sanitizedBuild()) {
    GTEST_SKIP() << "the sanitizers' own runtime needs descriptors too (its type checks read /proc/self/maps) and "
                    "reports nonsense when there are none; the plain stage runs this";
  }
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        Logged logged;
        auto server = std::make_unique<TraceServer>(loopback(), logged.log());
        // The client's socket (and Asio's reactor) made first; then every
        // descriptor is taken: none is left for the server to accept with.
        asio::io_context io;
        asio::ip::tcp::socket client(io);
        asio::error_code error;
        client.open(asio::ip::tcp::v4(), error);
        if (error) std::exit(2);
        vestrel_test::limitOpenHandles(32);
        std::vector<std::FILE*> filler;
        while (std::FILE* file = std::fopen("/dev/null", "rb")) filler.push_back(file);
        if (filler.empty()) std::exit(2);
        client.connect(asio::ip::tcp::endpoint(asio::ip::make_address("127.0.0.1"), server->endpoint().port), error);
        if (error) std::exit(3);
        if (!waitFor([&] { return logged.anyStartsWith("cannot accept a client: "); })) std::exit(4);
        for (std::FILE* file : filler) std::fclose(file);
        if (!waitFor([&] { return logged.anyStartsWith("accepting clients again"); })) std::exit(5);
        if (!waitFor([&] { return server->clientCount() == 1; })) std::exit(6);
        const std::vector<std::uint8_t> stream = bytes(1000, 10);
        server->publish(stream.data(), stream.size());
        server->drain();
        server.reset();
        std::vector<std::uint8_t> got(2000);
        const std::size_t read = asio::read(client, asio::buffer(got), error);
        got.resize(read);
        std::exit(got == stream ? 0 : 7);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(TraceServer, APortThatIsTakenFailsAtOnceWithItsAddress) {
  TraceServer first(loopback(), nullptr);
  const Endpoint taken = first.endpoint();
  try {
    TraceServer second(taken, nullptr);
    FAIL() << "a second server listens on " << taken.text();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()).rfind("cannot serve on " + taken.text() + ": ", 0), 0u) << error.what();
  }
  try {
    TraceServer wrong(Endpoint{"not-an-address", 0}, nullptr);
    FAIL() << "served on no address";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()).rfind("cannot serve on not-an-address:0: ", 0), 0u) << error.what();
  }
}

TEST(TraceClient, ARefusedConnectionSaysWhere) {
  Endpoint closed;
  {
    TraceServer server(loopback(), nullptr);
    closed = server.endpoint();
  }
  try {
    TraceClient client(closed);
    FAIL() << "connected to a closed port";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()).rfind("cannot connect to " + closed.text() + ": ", 0), 0u) << error.what();
  }
}

// The server is fed by following the capture file as the collector writes it.
TEST(CaptureFollower, HandsOnEveryByteOfAGrowingFileInOrder) {
  vestrel_test::ScratchDirectory dir;
  const std::string path = dir.file("capture.bin");
  std::ofstream(path, std::ios::binary).close();
  std::vector<std::uint8_t> seen;
  std::mutex mutex;
  const std::vector<std::uint8_t> stream = bytes(1 << 20, 5);
  {
    CaptureFollower follower(path, [&](const std::uint8_t* data, std::size_t size) {
      std::lock_guard<std::mutex> guard(mutex);
      seen.insert(seen.end(), data, data + size);
    });
    std::ofstream out(path, std::ios::binary | std::ios::app);
    for (std::size_t at = 0; at < stream.size(); at += 10000) {
      out.write(reinterpret_cast<const char*>(&stream[at]),
                static_cast<std::streamsize>(std::min<std::size_t>(10000, stream.size() - at)));
      out.flush();
    }
    out.close();
  }  // the follower reads what is left before it ends
  EXPECT_TRUE(seen == stream) << seen.size() << " of " << stream.size();
}
