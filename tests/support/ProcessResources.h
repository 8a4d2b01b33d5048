// What the test process holds right now: its threads and its open handles
// (file descriptors natively, kernel handles under Windows; under Wine the
// slot a new handle gets, which grows only with handles left open). Soak tests
// compare these before and after many cycles.
#pragma once

#include <cstddef>

namespace vestrel_test {

std::size_t threadCount();
std::size_t handleCount();

}  // namespace vestrel_test
