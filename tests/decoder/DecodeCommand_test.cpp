// vestrel-decode run as a user runs it, on a capture of the simulated
// target's firmware whose PC samples per function are known: the profile by
// name and line (or, in the Windows build, the message that --elf is not
// available there), the profile as JSON, PC samples named in the text, and
// the timeline and report files.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "CommandStatus.h"
#include "FirmwareLayout.h"
#include "FirmwareSource.h"
#include "ItmProgram.h"
#include "TestSupport.h"

using namespace vestrel_test;
using nlohmann::json;

namespace {

const char* const kElfUnavailable =
    "vestrel-decode: --elf is not available in the Windows build (it reads ELF and DWARF with elfutils, which is "
    "built for Linux only); decode on Linux for function names and lines";

std::string decodeCommand() { return onWindows() ? "vestrel-decode.exe" : "./vestrel-decode"; }

struct CommandRun {
  int exitCode = -1;
  std::string out;
  std::string err;
};

// A capture of 1600 iterations of the simulated firmware: 100 rounds of its
// 16-sample schedule.
class DecodeCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    vestrel::target_simulator::ItmProgram program;
    std::ofstream file(capture(), std::ios::binary);
    for (int i = 0; i < 1600; ++i) file << program.nextIteration();
  }
  std::string capture() const { return scratch_.file("firmware.swo"); }
  std::string file(const std::string& name) const { return scratch_.file(name); }

  CommandRun decode(const std::string& arguments) const { return decodeInput(arguments, capture()); }
  CommandRun decodeInput(const std::string& arguments, const std::string& input) const {
    CommandRun run;
    const std::string out = file("out.txt"), err = file("err.txt");
    const int status = std::system(
        (decodeCommand() + " " + arguments + " \"" + input + "\" > \"" + out + "\" 2> \"" + err + "\"").c_str());
    run.exitCode = commandExitCode(status);
    run.out = readFile(out);
    run.err = readFile(err);
    std::erase(run.out, '\r');
    std::erase(run.err, '\r');
    return run;
  }

  ScratchDirectory scratch_;
};

std::string where(const std::string& function) {
  return "demo_firmware.s:" + std::to_string(firmwareLineAfterLabel(function));
}

TEST_F(DecodeCommand, TheProfileByFunctionAndLine) {
  const CommandRun run = decode("--elf demo-firmware.elf --profile --quiet");
  if (onWindows()) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, std::string(kElfUnavailable) + "\n");
    EXPECT_EQ(run.out, "");
    return;
  }
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const std::uint32_t hot = firmwareLineHolding("the hot spot");
  // filter_sample has 6 samples a round: 3 walk its 23 halfwords (the first
  // 8 five times in 100 rounds, the rest 4 times), 3 walk its loop's 6
  // halfwords (the first 4 seventeen times, the rest 16). The loop's 4-byte
  // load is two halfwords: 3 * (17 + 17) + 3 * (4 + 4) = 126 samples on its
  // line; the add and adds after it 3 * 17 + 3 * 4 = 63 each.
  // main has 2 a round over its 14 halfwords (the first two 8 times, the
  // rest 7): each 4-byte bl is 2 * (7 + 7) = 28; ties stay in line order.
  const std::string mainLoop = std::to_string(firmwareLineAfterLabel("main_loop"));
  EXPECT_EQ(run.out,
            "PC-sample profile: 1600 samples\n"
            " samples        %  function\n"
            "     600   37.50%  filter_sample  " +
                where("filter_sample") +
                "\n"
                "     300   18.75%  read_sensor  " +
                where("read_sensor") +
                "\n"
                "     200   12.50%  main  " +
                where("main") +
                "\n"
                "     200   12.50%  uart_send  " +
                where("uart_send") +
                "\n"
                "     100    6.25%  SysTick_Handler  " +
                where("SysTick_Handler") +
                "\n"
                "     200   12.50%  (core asleep)\n"
                "hottest lines\n"
                "  filter_sample\n"
                "     126    7.88%  demo_firmware.s:" +
                std::to_string(hot) +
                "\n"
                "      63    3.94%  demo_firmware.s:" +
                std::to_string(hot + 1) +
                "\n"
                "      63    3.94%  demo_firmware.s:" +
                std::to_string(hot + 2) +
                "\n"
                "  read_sensor\n"
                "      60    3.75%  " +
                where("read_sensor") +
                "\n"
                "      60    3.75%  demo_firmware.s:" +
                std::to_string(firmwareLineAfterLabel("read_sensor") + 1) +
                "\n"
                "      60    3.75%  demo_firmware.s:" +
                std::to_string(firmwareLineAfterLabel("read_sensor") + 2) +
                "\n"
                "  main\n"
                "      28    1.75%  demo_firmware.s:" +
                mainLoop +
                "\n"
                "      28    1.75%  demo_firmware.s:" +
                std::to_string(std::stoi(mainLoop) + 1) +
                "\n"
                "      28    1.75%  demo_firmware.s:" +
                std::to_string(std::stoi(mainLoop) + 2) + "\n");
}

TEST_F(DecodeCommand, TheProfileAsJson) {
  const CommandRun run = decode("--elf demo-firmware.elf --profile --quiet --json");
  if (onWindows()) {
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, std::string(kElfUnavailable) + "\n");
    return;
  }
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const json profile = json::parse(run.out);
  EXPECT_EQ(profile["kind"], "profile");
  EXPECT_EQ(profile["samples"], 1600);
  EXPECT_EQ(profile["asleep"], 200);
  std::map<std::string, int> counts;
  for (const auto& row : profile["functions"]) counts[row["function"]] = row["samples"];
  EXPECT_EQ(
      counts,
      (std::map<std::string, int>{
          {"filter_sample", 600}, {"main", 200}, {"read_sensor", 300}, {"SysTick_Handler", 100}, {"uart_send", 200}}));
  EXPECT_EQ(profile["functions"][0]["lines"][0]["line"], firmwareLineHolding("the hot spot"));
}

TEST_F(DecodeCommand, WithoutAnElfFileTheProfileIsByAddress) {
  const CommandRun run = decode("--profile --quiet");
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const auto lines = splitLines(run.out, "\n");
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(lines[0], "PC-sample profile: 1600 samples");
  // The hottest addresses: the two halfwords of filter_sample's load and
  // the two instructions after it, 63 samples each; equal counts by name.
  std::uint32_t loop = 0;
  for (const auto& label : vestrel::target_simulator::kFirmwareLabels) {
    if (std::string(label.name) == "filter_sum") loop = label.address;
  }
  char expected[2][40];
  std::snprintf(expected[0], sizeof expected[0], "      63    3.94%%  0x%08X", loop);
  std::snprintf(expected[1], sizeof expected[1], "      63    3.94%%  0x%08X", loop + 2);
  EXPECT_EQ(lines[2], expected[0]);
  EXPECT_EQ(lines[3], expected[1]);
  EXPECT_NE(run.out.find("     200   12.50%  (core asleep)\n"), std::string::npos);
}

TEST_F(DecodeCommand, PcSamplesAreNamedInTheText) {
  const CommandRun run = decode("--elf demo-firmware.elf");
  if (onWindows()) {
    EXPECT_EQ(run.err, std::string(kElfUnavailable) + "\n");
    return;
  }
  ASSERT_EQ(run.exitCode, 0) << run.err;
  // The first sample: filter_sample's first instruction, its push.
  EXPECT_NE(run.out.find("] pc sample 0x0000008C filter_sample (" + where("filter_sample") + ")\n"), std::string::npos)
      << run.out.substr(0, 2000);
}

TEST_F(DecodeCommand, TheHelpSaysWhetherElfFilesCanBeRead) {
  const CommandRun run = decode("--help");
  EXPECT_NE(run.out.find(onWindows() ? "the firmware's ELF file (not available in the Windows build: it has no ELF "
                                       "reader)"
                                     : "the firmware's ELF file: PC values named by function"),
            std::string::npos)
      << run.out;
}

TEST_F(DecodeCommand, TimelineAndReportFiles) {
  const CommandRun run = decode("--quiet --clock 6000000 --ts-prescale 4 --perfetto \"" + file("trace.json") +
                                "\" --html \"" + file("report.html") + "\"");
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const json timeline = json::parse(readFile(file("trace.json")));
  EXPECT_EQ(timeline["metadata"]["time_unit"], "microseconds");
  double last = 0;
  std::map<int, int> open;  // per track
  int nested = 0;
  for (const auto& event : timeline["traceEvents"]) {
    if (event["ph"] == "M") continue;
    const double ts = event["ts"];
    EXPECT_GE(ts, last);
    last = ts;
    if (event["ph"] == "B") {
      if (open[event["tid"]]++ > 0) ++nested;
    }
    if (event["ph"] == "E") {
      EXPECT_GT(open[event["tid"]]--, 0);
    }
  }
  for (const auto& [track, depth] : open) EXPECT_EQ(depth, 0) << track;
  EXPECT_EQ(nested, 100);  // the UART's interrupt pre-empts every other SysTick
  const std::string report = readFile(file("report.html"));
  EXPECT_NE(report.find("<svg id=\"timeline\""), std::string::npos);
  EXPECT_NE(report.find("<pre id=\"port-0\">tick 0\ntick 1\n"), std::string::npos);
  EXPECT_NE(report.find("<td class=\"n\">200</td>"), std::string::npos);  // SysTick's runs
}

// The metadata file beside a capture says how its bytes are read: its clock
// and prescale apply unless the command line gives its own.
TEST_F(DecodeCommand, TheMetadataBesideACaptureGivesItsClockAndPrescale) {
  const CommandRun withFlags = decode("--clock 6000000 --ts-prescale 4");
  const CommandRun prescaleOne = decode("--clock 6000000");
  ASSERT_EQ(withFlags.exitCode, 0) << withFlags.err;
  ASSERT_NE(withFlags.out, prescaleOne.out) << "the prescale changes no time: the test proves nothing";
  std::ofstream(capture() + ".vestrel.json")
      << R"({"format": "vestrel-capture-metadata", "version": 1, "clock_hz": 6000000, "timestamp_prescale": 4})";
  const CommandRun withMetadata = decode("");
  EXPECT_EQ(withMetadata.exitCode, 0) << withMetadata.err;
  EXPECT_EQ(withMetadata.err, "");
  EXPECT_TRUE(withMetadata.out == withFlags.out) << withMetadata.out.substr(0, 400);
  // What the command line says wins.
  const CommandRun overridden = decode("--ts-prescale 1");
  EXPECT_TRUE(overridden.out == prescaleOne.out) << overridden.out.substr(0, 400);
}

TEST_F(DecodeCommand, AFolderStandsForTheOneCaptureWithMetadataInIt) {
  const CommandRun withFlags = decode("--clock 6000000 --ts-prescale 16");
  std::ofstream(capture() + ".vestrel.json")
      << R"({"format": "vestrel-capture-metadata", "version": 1, "clock_hz": 6e6, "timestamp_prescale": 16})";
  const CommandRun fromFolder = decodeInput("", scratch_.path());
  EXPECT_EQ(fromFolder.exitCode, 0) << fromFolder.err;
  EXPECT_TRUE(fromFolder.out == withFlags.out) << fromFolder.out.substr(0, 400);

  std::ofstream(file("second.swo")) << "\x01H";
  std::ofstream(file("second.swo.vestrel.json")) << R"({"format": "vestrel-capture-metadata", "version": 1})";
  const CommandRun twoCaptures = decodeInput("", scratch_.path());
  EXPECT_EQ(twoCaptures.exitCode, 1);
  EXPECT_EQ(twoCaptures.err, "vestrel-decode: " + scratch_.path() + " holds several captures (" + capture() + ", " +
                                 file("second.swo") + "): name one\n");
}

TEST_F(DecodeCommand, ABrokenMetadataFileIsNamedWithWhatIsWrong) {
  std::ofstream(capture() + ".vestrel.json")
      << R"({"format": "vestrel-capture-metadata", "version": 1, "clock_hz": 0})";
  const CommandRun run = decode("");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.err,
            "vestrel-decode: " + capture() + ".vestrel.json: clock_hz 0 is not a clock from 1 kHz to 10 GHz\n");
  EXPECT_EQ(run.out, "");
}

}  // namespace

namespace {

// Port 2: the values 7 and 9; port 0: "Hi"; then a timestamp of 3 cycles.
const std::string kCountersAndText("\x11\x07\x11\x09\x01H\x01i\x01\n\xC0\x03", 12);

}  // namespace

TEST_F(DecodeCommand, CounterPortsAreCounterTracksInTheTimeline) {
  std::ofstream(file("counters.swo"), std::ios::binary) << kCountersAndText;
  const CommandRun run =
      decodeInput("--quiet --counter-ports 2 --perfetto \"" + file("counters.json") + "\"", file("counters.swo"));
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const json timeline = json::parse(readFile(file("counters.json")));
  std::vector<std::string> events;
  for (const auto& event : timeline["traceEvents"]) {
    if (event["ph"] == "M") continue;
    std::string what = event["ph"].get<std::string>() + " " + event["name"].get<std::string>() + " " +
                       std::to_string(event["ts"].get<int>());
    if (event["ph"] == "C") what += " = " + std::to_string(event["args"]["value"].get<int>());
    events.push_back(what);
  }
  EXPECT_EQ(events, (std::vector<std::string>{"C port 2 3 = 7", "C port 2 3 = 9", "i Hi 3"}));
}

TEST_F(DecodeCommand, RawJsonHasAnObjectForEveryPacketToo) {
  std::ofstream(file("raw.swo"), std::ios::binary) << kCountersAndText;
  const CommandRun run = decodeInput("--json --raw", file("raw.swo"));
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.out,
            "{\"kind\":\"instrumentation\",\"offset\":0,\"header\":17,\"port\":2,\"size\":1,\"value\":7,\"cycles\":3,"
            "\"exact\":true}\n"
            "{\"kind\":\"instrumentation\",\"offset\":2,\"header\":17,\"port\":2,\"size\":1,\"value\":9,\"cycles\":3,"
            "\"exact\":true}\n"
            "{\"kind\":\"instrumentation\",\"offset\":4,\"header\":1,\"port\":0,\"size\":1,\"value\":72,\"cycles\":3,"
            "\"exact\":true}\n"
            "{\"kind\":\"instrumentation\",\"offset\":6,\"header\":1,\"port\":0,\"size\":1,\"value\":105,\"cycles\":3,"
            "\"exact\":true}\n"
            "{\"kind\":\"instrumentation\",\"offset\":8,\"header\":1,\"port\":0,\"size\":1,\"value\":10,\"cycles\":3,"
            "\"exact\":true}\n"
            "{\"kind\":\"text\",\"offset\":4,\"port\":0,\"text\":\"Hi\",\"cycles\":3,\"exact\":true}\n"
            "{\"kind\":\"local-timestamp\",\"offset\":10,\"header\":192,\"value\":3,\"tc\":0,\"cycles\":3,"
            "\"exact\":true}\n"
            "{\"kind\":\"text\",\"offset\":0,\"port\":2,\"text\":\"\\u0007\\t\",\"cycles\":3,\"exact\":true}\n");
  // Without --raw, the text lines only.
  EXPECT_EQ(decodeInput("--json", file("raw.swo")).out,
            "{\"kind\":\"text\",\"offset\":4,\"port\":0,\"text\":\"Hi\",\"cycles\":3,\"exact\":true}\n"
            "{\"kind\":\"text\",\"offset\":0,\"port\":2,\"text\":\"\\u0007\\t\",\"cycles\":3,\"exact\":true}\n");
}
