// vestrel-host record, run as a user runs it: a separate process that opens
// COM7 while this test plays the probe's end of the line.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "CommandStatus.h"
#include "Endpoint.h"
#include "LoopbackListener.h"
#include "RecordRun.h"
#include "SerialLine.h"
#include "TestSupport.h"
#include "TraceClient.h"

using namespace vestrel_test;
namespace fs = std::filesystem;

TEST(RecordCommand, KeepsEveryByteFromTheCommandLinesPortClockAndPrescaler) {
  const Recording run = runRecord("--port COM7 --clock 6000000 --prescaler 5 --seconds 2", "record-manual");
  EXPECT_EQ(run.exitCode, 0) << run.printed;
  expectOneUnbrokenRunOfWhatWasSent(run);
  EXPECT_EQ(printedLine(run.printed, "recording:"), "recording: Recording");
  EXPECT_EQ(printedLine(run.printed, "recording ended:"), "recording ended: its time was up (--seconds)");
  EXPECT_EQ(run.printed.find("nothing arrived"), std::string::npos) << run.printed;
  EXPECT_EQ(printedLine(run.printed, "stopped:"),
            "stopped: Stopped by user, " + std::to_string(run.dump.size() / 8) + " samples");
  EXPECT_EQ(printedLine(run.printed, "saved"), "saved record-manual.bin");
  // Not a terminal: no live counter.
  EXPECT_EQ(run.printed.find(" bytes/s"), std::string::npos);
  const std::string used = readFile("vestrel-record" + sep() + "options.xml");
  EXPECT_NE(used.find("<COMPORT>7</COMPORT>"), std::string::npos) << used;
  EXPECT_NE(used.find("<PRESCALARVAL>5</PRESCALARVAL>"), std::string::npos) << used;

  // What record captured exports from its folder, byte for byte.
  std::error_code ignored;
  fs::remove("record-export.bin", ignored);
  const int exported = std::system((hostCommand() + " export --from vestrel-record --binary record-export.bin > "
                                                    "record-export.out 2>&1")
                                       .c_str());
  EXPECT_EQ(exported, 0) << readFile("record-export.out");
  EXPECT_TRUE(readFile("record-export.bin") == run.dump) << "the export differs from the recorded dump";
  EXPECT_NE(used.find("<RCVRFWVER>V 1.0.0.5</RCVRFWVER>"), std::string::npos) << used;
}

// How the bytes are read travels with them: the receiver's timestamp prescale
// (4 by default) and the command line's clock reach the live view and the
// metadata file beside the capture, so vestrel-decode needs no options.
TEST(RecordCommand, TheCaptureDecodesWithTheRecordingsClockAndPrescaleWithoutOptions) {
  const Recording run = runRecord("--port 7 --clock 6000000 --prescaler 5 --seconds 2 --decode", "record-metadata");
  ASSERT_EQ(run.exitCode, 0) << run.printed;
  EXPECT_EQ(readFile("record-metadata.bin.vestrel.json"),
            "{\n  \"format\": \"vestrel-capture-metadata\",\n  \"version\": 1,\n  \"clock_hz\": 6000000.0,\n"
            "  \"timestamp_prescale\": 4,\n  \"tpiu_id\": null,\n  \"container\": \"raw\",\n  \"elf\": \"\",\n"
            "  \"recorded_by\": \"vestrel-host record\"\n}\n");
  EXPECT_EQ(printedLine(run.printed, "decode it:"), "decode it: vestrel-decode record-metadata.bin");
  const auto decoded = [](const std::string& options, const std::string& out) {
    std::system((decodeCommand() + " " + options + " record-metadata.bin > " + out + " 2>&1").c_str());
    std::string text = readFile(out);
    std::erase(text, '\r');
    return text;
  };
  const std::string plain = decoded("", "record-metadata-plain.out");
  EXPECT_TRUE(plain == decoded("--clock 6000000 --ts-prescale 4", "record-metadata-flags.out")) << plain.substr(0, 300);
  EXPECT_FALSE(plain == decoded("--clock 6000000 --ts-prescale 1", "record-metadata-one.out"))
      << "the prescale changes no time here: the test proves nothing";
  // The live view shows stimulus text (no event unless asked), dated as
  // the file decodes it.
  std::string printed = run.printed;
  std::erase(printed, '\r');
  const auto firstLineWith = [](const std::string& text, const std::string& part) {
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = text.find('\n', at);
      const std::string line = text.substr(at, end - at);
      if (line.rfind("[", 0) == 0 && line.find(part) != std::string::npos) return line;
      if (end == std::string::npos) break;
      at = end + 1;
    }
    return std::string();
  };
  const std::string firstText = firstLineWith(plain, "] port ");
  ASSERT_NE(firstText, "") << plain.substr(0, 300);
  EXPECT_EQ(firstLineWith(printed, "] port "), firstText);
  ASSERT_NE(firstLineWith(plain, "] pc sample "), "") << "no PC sample in the capture: the test proves nothing";
  EXPECT_EQ(firstLineWith(printed, "] pc sample "), "") << "an event was shown without --decode-events";
}

// --decode-events shows every event too, dated as the file decodes it.
TEST(RecordCommand, TheLiveViewShowsEventsWhenAskedFor) {
  const Recording run =
      runRecord("--port 7 --clock 6000000 --prescaler 5 --seconds 2 --decode-events --force", "record-events");
  ASSERT_EQ(run.exitCode, 0) << run.printed;
  std::system((decodeCommand() + " record-events.bin > record-events-file.out 2>&1").c_str());
  std::string decoded = readFile("record-events-file.out");
  std::erase(decoded, '\r');
  std::string printed = run.printed;
  std::erase(printed, '\r');
  const auto linesWith = [](const std::string& text, const std::string& part) {
    std::vector<std::string> found;
    for (std::size_t at = 0; at < text.size() && found.size() < 5;) {
      const std::size_t end = text.find('\n', at);
      const std::string line = text.substr(at, end - at);
      if (line.rfind("[", 0) == 0 && line.find(part) != std::string::npos) found.push_back(line);
      if (end == std::string::npos) break;
      at = end + 1;
    }
    return found;
  };
  // The first PC samples and exceptions, as the file has them.
  for (const char* event : {"] pc sample ", "] exception "}) {
    const std::vector<std::string> fromFile = linesWith(decoded, event);
    ASSERT_FALSE(fromFile.empty()) << event << ": none in the capture, the test proves nothing";
    EXPECT_EQ(linesWith(printed, event), fromFile) << event;
  }
}

TEST(RecordCommand, StartsFromAnOptionsFileAndCalibratesTheAutoPrescaler) {
  {
    std::ofstream options("record-options.xml");
    options << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<CHANNEL-SETUP>\n<VERSION version=\"1.1.0.0\"/>\n"
               "<RCVRNAME>SWO Trace</RCVRNAME>\n<RCVRFWVER>V 1.0.0.9</RCVRFWVER>\n<ENCTYPE>UART</ENCTYPE>\n"
               "<PRESCALAR>Manual</PRESCALAR>\n<PRESCALARVAL>11</PRESCALARVAL>\n<CLKFREQ>Manual</CLKFREQ>\n"
               "<CLKFREQVAL>12000000</CLKFREQVAL>\n<COMPORT>7</COMPORT>\n<TSPRESCALAR>4</TSPRESCALAR>\n"
               "</CHANNEL-SETUP>\n";
  }
  const Recording run = runRecord("--options record-options.xml --prescaler auto --seconds 2", "record-options");
  EXPECT_EQ(run.exitCode, 0) << run.printed;
  expectOneUnbrokenRunOfWhatWasSent(run);
  // What the receiver recorded with: the file's port and clock, the command
  // line's prescaler mode.
  const std::string used = readFile("vestrel-record" + sep() + "options.xml");
  EXPECT_NE(used.find("<PRESCALAR>Auto</PRESCALAR>"), std::string::npos) << used;
  EXPECT_NE(used.find("<CLKFREQVAL>12000000</CLKFREQVAL>"), std::string::npos) << used;
  EXPECT_NE(used.find("<COMPORT>7</COMPORT>"), std::string::npos) << used;
}

// /dev/full is a device natively, and under Wine a name the C library opens
// but the file system does not show: either way it is refused before
// anything is recorded, with its path and why.
TEST(RecordCommand, AnOutputThatCannotHoldTheDumpEndsTheCommandWithItsPathAndWhy) {
  const std::string out = "record-full.out";
  const int status = std::system(
      (hostCommand() + " record --port 7 --clock 6000000 --seconds 1 --output /dev/full > " + out + " 2>&1").c_str());
  EXPECT_EQ(commandExitCode(status), 2);
  std::string printed = readFile(out);
  std::erase(printed, '\r');
  EXPECT_EQ(printed,
            "vestrel-host: cannot write /dev/full: not a regular file, so what reaches it could not be checked\n");
}

// A dump that cannot be saved (its file system fills up) ends the command
// with the path, and says where the capture still is and how to get it.
TEST(RecordCommand, ASaveThatFailsSaysWhereTheCaptureStillIs) {
  const char* small = std::getenv("VESTREL_SMALL_FS");
  ASSERT_NE(small, nullptr) << "run through scripts/with-small-filesystem";
  // About 600 KB at 50 KB/s, for a 256 KiB file system: more than it holds
  // even when a loaded machine feeds the line at half the rate.
  const std::string output = std::string(small) + "/record-small.bin";
  const Recording run =
      runHost("record --port 7 --clock 6000000 --prescaler 5 --seconds 12", "record-small", nullptr, output);
  EXPECT_EQ(run.exitCode, 1) << run.printed;
  const std::string capture = (fs::absolute("vestrel-record") / ".KV-trace" / "data" / "swotrace_Core.bin").string();
  EXPECT_EQ(printedLine(run.printed, "vestrel-host: " + output + " was not saved"),
            "vestrel-host: " + output + " was not saved; the capture is still in " + capture +
                ": vestrel-host export --from vestrel-record --binary <file>")
      << run.printed;
  EXPECT_GT(fileLength(capture), 256 * 1024) << "the capture fitted on the small file system: the test proves nothing";
}

// Three clients of the live stream at once: two vestrel-decode --connect and
// a raw socket. Each gets the capture from the moment it connected to its end.
TEST(RecordCommand, ServesTheRawStreamToEveryClientFromWhenItConnected) {
  std::vector<std::uint8_t> raw;
  std::thread rawReader;
  std::thread decoders[2];
  int decoded[2] = {-1, -1};
  const Recording run = runRecord(
      "--port 7 --clock 6000000 --prescaler 5 --seconds 3 --serve 0", "record-serve", [&](const std::string& port) {
        rawReader = std::thread([&raw, port] {
          vestrel::trace_server::TraceClient client(
              vestrel::trace_server::Endpoint{"127.0.0.1", static_cast<std::uint16_t>(std::stoi(port))});
          std::vector<std::uint8_t> block(65536);
          for (long n; (n = client.read(block.data(), block.size())) > 0;)
            raw.insert(raw.end(), block.begin(), block.begin() + n);
        });
        for (int i = 0; i < 2; ++i) {
          decoders[i] = std::thread([&decoded, i, port] {
            decoded[i] = std::system((decodeCommand() + " --connect " + port + " --stats --quiet > record-serve-" +
                                      std::to_string(i) + ".out 2>&1")
                                         .c_str());
          });
        }
      });
  if (rawReader.joinable()) rawReader.join();
  for (auto& decoder : decoders) {
    if (decoder.joinable()) decoder.join();
  }
  EXPECT_EQ(run.exitCode, 0) << run.printed;
  const std::string capture = withoutPadding(run.dump);
  ASSERT_GE(raw.size(), 10000u) << "the raw client got too little";
  ASSERT_LE(raw.size(), capture.size());
  EXPECT_TRUE(std::equal(raw.begin(), raw.end(), capture.end() - static_cast<std::ptrdiff_t>(raw.size()),
                         [](std::uint8_t a, char b) { return a == static_cast<std::uint8_t>(b); }))
      << "the raw client's bytes are not the end of the capture";
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(decoded[i], 0) << readFile("record-serve-" + std::to_string(i) + ".out");
    const std::string bytesLine = printedLine(readFile("record-serve-" + std::to_string(i) + ".out"), "bytes: ");
    ASSERT_FALSE(bytesLine.empty());
    const std::uint64_t bytes = std::stoull(bytesLine.substr(7));
    EXPECT_GE(bytes, 10000u);
    EXPECT_LE(bytes, capture.size());
  }
  EXPECT_NE(run.printed.find("vestrel-host: client 127.0.0.1:"), std::string::npos) << run.printed;
}

TEST(RecordCommand, AServePortThatIsTakenFailsAtOnce) {
  LoopbackListener taken;
  const std::string port = std::to_string(taken.port());
  const std::string out = "record-taken.out";
  const int status = std::system(
      (hostCommand() + " record --port 7 --clock 6000000 --seconds 1 --serve " + port + " > " + out + " 2>&1").c_str());
  EXPECT_NE(status, 0);
  const std::string printed = readFile(out);
  EXPECT_NE(printed.find("vestrel-host: cannot serve on 127.0.0.1:" + port + ": "), std::string::npos) << printed;
  EXPECT_EQ(printed.find("recording:"), std::string::npos) << "recorded although it could not serve";
}

// A line that carries nothing: the recording says so and what usually
// causes it, and still saves its (empty) capture.
TEST(RecordCommand, ARecordingThatReceivesNothingSaysWhyThatUsuallyIs) {
  vestrel::target_simulator::SerialLine line(7);
  ASSERT_TRUE(line.ready()) << line.why();
  std::error_code ignored;
  fs::remove("record-silent.bin", ignored);
  const std::string out = "record-silent.out";
  const int status = std::system(
      (hostCommand() + " record --port 7 --clock 6000000 --seconds 1 --output record-silent.bin > " + out + " 2>&1")
          .c_str());
  std::string printed = readFile(out);
  std::erase(printed, '\r');
  EXPECT_EQ(status, 0) << printed;
  EXPECT_NE(printed.find("stopped: Stopped by user, 0 samples\n"), std::string::npos) << printed;
  EXPECT_NE(printed.find("vestrel-host: nothing arrived on the port. Likely causes:\n"
                         "  - the baud rate: the line runs at trace clock / (prescaler + 1); check --clock and "
                         "--prescaler\n"),
            std::string::npos)
      << printed;
  EXPECT_NE(printed.find("  - the wrong port: `vestrel-host ports` lists the probes' serial ports\n"),
            std::string::npos)
      << printed;
  EXPECT_EQ(readFile("record-silent.bin"), "");
}

TEST(RecordCommand, RefusesToStartWithoutATraceClock) {
  const std::string out = "record-noclock.out";
  const int status = std::system((hostCommand() + " record --port 7 --seconds 1 > " + out + " 2>&1").c_str());
  EXPECT_NE(status, 0);
  std::string printed = readFile(out);
  std::erase(printed, '\r');
  EXPECT_EQ(printed, "vestrel-host: give the trace clock with --clock\n");
}

namespace {

// The stimulus ports of the dated text lines ("[..] port N: ...") in text.
std::set<int> portsOfLines(std::string text) {
  std::erase(text, '\r');
  static const std::regex kLine("\\[[0-9]+\\](\\[[0-9.]+ s\\])? port ([0-9]+): .*");
  std::set<int> ports;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (std::regex_match(line, match, kLine)) ports.insert(std::stoi(match[2]));
  }
  return ports;
}

}  // namespace

// --decode-ports: the live view shows those ports' text only, though the
// capture holds text of others. The line carries random bytes: ports 0 to
// 15 are asked for so that some of their text is surely there.
TEST(RecordCommand, TheLiveViewShowsOnlyThePortsAskedFor) {
  const Recording run = runRecord(
      "--port 7 --clock 6000000 --prescaler 5 --seconds 2 --decode-ports 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 --force",
      "record-ports");
  ASSERT_EQ(run.exitCode, 0) << run.printed;
  std::system((decodeCommand() + " record-ports.bin > record-ports-decoded.out 2>&1").c_str());
  const std::set<int> inTheCapture = portsOfLines(readFile("record-ports-decoded.out"));
  ASSERT_FALSE(inTheCapture.empty()) << "no text in the capture: the test proves nothing";
  ASSERT_GE(*inTheCapture.rbegin(), 16) << "no text of other ports in the capture: the test proves nothing";
  const std::set<int> shown = portsOfLines(run.printed);
  ASSERT_FALSE(shown.empty()) << run.printed.substr(0, 2000);
  EXPECT_LE(*shown.rbegin(), 15) << "text of a port not asked for was shown";
  for (const int port : shown) EXPECT_EQ(inTheCapture.count(port), 1u) << port;
}
