#include "CNumberText.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <limits>

namespace KV_ORV {

namespace {

struct Magnitude {
  bool negative = false;
  bool digits = false;
  bool tooLarge = false;  // beyond 32 bits
  std::uint64_t value = 0;
};

Magnitude readMagnitude(const char* text, int base) {
  Magnitude result;
  if (text == nullptr) return result;
  const char* at = text;
  while (std::isspace(static_cast<unsigned char>(*at))) ++at;
  if (*at == '+' || *at == '-') result.negative = *at++ == '-';
  // strtoull would skip blanks and a sign here; the C runtime does not.
  if (std::isspace(static_cast<unsigned char>(*at)) || *at == '+' || *at == '-') return result;
  errno = 0;
  char* stop = nullptr;
  const unsigned long long value = std::strtoull(at, &stop, base);
  result.digits = stop != at;
  result.tooLarge = errno == ERANGE || value > std::numeric_limits<std::uint32_t>::max();
  result.value = result.tooLarge ? 0 : value;
  return result;
}

}  // namespace

std::uint32_t strtoul32(const char* text, int base) {
  const Magnitude number = readMagnitude(text, base);
  if (!number.digits) return 0;
  if (number.tooLarge) return std::numeric_limits<std::uint32_t>::max();
  const auto value = static_cast<std::uint32_t>(number.value);
  return number.negative ? 0u - value : value;
}

std::int32_t atoi32(const char* text) {
  const Magnitude number = readMagnitude(text, 10);
  if (!number.digits) return 0;
  constexpr std::uint64_t kLargest = std::numeric_limits<std::int32_t>::max();
  if (number.negative) {
    if (number.tooLarge || number.value > kLargest + 1) return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(-static_cast<std::int64_t>(number.value));
  }
  if (number.tooLarge || number.value > kLargest) return std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(number.value);
}

std::int32_t wtoi32(const std::wstring& text) {
  std::string narrow;
  narrow.reserve(text.size());
  for (wchar_t c : text) {
    if (c == L'\0') break;
    narrow += (c > 0 && c < 0x80) ? static_cast<char>(c) : '\x01';  // ends the number
  }
  return atoi32(narrow.c_str());
}

}  // namespace KV_ORV
