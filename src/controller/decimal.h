// Lenient decimal conversion, the way the Windows runtime's wcstol reads a
// number with a 32-bit long: optional blanks and sign, digits up to the first
// non-digit, overflow clamped to the 32-bit range, no digits giving 0.
#pragma once

#include <cstdint>

namespace vmd {

inline bool isDecimalDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

inline std::int32_t decimalToLong(const wchar_t* text) {
  if (!text) return 0;
  const wchar_t* p = text;
  while (*p == L' ' || (*p >= L'\t' && *p <= L'\r')) ++p;
  bool negative = false;
  if (*p == L'+' || *p == L'-') negative = *p++ == L'-';
  std::int64_t v = 0;
  bool overflow = false;
  for (; isDecimalDigit(*p); ++p) {
    v = v * 10 + (*p - L'0');
    if (v > 0x80000000LL) {
      overflow = true;
      break;
    }
  }
  if (negative) return overflow || v > 0x7FFFFFFFLL ? INT32_MIN : static_cast<std::int32_t>(-v);
  return overflow || v > 0x7FFFFFFFLL ? INT32_MAX : static_cast<std::int32_t>(v);
}

}  // namespace vmd
