// What a call threw, as text, so that tests compare whole messages.
#pragma once

#include <string>

#include "cHexkitError.h"

namespace vestrel_test {

// The what() of the Exception the call threw, or a marker when it threw none.
template <typename Exception, typename Call>
std::string thrownText(Call call) {
  try {
    call();
  } catch (const Exception& e) {
    return e.what();
  }
  return "<nothing thrown>";
}

// The message of the cHexkitError the call threw; its severity goes to
// *severity when asked for.
template <typename Call>
std::string hexkitText(Call call, int* severity = nullptr) {
  try {
    call();
  } catch (const Kv::Orv::Hexkit::cHexkitError& e) {
    if (severity != nullptr) *severity = e.GetSeverity();
    return e.GetMessage();
  }
  return "<no cHexkitError>";
}

}  // namespace vestrel_test
