// Reading a file with an overlong line through a bounded buffer: the file
// is written in pieces (the test never holds it whole), and the reading runs
// in a process of its own, so that the peak memory it raises is its alone.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>

#include "ProcessResources.h"

namespace vestrel_test {

// head, then megabytes times 1 MiB of filler on the same line, then tail.
inline void writeOverlongLine(const std::string& path, const std::string& head, int megabytes, char filler,
                              const std::string& tail) {
  std::ofstream out(path, std::ios::binary);
  out << head;
  const std::string piece(1 << 20, filler);
  for (int i = 0; i < megabytes; ++i) out << piece;
  out << tail;
}

// Expects read to answer true while raising the peak memory by less than
// limit bytes.
inline void expectReadWithin(std::size_t limit, const std::function<bool()>& read) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const std::size_t before = peakMemoryBytes();
        const bool ok = read();
        const std::size_t grown = peakMemoryBytes() - before;
        std::exit(before == 0 ? 3 : !ok ? 2 : grown >= limit ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace vestrel_test
