// The --device file: what it describes, and every fault named with the
// file, the line and the reason; only regular files of bounded size.
#include "DeviceFile.h"

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>

#include "NonRegularFiles.h"
#include "TestSupport.h"
#include "ThrownText.h"

using namespace vestrel::device_file;
using vestrel_test::thrownText;

namespace {

std::string faultOf(const std::string& text) {
  return thrownText<std::invalid_argument>([&] { parseDeviceText(text, "dev.txt"); });
}

TEST(DeviceFile, TheIdAndTheRegistersInTheScenarioForm) {
  const DeviceDescription device = parseDeviceText(
      "# the demo's device\r\n"
      "device_id = 0x0B9AF02F\n"
      "\n"
      "  register MOD_SYSCLK CSCTL0 = 0x20002000  \n"
      "register MOD_SYSCLK TLVBASE = 536879360",
      "dev.txt");
  EXPECT_EQ(device.deviceId, 0x0B9AF02Fu);
  ASSERT_EQ(device.registers.size(), 2u);
  EXPECT_EQ(device.registers[1].address, 0x20002100u);
  EXPECT_EQ(scenarioLines(device),
            "device_id = 0x0B9AF02F\n"
            "register MOD_SYSCLK CSCTL0 = 0x20002000\n"
            "register MOD_SYSCLK TLVBASE = 0x20002100\n");
}

TEST(DeviceFile, NumbersMustFitInThirtyTwoBits) {
  EXPECT_EQ(faultOf("device_id = 0x1FFFFFFFF\n"),
            "dev.txt:1: device_id 0x1FFFFFFFF is not a 32-bit number (decimal or 0x hex)");
  EXPECT_EQ(faultOf("device_id = 4294967296\n"),
            "dev.txt:1: device_id 4294967296 is not a 32-bit number (decimal or 0x hex)");
  EXPECT_EQ(faultOf("device_id = zz\n"), "dev.txt:1: device_id zz is not a 32-bit number (decimal or 0x hex)");
  EXPECT_EQ(faultOf("device_id = 1\nregister M R = -1\n"),
            "dev.txt:2: the address of M R, -1, is not a 32-bit number (decimal or 0x hex)");
  EXPECT_EQ(faultOf("device_id = 1\nregister M R = 0xFFFFFFFFFFFF\n"),
            "dev.txt:2: the address of M R, 0xFFFFFFFFFFFF, is not a 32-bit number (decimal or 0x hex)");
  EXPECT_EQ(faultOf("device_id = 1\nregister M R = 12abc\n"),
            "dev.txt:2: the address of M R, 12abc, is not a 32-bit number (decimal or 0x hex)");
  EXPECT_EQ(parseDeviceText("device_id = 4294967295\n", "dev.txt").deviceId, 0xFFFFFFFFu);
}

TEST(DeviceFile, LinesOfNoKnownFormAreNamed) {
  EXPECT_EQ(faultOf("device_id 1\n"), "dev.txt:1: 'device_id 1' has no '='");
  EXPECT_EQ(faultOf("device_id = 1\nmemory 0x0 = 1\n"),
            "dev.txt:2: 'memory 0x0 = 1' is neither 'device_id = NUMBER' nor 'register MODULE NAME = ADDRESS'");
  EXPECT_EQ(faultOf("device_id = 1\nregister M = 1\n"),
            "dev.txt:2: 'register M = 1' is neither 'device_id = NUMBER' nor 'register MODULE NAME = ADDRESS'");
  EXPECT_EQ(faultOf("device_id = 1\nregister M\x1b[2J R = 1\n"),
            "dev.txt:2: 'register M\\x1B[2J R = 1' is neither 'device_id = NUMBER' nor 'register MODULE NAME = "
            "ADDRESS'");
  EXPECT_EQ(faultOf("device_id = 1\ndevice_id = 2\n"), "dev.txt:2: a second device_id");
  EXPECT_EQ(faultOf("# nothing\n"), "dev.txt: no device_id line");
}

TEST(DeviceFile, LinesAndTheirNumberAreBounded) {
  EXPECT_EQ(faultOf("device_id = 1\n# " + std::string(300, 'x') + "\n"), "dev.txt:2: a line of 302 bytes; at most 256");
  std::string many = "device_id = 1\n";
  for (int i = 0; i < 1000; ++i) many += "# comment\n";
  EXPECT_EQ(faultOf(many), "dev.txt:1001: more than 1000 lines; a device file is a few");
}

TEST(DeviceFile, OnlyARegularFileOfBoundedSizeIsRead) {
  vestrel_test::ScratchDirectory dir;
  EXPECT_EQ(thrownText<std::invalid_argument>([&] { readDeviceFile(dir.path()); }),
            dir.path() + ": not a regular file (a device file is read whole, so not a FIFO or device)");
  const std::string big = dir.file("big.txt");
  {
    std::ofstream out(big, std::ios::binary);
    out << "device_id = 1\n" << std::string(kMaxDeviceFileBytes, '#');
  }
  EXPECT_EQ(thrownText<std::invalid_argument>([&] { readDeviceFile(big); }),
            big + ": larger than 64 KiB; a device file is a few lines");
  const std::string missing = dir.file("missing.txt");
  EXPECT_EQ(thrownText<std::invalid_argument>([&] { readDeviceFile(missing); }).rfind(missing + ": ", 0), 0u);
  const std::string good = dir.file("good.txt");
  {
    std::ofstream out(good, std::ios::binary);
    out << "device_id = 7\n";
  }
  EXPECT_EQ(readDeviceFile(good).deviceId, 7u);
}

TEST(DeviceFile, AnEndlessDeviceIsRefusedWithoutReadingIt) {
  if (vestrel_test::onWindows()) GTEST_SKIP() << "Windows has no /dev/zero; the directory case covers the check there";
  EXPECT_EQ(thrownText<std::invalid_argument>([&] { readDeviceFile("/dev/zero"); }),
            "/dev/zero: not a regular file (a device file is read whole, so not a FIFO or device)");
}

TEST(DeviceFile, AFifoIsRefusedNotWaitedOn) {
  if (vestrel_test::onWindows())
    GTEST_SKIP() << "Windows has no FIFOs in the file system; the directory case covers it";
  vestrel_test::ScratchDirectory dir;
  const std::string fifo = dir.file("device.txt");
  ASSERT_EQ(vestrel_test::makeFifo(fifo), 0);
  EXPECT_EQ(thrownText<std::invalid_argument>([&] { readDeviceFile(fifo); }),
            fifo + ": not a regular file (a device file is read whole, so not a FIFO or device)");
}

}  // namespace
