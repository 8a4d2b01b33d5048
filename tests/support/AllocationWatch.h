// The largest single allocation made through operator new while a watch is
// alive: tells a test whether code read a whole input into memory. A program
// that uses it gets this file's replacement of the global operator new.
#pragma once

#include <cstddef>

namespace vestrel_test {

class LargestAllocation {
 public:
  LargestAllocation();
  ~LargestAllocation();
  LargestAllocation(const LargestAllocation&) = delete;
  LargestAllocation& operator=(const LargestAllocation&) = delete;
  std::size_t bytes() const;
};

}  // namespace vestrel_test
