#include "TraceWords.h"

#include "ExceptionNames.h"

namespace vestrel::decoder {

void appendExceptionName(OutputBuffer& out, std::uint32_t number) {
  if (number < 16) {
    out.append(systemExceptionName(number));
    return;
  }
  out.append("IRQ ");
  out.appendDecimal(number - 16);
}

void appendSeconds(OutputBuffer& out, const Timing& timing, std::uint64_t cycles) {
  out.appendFixed(timing.seconds(cycles), 9);
}

}  // namespace vestrel::decoder
