#include "ExceptionNames.h"

namespace vestrel::decoder {

namespace {
const char* const kExceptionNames[16] = {
    "Thread",    "Reset",     "NMI",        "HardFault", "MemManage",    "BusFault",   "UsageFault", "SecureFault",
    "Reserved8", "Reserved9", "Reserved10", "SVCall",    "DebugMonitor", "Reserved13", "PendSV",     "SysTick"};
}

const char* systemExceptionName(std::uint32_t number) { return kExceptionNames[number & 0x0F]; }

std::string exceptionName(std::uint32_t number) {
  if (number < 16) return kExceptionNames[number];
  return "IRQ " + std::to_string(number - 16);
}

const char* exceptionFunctionName(ExceptionFunction function) {
  switch (function) {
    case ExceptionFunction::Entered:
      return "entered";
    case ExceptionFunction::Exited:
      return "exited";
    case ExceptionFunction::Returned:
      return "returned to";
    default:
      return "reserved";
  }
}

}  // namespace vestrel::decoder
