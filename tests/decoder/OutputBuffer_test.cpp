#include "OutputBuffer.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

using namespace vestrel::decoder;

TEST(OutputBuffer, FixedPointNumbersOfEveryMagnitude) {
  const auto fixed = [](double value, int decimals) {
    OutputBuffer out;
    out.appendFixed(value, decimals);
    return out.text();
  };
  EXPECT_EQ(fixed(0.02, 9), "0.020000000");
  EXPECT_EQ(fixed(-1.5, 3), "-1.500");
  EXPECT_EQ(fixed(1.5, 42), "1.500000000");  // at most 9 decimals
  EXPECT_EQ(fixed(1.7976931348623157e308, 9).size(), 309u + 1 + 9);
  EXPECT_EQ(fixed(std::numeric_limits<double>::infinity(), 9), "null");
  EXPECT_EQ(fixed(std::numeric_limits<double>::quiet_NaN(), 3), "null");
}
