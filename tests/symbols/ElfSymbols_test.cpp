// The demo firmware's ELF file read back: every function where the linker put
// it, and the assembler's line information (as -g) for its instructions.
#include "ElfSymbols.h"

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>
#include <string>

#include "FirmwareLayout.h"
#include "FirmwareSource.h"
#include "MinimalElf.h"
#include "NonRegularFiles.h"
#include "TestSupport.h"

using namespace vestrel::symbols;
using vestrel::target_simulator::kFirmwareFunctions;

namespace {

constexpr const char* kNoElfReader =
    "the Windows build has no ELF reader (elfutils is built for Linux only); "
    "ElfSymbols.TheWindowsBuildSaysWhy asserts its message";

std::uint32_t addressOf(const std::string& name) {
  for (const auto& function : kFirmwareFunctions) {
    if (name == function.name) return function.address;
  }
  throw std::logic_error("no function " + name);
}

TEST(ElfSymbols, TheWindowsBuildSaysWhy) {
  if (elfSymbolsAvailable()) {
    // The Linux build reads ELF files; one that is none is refused by name.
    try {
      loadElfSymbols(VESTREL_DEMO_FIRMWARE_SOURCE);
      FAIL() << "an assembler source was read as an ELF file";
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(error.what(),
                std::string("cannot read symbols from ") + VESTREL_DEMO_FIRMWARE_SOURCE + ": not an ELF file");
    }
    return;
  }
  try {
    loadElfSymbols(VESTREL_DEMO_FIRMWARE);
    FAIL() << "the Windows build read an ELF file";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(),
                 "--elf is not available in the Windows build (it reads ELF and DWARF with elfutils, which is built "
                 "for Linux only); decode on Linux for function names and lines");
  }
}

TEST(ElfSymbols, AMissingFileIsNamed) {
  if (!elfSymbolsAvailable()) GTEST_SKIP() << kNoElfReader;
  try {
    loadElfSymbols("no-such-firmware.elf");
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "cannot read symbols from no-such-firmware.elf: No such file or directory");
  }
}

TEST(ElfSymbols, EveryFunctionWhereTheLinkerPutIt) {
  if (!elfSymbolsAvailable()) GTEST_SKIP() << kNoElfReader;
  const SymbolTable symbols = loadElfSymbols(VESTREL_DEMO_FIRMWARE);
  EXPECT_EQ(symbols.functionCount(), std::size(kFirmwareFunctions));
  for (const auto& function : kFirmwareFunctions) {
    SCOPED_TRACE(function.name);
    // Thumb symbols carry bit 0; the table holds instruction addresses.
    EXPECT_EQ(function.address % 2, 0u);
    ASSERT_NE(symbols.functionAt(function.address), nullptr);
    EXPECT_EQ(symbols.functionAt(function.address)->name, function.name);
    EXPECT_EQ(symbols.functionAt(function.address + function.size - 1)->name, function.name);
    const auto* after = symbols.functionAt(function.address + function.size);
    if (after != nullptr) {
      EXPECT_NE(after->name, function.name);
    }
  }
}

TEST(ElfSymbols, AddressesOutsideEveryFunction) {
  if (!elfSymbolsAvailable()) GTEST_SKIP() << kNoElfReader;
  const SymbolTable symbols = loadElfSymbols(VESTREL_DEMO_FIRMWARE);
  EXPECT_EQ(symbols.functionAt(0x00000000), nullptr);  // the vector table
  EXPECT_EQ(symbols.functionAt(0x0000004C), nullptr);
  // The literal pool after the last function.
  const auto& last = kFirmwareFunctions[std::size(kFirmwareFunctions) - 1];
  EXPECT_EQ(symbols.functionAt(last.address + last.size), nullptr);
  EXPECT_EQ(symbols.functionAt(0x20000000), nullptr);  // RAM
  EXPECT_EQ(symbols.describe(0x20000000), "");
  // A local label is no function: main_loop is inside main.
  EXPECT_EQ(symbols.functionAt(addressOf("main") + 4)->name, "main");
}

TEST(ElfSymbols, LinesAreTheAssemblersLines) {
  if (!elfSymbolsAvailable()) GTEST_SKIP() << kNoElfReader;
  const SymbolTable symbols = loadElfSymbols(VESTREL_DEMO_FIRMWARE);
  ASSERT_GT(symbols.lineRowCount(), 0u);
  // The first instruction of each function is on the line after its label.
  for (const auto& [name, firstInstruction] :
       {std::pair<std::string, std::string>{"read_sensor", "ldr     r1, =sensor_value"},
        {"uart_send", "ldr     r1, =0x40004000"},
        {"idle", "wfi"},
        {"Fault_Handler", "bkpt    #0"}}) {
    SCOPED_TRACE(name);
    const auto line = symbols.lineAt(addressOf(name));
    ASSERT_TRUE(line);
    EXPECT_EQ(line->line, vestrel_test::firmwareLineHolding(firstInstruction));
    EXPECT_EQ(*line->file, VESTREL_DEMO_FIRMWARE_SOURCE);
  }
  // filter_sample's loop: its first instruction is a 4-byte load, 24 bytes
  // in (push, three literal loads, str.w, adds, and, str, two movs: 2+2+2+2+4+2+4+2+2+2).
  const std::uint32_t loop = addressOf("filter_sample") + 24;
  const std::uint32_t hotLine = vestrel_test::firmwareLineHolding("the hot spot: one load per sample");
  ASSERT_NE(hotLine, 0u);
  EXPECT_EQ(symbols.lineAt(loop)->line, hotLine);
  EXPECT_EQ(symbols.lineAt(loop + 2)->line, hotLine);  // inside the same instruction
  EXPECT_EQ(symbols.lineAt(loop + 4)->line, hotLine + 1);
  EXPECT_EQ(symbols.describe(loop), "filter_sample+0x18 (demo_firmware.s:" + std::to_string(hotLine) + ")");
}

TEST(ElfSymbols, ControlCharactersInNamesAreEscaped) {
  if (!elfSymbolsAvailable()) GTEST_SKIP() << kNoElfReader;
  vestrel_test::ScratchDirectory dir;
  const std::string path = dir.file("evil.elf");
  {
    std::ofstream out(path, std::ios::binary);
    out << vestrel_test::minimalElf({{"evil\x1b[2J\x07name", 0x100, 8}, {"plain", 0x108, 4}});
  }
  const SymbolTable symbols = loadElfSymbols(path);
  ASSERT_NE(symbols.functionAt(0x102), nullptr);
  EXPECT_EQ(symbols.functionAt(0x102)->name, "evil\\x1B[2J\\x07name");
  EXPECT_EQ(symbols.describe(0x102), "evil\\x1B[2J\\x07name+0x2");
  EXPECT_EQ(symbols.functionAt(0x108)->name, "plain");
}

TEST(ElfSymbols, AFifoIsRefusedNotWaitedOn) {
  if (!elfSymbolsAvailable()) GTEST_SKIP() << kNoElfReader;
  vestrel_test::ScratchDirectory dir;
  const std::string fifo = dir.file("firmware.elf");
  ASSERT_EQ(vestrel_test::makeFifo(fifo), 0);
  try {
    loadElfSymbols(fifo);
    FAIL() << "no error";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()), "cannot read symbols from " + fifo + ": not a regular file");
  }
}

}  // namespace
