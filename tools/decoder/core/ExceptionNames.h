// The architecture's names for exception numbers and for what exception
// trace says happened to one.
#pragma once

#include <cstdint>
#include <string>

#include "ItmDecoder.h"

namespace vestrel::decoder {

// "SysTick", "IRQ 3"; numbers 0-15 are the system exceptions.
std::string exceptionName(std::uint32_t number);
// The name of a system exception (number < 16).
const char* systemExceptionName(std::uint32_t number);
// "entered", "exited", "returned to", "reserved".
const char* exceptionFunctionName(ExceptionFunction function);

}  // namespace vestrel::decoder
