// Numbers read from text exactly as the Windows C runtime reads them, where
// long is 32 bits wide: the same answer on every platform, whatever the
// width of the native long.
#pragma once

#include <cstdint>
#include <string>

namespace KV_ORV {

// As strtoul: leading blanks, one optional sign, the base's digits ("0x"
// allowed in base 16 and 0). A magnitude beyond 32 bits gives 4294967295; a
// negative one is negated in 32 bits. No digits give 0.
std::uint32_t strtoul32(const char* text, int base);

// As atoi and _wtoi: leading blanks, one optional sign, decimal digits;
// saturates at the 32-bit limits instead of wrapping. Wide characters
// outside ASCII end the number.
std::int32_t atoi32(const char* text);
std::int32_t wtoi32(const std::wstring& text);

}  // namespace KV_ORV
