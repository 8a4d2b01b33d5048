#include "uString.h"

#include <cstdio>

namespace KV_ORV::uString {

std::string& replaceAll(std::string& text, const char* searched, const char* replacement) {
  if (searched == nullptr) throw error("unable to perform string replacement from null original text");
  if (replacement == nullptr) throw error("unable to perform string replacement with null replacement text");
  const std::string from(searched);
  if (from.empty()) return text;
  const std::string to(replacement);
  std::size_t position = 0;
  while ((position = text.find(from, position)) != std::string::npos) {
    text.replace(position, from.size(), to);
    position += from.size();
  }
  return text;
}

int split(const char* text, std::string& head, std::string& tail, const char* delimiter) {
  if (text == nullptr) throw error("unable to split null string");
  if (delimiter == nullptr) throw error("unable to split with null delimeter");
  const std::string whole(text);
  const std::string separator(delimiter);
  const std::size_t at = separator.empty() ? std::string::npos : whole.find(separator);
  if (at != std::string::npos) {
    head = whole.substr(0, at);
    tail = whole.substr(at + separator.size());
    return 2;
  }
  head = whole;
  tail.clear();
  return head.empty() ? 0 : 1;
}

int tokenize(std::vector<std::string>& list, const char* text, const char* delimiter) {
  if (text == nullptr) throw error("unable to split null string");
  std::string remainder(text);
  std::string head;
  std::string tail;
  while (split(remainder.c_str(), head, tail, delimiter) != 0) {
    list.push_back(head);
    remainder = tail;
  }
  return static_cast<int>(list.size());
}

std::string& fromNumber(std::int32_t value, std::string& result, bool append, const char* format) {
  char digits[1024];
  std::snprintf(digits, sizeof digits, format != nullptr ? format : "%d", value);
  if (append) {
    result += digits;
  } else {
    result = digits;
  }
  return result;
}

namespace detail {

int numericBase(const std::string& text, std::size_t& digitsStart) {
  if (text[0] != '0') {
    digitsStart = 0;
    return 10;
  }
  if (text.size() == 1) return 0;
  if (text[1] == 'x' || text[1] == 'X') {
    if (text.size() == 2) return 0;
    digitsStart = 2;
    return 16;
  }
  digitsStart = 1;
  return 8;
}

}  // namespace detail

}  // namespace KV_ORV::uString
