// DTR and RTS on the Linux serial port. A pseudo-terminal, the only serial
// device here, has no modem lines, so a recorder stands in for the driver of
// a USB serial port: it answers the modem-line requests and passes every
// other terminal request to the kernel.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "SerialPort.h"
#include "TestLog.h"
#include "TestSupport.h"
#include "UARTDataCollector.h"
#include "posix/tty_requests.h"

using namespace Kv::Orv::Trace::Vestrel;
using Strings = std::vector<std::string>;

namespace {

class ModemLineRecorder : public tty::TtyRequests {
 public:
  int lines = TIOCM_DTR | TIOCM_RTS;  // as a USB serial driver leaves them on opening
  Strings requests;

  int request(int fd, unsigned long code, void* argument) override {
    if (code == TIOCMGET) {
      *static_cast<int*>(argument) = lines;
      return 0;
    }
    if (code == TIOCMBIS || code == TIOCMBIC) {
      const int bits = *static_cast<int*>(argument);
      requests.push_back(std::string(code == TIOCMBIS ? "raise" : "drop") + (bits == TIOCM_DTR   ? " DTR"
                                                                             : bits == TIOCM_RTS ? " RTS"
                                                                                                 : " other"));
      lines = code == TIOCMBIS ? (lines | bits) : (lines & ~bits);
      return 0;
    }
    return tty::kernelTtyRequests().request(fd, code, argument);
  }
};

// A pseudo-terminal that the serial port opens as COM42.
class PseudoTerminal {
 public:
  PseudoTerminal() {
    master_ = posix_openpt(O_RDWR | O_NOCTTY);
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) return;
    std::filesystem::create_symlink(ptsname(master_), dir_.file("COM42"));
  }
  ~PseudoTerminal() {
    if (master_ >= 0) close(master_);
  }
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;
  bool ready() const { return master_ >= 0 && vestrel_test::fileExists(dir_.file("COM42")); }

 private:
  vestrel_test::ScratchDirectory dir_;
  vestrel_test::ScopedEnv comDir_{"VESTREL_COM_DIR", dir_.path()};
  int master_ = -1;
};

class ModemLinesTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(pty.ready()); }
  PortState stateWith(std::uint32_t dtr, std::uint32_t rts) {
    PortState state;
    EXPECT_TRUE(api.getState(port, state));
    state.BaudRate = 115200;
    state.fDtrControl = dtr;
    state.fRtsControl = rts;
    return state;
  }

  PseudoTerminal pty;
  ModemLineRecorder recorder;
  tty::ScopedTtyRequests scope{recorder};
  SerialApi& api = systemSerialApi();
  PortHandle port = nullptr;
};

}  // namespace

TEST_F(ModemLinesTest, TheCollectorDropsBothLinesAndItsRestoreRaisesThemAgain) {
  vestrel_test::TestLog log{"1", vestrel_test::TestLog::StartupNamed{}};
  vestrel_test::ScratchDirectory dir;
  std::uint32_t prescaler = 0;
  {
    UARTDataCollector collector(42, 115200.0, false, prescaler, dir.file("capture.bin"), false);
    EXPECT_EQ(collector.savedState().fDtrControl, 1u);  // raised when found: enabled
    EXPECT_EQ(collector.savedState().fRtsControl, 1u);
    EXPECT_EQ(recorder.requests, (Strings{"drop DTR", "drop RTS"}));
    EXPECT_EQ(recorder.lines, 0);
  }
  EXPECT_EQ(recorder.requests, (Strings{"drop DTR", "drop RTS", "raise DTR", "raise RTS"}));
  EXPECT_EQ(recorder.lines, TIOCM_DTR | TIOCM_RTS);
}

TEST_F(ModemLinesTest, LinesFoundDownReadAsDisabled) {
  recorder.lines = TIOCM_RTS;
  port = api.openPort(L"\\\\.\\COM42");
  ASSERT_NE(port, nullptr);
  PortState state;
  ASSERT_TRUE(api.getState(port, state));
  EXPECT_EQ(state.fDtrControl, 0u);
  EXPECT_EQ(state.fRtsControl, 1u);
  EXPECT_TRUE(api.closePort(port));
  EXPECT_TRUE(recorder.requests.empty());  // opening and closing leave the lines alone
}

TEST_F(ModemLinesTest, EveryControlButDisableRaisesItsLine) {
  port = api.openPort(L"\\\\.\\COM42");
  ASSERT_NE(port, nullptr);
  // Windows' DTR controls: 0 disable, 1 enable, 2 handshake; RTS: 0 disable,
  // 1 enable, 2 handshake, 3 toggle. Linux has no DTR handshake and no RTS
  // toggling: those raise the line as enable does.
  const std::pair<std::uint32_t, std::uint32_t> controls[] = {{0, 0}, {1, 1}, {0, 2}, {2, 3}, {0, 0}};
  const int expectedLines[] = {0, TIOCM_DTR | TIOCM_RTS, TIOCM_RTS, TIOCM_DTR | TIOCM_RTS, 0};
  for (std::size_t i = 0; i < 5; ++i) {
    ASSERT_TRUE(api.setState(port, stateWith(controls[i].first, controls[i].second))) << i;
    EXPECT_EQ(recorder.lines, expectedLines[i]) << i;
    PortState readBack;
    ASSERT_TRUE(api.getState(port, readBack));
    EXPECT_EQ(readBack.fDtrControl, controls[i].first) << i;
    EXPECT_EQ(readBack.fRtsControl, controls[i].second) << i;
  }
  EXPECT_EQ(recorder.requests, (Strings{"drop DTR", "drop RTS", "raise DTR", "raise RTS", "drop DTR", "raise RTS",
                                        "raise DTR", "raise RTS", "drop DTR", "drop RTS"}));
  EXPECT_TRUE(api.closePort(port));
}

TEST(ModemLinesOnAPseudoTerminal, TheKernelRefusesTheRequestsAndThePortTakesItsStateAllTheSame) {
  PseudoTerminal pty;
  ASSERT_TRUE(pty.ready());
  SerialApi& api = systemSerialApi();
  PortHandle port = api.openPort(L"\\\\.\\COM42");
  ASSERT_NE(port, nullptr);
  PortState state;
  ASSERT_TRUE(api.getState(port, state));
  EXPECT_EQ(state.fDtrControl, 0u);  // no modem lines to find
  EXPECT_EQ(state.fRtsControl, 0u);

  // What the port's requests meet here: no modem lines to read or set.
  const int fd = ::open((std::string(std::getenv("VESTREL_COM_DIR")) + "/COM42").c_str(), O_RDONLY | O_NOCTTY);
  ASSERT_GE(fd, 0);
  int lines = 0;
  int dtr = TIOCM_DTR;
  EXPECT_EQ(tty::kernelTtyRequests().request(fd, TIOCMGET, &lines), -1);
  EXPECT_EQ(tty::kernelTtyRequests().request(fd, TIOCMBIS, &dtr), -1);
  ::close(fd);

  state.BaudRate = 115200;
  state.fDtrControl = 1;
  state.fRtsControl = 0;
  EXPECT_TRUE(api.setState(port, state));
  PortState readBack;
  ASSERT_TRUE(api.getState(port, readBack));
  EXPECT_EQ(readBack.BaudRate, 115200u);
  EXPECT_EQ(readBack.fDtrControl, 1u);
  EXPECT_EQ(readBack.fRtsControl, 0u);
  EXPECT_TRUE(api.closePort(port));
}
