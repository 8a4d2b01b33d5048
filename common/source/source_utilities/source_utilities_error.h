// The exception of the utility library.
#pragma once

#include <stdexcept>

namespace KV_ORV {

class source_utilities_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace KV_ORV
