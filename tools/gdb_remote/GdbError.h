// Every failure of the GDB remote protocol, with a text that says what was
// asked and what went wrong.
#pragma once

#include <stdexcept>
#include <string>

namespace vestrel::gdb_remote {

class GdbError : public std::runtime_error {
 public:
  explicit GdbError(const std::string& what) : std::runtime_error(what) {}
};

}  // namespace vestrel::gdb_remote
