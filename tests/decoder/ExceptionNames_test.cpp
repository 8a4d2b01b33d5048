#include "ExceptionNames.h"

#include <gtest/gtest.h>

using namespace vestrel::decoder;

TEST(ExceptionNames, ArchitecturalNamesAndIrqNumbers) {
  EXPECT_EQ(exceptionName(2), "NMI");
  EXPECT_EQ(exceptionName(3), "HardFault");
  EXPECT_EQ(exceptionName(11), "SVCall");
  EXPECT_EQ(exceptionName(15), "SysTick");
  EXPECT_EQ(exceptionName(16), "IRQ 0");
  EXPECT_EQ(exceptionName(271), "IRQ 255");
}
