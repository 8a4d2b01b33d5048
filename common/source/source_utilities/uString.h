// Text helpers of the utility library. Misuse (null arguments, empty numbers)
// is reported by throwing uString::error.
#pragma once

#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "source_utilities_error.h"

namespace KV_ORV::uString {

class error : public source_utilities_error {
 public:
  using source_utilities_error::source_utilities_error;
};

// Replaces every occurrence of searched by replacement. The search resumes
// at the match position plus the length of searched (not of replacement), so
// a replacement that contains searched from that point on is met again.
// An empty searched text changes nothing.
std::string& replaceAll(std::string& text, const char* searched, const char* replacement);

// Splits text at the first occurrence of delimiter. Returns 2 when it occurs
// (head before it, tail after it), otherwise head = text and tail empty and
// the result is 1 for a non-empty head, 0 for an empty one. An empty
// delimiter never occurs.
int split(const char* text, std::string& head, std::string& tail, const char* delimiter);

// Appends the pieces of text between delimiters to list and returns its new
// size. Empty pieces between two delimiters are kept; a trailing delimiter
// adds no empty piece.
int tokenize(std::vector<std::string>& list, const char* text, const char* delimiter);

// Prints value with format ("%d" when null) and appends the digits to result
// or replaces result with them.
std::string& fromNumber(std::int32_t value, std::string& result, bool append = false, const char* format = nullptr);

namespace detail {
// Base of a numeric text and where its digits start: 16 after "0x"/"0X", 8
// after a leading "0", 10 otherwise; 0 means the text is exactly "0", "0x" or
// "0X" and stands for the value 0.
int numericBase(const std::string& text, std::size_t& digitsStart);
}  // namespace detail

// Converts a decimal, "0x"/"0X" hexadecimal or "0"-prefixed octal text to T.
// Characters after the number are ignored and a text without a number gives
// 0. A number beyond the range of the type read gives what stream
// extraction stores then, the type's limit; single-byte targets read a full
// integer and keep its low byte.
template <typename T>
T toNumeric(const char* text) {
  static_assert(std::is_integral_v<T>, "toNumeric converts to integer types");
  if (text == nullptr) throw error("unable to convert null string to numeric");
  std::string value(text);
  if (value.empty()) throw error("unable to convert empty string to numeric");

  std::size_t start = 0;
  int base = detail::numericBase(value, start);
  if (base == 0) return T{0};

  // Single-byte targets would read one character; read a full integer.
  using Wide = std::conditional_t<(sizeof(T) == 1), std::conditional_t<std::is_signed_v<T>, int, unsigned>, T>;
  std::istringstream in(value.substr(start));
  in >> std::setbase(base);
  Wide number{};
  in >> number;  // no digits leave 0, too many the type's limit
  return static_cast<T>(number);
}

}  // namespace KV_ORV::uString
