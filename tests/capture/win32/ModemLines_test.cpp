// The Linux serial port's modem-line tests, by name, so that both builds
// list the same tests and the skip says why.
#include <gtest/gtest.h>

namespace {

constexpr const char* kLinuxOnly =
    "Linux only: these watch the Linux port's DTR and RTS requests (TIOCMGET, TIOCMBIS, TIOCMBIC); the Windows "
    "port hands fDtrControl and fRtsControl to SetCommState in the device control block itself";

}  // namespace

TEST(ModemLinesTest, TheCollectorDropsBothLinesAndItsRestoreRaisesThemAgain) { GTEST_SKIP() << kLinuxOnly; }
TEST(ModemLinesTest, LinesFoundDownReadAsDisabled) { GTEST_SKIP() << kLinuxOnly; }
TEST(ModemLinesTest, EveryControlButDisableRaisesItsLine) { GTEST_SKIP() << kLinuxOnly; }
TEST(ModemLinesOnAPseudoTerminal, TheKernelRefusesTheRequestsAndThePortTakesItsStateAllTheSame) {
  GTEST_SKIP() << kLinuxOnly;
}
