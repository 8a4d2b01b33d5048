// The PC-sample profile: exact counts by function on a simulated capture
// whose samples per function are known, the table and JSON as written, the
// samples counted apart, and the bound on distinct addresses.
#include "Profile.h"

#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "ElfSymbols.h"
#include "FirmwareLayout.h"
#include "FirmwareSource.h"
#include "ItmProgram.h"

using namespace vestrel::decoder;
using vestrel::symbols::SymbolTable;
using vestrel::target_simulator::ItmProgram;
using vestrel::target_simulator::kFirmwareFunctions;

namespace {

// The demo firmware's functions as the linker placed them (names only).
SymbolTable firmwareFunctions() {
  std::vector<vestrel::symbols::FunctionSymbol> functions;
  for (const auto& f : kFirmwareFunctions) functions.push_back({f.name, f.address, f.size});
  return SymbolTable(functions, {}, {});
}

Packet pcSample(std::uint32_t pc) {
  Packet p;
  p.kind = PacketKind::PcSample;
  p.value = pc;
  return p;
}

Packet sleepSample(std::uint8_t payload = 0) {
  Packet p;
  p.kind = PacketKind::PcSleep;
  p.sleepPayload = payload;
  return p;
}

SymbolTable smallTable() {
  return SymbolTable({{"loop", 0x100, 0x10}, {"handler", 0x200, 0x8}}, {"/src/fw.s"},
                     {{0x100, 0, 7, false}, {0x104, 0, 8, false}, {0x110, 0, 0, true}});
}

// The profile of the simulated firmware's first iterations.
Profile profileOfSimulation(ItmProgram& program, int iterations) {
  Profile profile;
  ItmDecoder decoder([&](const Packet& p) { profile.add(p); });
  for (int i = 0; i < iterations; ++i) decoder.feed(program.nextIteration());
  decoder.finish();
  return profile;
}

TEST(Profile, CountsBySimulatedFunctionAreExact) {
  ItmProgram program;
  const Profile profile = profileOfSimulation(program, 4000);

  std::map<std::string, std::uint64_t> sent;
  const SymbolTable symbols = firmwareFunctions();
  for (const auto& [pc, count] : program.pcSamplesSent()) sent[symbols.functionAt(pc)->name] += count;
  // 4000 iterations, 16 samples a round: each weight 250 times over.
  EXPECT_EQ(
      sent,
      (std::map<std::string, std::uint64_t>{
          {"filter_sample", 1500}, {"main", 500}, {"read_sensor", 750}, {"SysTick_Handler", 250}, {"uart_send", 500}}));

  const ProfileReport report = profile.report(&symbols);
  EXPECT_EQ(report.samples, 4000u);
  EXPECT_EQ(report.asleep, 500u);
  EXPECT_EQ(report.asleep, program.sleepSamplesSent());
  std::map<std::string, std::uint64_t> counted;
  for (const ProfileRow& row : report.rows) counted[row.function] = row.samples;
  EXPECT_EQ(counted, sent);
  // Hottest first; main and uart_send tie and stay in name order.
  ASSERT_EQ(report.rows.size(), 5u);
  EXPECT_EQ(report.rows[0].function, "filter_sample");
  EXPECT_EQ(report.rows[1].function, "read_sensor");
  EXPECT_EQ(report.rows[2].function, "main");
  EXPECT_EQ(report.rows[3].function, "uart_send");
  EXPECT_EQ(report.rows[4].function, "SysTick_Handler");
}

TEST(Profile, TheTableAsWritten) {
  Profile profile;
  for (int i = 0; i < 5; ++i) profile.add(pcSample(0x104));
  for (int i = 0; i < 2; ++i) profile.add(pcSample(0x100));
  profile.add(pcSample(0x10E));
  for (int i = 0; i < 3; ++i) profile.add(pcSample(0x204));
  profile.add(pcSample(0x300));
  for (int i = 0; i < 2; ++i) profile.add(sleepSample());
  profile.add(sleepSample(0xFF));
  const SymbolTable symbols = smallTable();
  OutputBuffer out;
  writeProfile(out, profile.report(&symbols));
  EXPECT_EQ(out.text(),
            "PC-sample profile: 15 samples\n"
            " samples        %  function\n"
            "       8   53.33%  loop  fw.s:7\n"
            "       3   20.00%  handler\n"
            "       1    6.67%  (outside every function)\n"
            "       2   13.33%  (core asleep)\n"
            "       1    6.67%  (sampling prohibited)\n"
            "hottest lines\n"
            "  loop\n"
            "       6   40.00%  fw.s:8\n"
            "       2   13.33%  fw.s:7\n");
}

TEST(Profile, TheJsonObject) {
  Profile profile;
  for (int i = 0; i < 3; ++i) profile.add(pcSample(0x104));
  profile.add(pcSample(0x204));
  profile.add(sleepSample());
  const SymbolTable symbols = smallTable();
  OutputBuffer out;
  writeProfileJson(out, profile.report(&symbols));
  EXPECT_EQ(out.text(),
            "{\"kind\":\"profile\",\"samples\":5,\"asleep\":1,\"prohibited\":0,\"beyond_limit\":0,\"functions\":["
            "{\"function\":\"loop\",\"samples\":3,\"percent\":60,\"file\":\"fw.s\",\"line\":7,\"lines\":["
            "{\"file\":\"fw.s\",\"line\":8,\"samples\":3}]},"
            "{\"function\":\"handler\",\"samples\":1,\"percent\":20,\"lines\":[]}]}\n");
  EXPECT_EQ(nlohmann::json::parse(out.text())["functions"][0]["percent"], 60);
}

TEST(Profile, WithoutSymbolsEveryAddressIsARow) {
  Profile profile;
  profile.add(pcSample(0x08000104));
  profile.add(pcSample(0x08000104));
  profile.add(pcSample(0x08000100));
  OutputBuffer out;
  writeProfile(out, profile.report(nullptr));
  EXPECT_EQ(out.text(),
            "PC-sample profile: 3 samples\n"
            " samples        %  function\n"
            "       2   66.67%  0x08000104\n"
            "       1   33.33%  0x08000100\n");
}

TEST(Profile, NoSamplesSaysSo) {
  Profile profile;
  OutputBuffer out;
  writeProfile(out, profile.report(nullptr));
  EXPECT_EQ(out.text(), "PC-sample profile: 0 samples\n");
}

TEST(Profile, RowsPastTheMaximumAreSummedAsMore) {
  Profile profile;
  for (std::uint32_t i = 0; i < 4; ++i) {
    for (std::uint32_t n = 0; n <= i; ++n) profile.add(pcSample(0x1000 + 4 * i));
  }
  OutputBuffer out;
  writeProfile(out, profile.report(nullptr), 2);
  EXPECT_EQ(out.text(),
            "PC-sample profile: 10 samples\n"
            " samples        %  function\n"
            "       4   40.00%  0x0000100C\n"
            "       3   30.00%  0x00001008\n"
            "       3   30.00%  (2 more)\n");
}

TEST(Profile, DistinctAddressesAreBounded) {
  Profile profile;
  for (std::uint32_t i = 0; i < Profile::kMaxAddresses + 5; ++i) profile.add(pcSample(i * 2));
  profile.add(pcSample(0));  // an address already counted still counts
  const ProfileReport report = profile.report(nullptr);
  EXPECT_EQ(report.samples, Profile::kMaxAddresses + 6);
  EXPECT_EQ(report.beyondLimit, 5u);
  EXPECT_EQ(report.rows.size(), Profile::kMaxAddresses);
  EXPECT_EQ(report.rows[0].function, "0x00000000");
  EXPECT_EQ(report.rows[0].samples, 2u);
  OutputBuffer out;
  writeProfile(out, report, 1);
  EXPECT_NE(out.text().find("       5    0.00%  (at addresses past the profile's limit of 262144)\n"),
            std::string::npos)
      << out.text();
}

}  // namespace

namespace {

TEST(Profile, HottestLinesOfTheFirmwareAreTheAssemblersLines) {
  if (!vestrel::symbols::elfSymbolsAvailable()) {
    GTEST_SKIP() << "the Windows build has no ELF reader (elfutils is built for Linux only); "
                    "Profile.CountsBySimulatedFunctionAreExact covers the counts there";
  }
  const SymbolTable symbols = vestrel::symbols::loadElfSymbols(VESTREL_DEMO_FIRMWARE);
  ItmProgram program;
  const Profile profile = profileOfSimulation(program, 4000);
  const ProfileReport report = profile.report(&symbols);
  const ProfileRow& hottest = report.rows.at(0);
  ASSERT_EQ(hottest.function, "filter_sample");
  ASSERT_EQ(hottest.hottestLines.size(), 3u);
  // The counts by hand, from the simulator's schedule and the assembled
  // code, not from the symbol table. 250 rounds of 16 samples; in each,
  // filter_sample is sampled 6 times: 3 in its summing loop (12 bytes: ldr.w,
  // add, adds, cmp, bne) and 3 anywhere in it (46 bytes), each at offset
  // 2 * round. The loop's offsets 0 and 2 (the 4-byte ldr.w) come in rounds
  // 0 and 1 of every 6 (42 + 42 of the 250), offset 4 (add) and 6 (adds) in
  // 42 each; the whole function reaches the loop's ldr.w at offsets 24 and
  // 26, add at 28 and adds at 30, in 11 rounds each of every 23.
  const std::uint32_t hotLine = vestrel_test::firmwareLineHolding("the hot spot");
  const std::uint32_t addLine = vestrel_test::firmwareLineHolding("add     r4, r4, r3");
  const std::uint32_t countLine = vestrel_test::firmwareLineHolding("adds    r5, r5, #1");
  std::vector<std::pair<std::uint32_t, std::uint64_t>> lines;
  for (const ProfileLine& line : hottest.hottestLines) {
    EXPECT_EQ(line.file, "demo_firmware.s");
    lines.emplace_back(line.line, line.samples);
  }
  EXPECT_EQ(lines, (std::vector<std::pair<std::uint32_t, std::uint64_t>>{
                       {hotLine, 3 * (42 + 42) + 3 * (11 + 11)},  // 318
                       {addLine, 3 * 42 + 3 * 11},                // 159
                       {countLine, 3 * 42 + 3 * 11}}));           // 159, after the add by line
  EXPECT_EQ(hottest.line, hotLine - 11);                          // where filter_sample begins: its push
}

}  // namespace
