// What the test process holds right now: its threads and its open handles
// (file descriptors natively, kernel handles under Windows; under Wine the
// slot a new handle gets, which grows only with handles left open). Soak tests
// compare these before and after many cycles; memory tests compare the peak.
#pragma once

#include <cstddef>

namespace vestrel_test {

std::size_t threadCount();
std::size_t handleCount();
// The most memory the process has held at once so far (peak resident set,
// or peak working set under Windows), in bytes; 0 when the system cannot say.
std::size_t peakMemoryBytes();
// Lowers how many descriptors the process may have open to handleCount()
// plus room; false where the system has no such limit to lower (Windows).
bool limitOpenHandles(std::size_t room);

}  // namespace vestrel_test
