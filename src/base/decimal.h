// Lenient decimal conversion, the way the Windows runtime's wcstol reads a
// number with a 32-bit long: optional blanks and sign, digits up to the first
// non-digit, overflow clamped to the 32-bit range, no digits giving 0.
#pragma once

#include <cstdint>

namespace vmd {

// The decimal digit blocks the Windows runtime reads as digits (wide digit
// test and wcstol alike): ASCII, Arabic-Indic, Devanagari and the other
// Indic scripts, Thai, Lao, Tibetan, Myanmar, Khmer, Mongolian, full-width.
inline int decimalDigitValue(wchar_t c) {
  static constexpr std::uint32_t kZeros[] = {0x0030, 0x0660, 0x06F0, 0x0966, 0x09E6, 0x0A66, 0x0AE6,
                                             0x0B66, 0x0C66, 0x0CE6, 0x0D66, 0x0E50, 0x0ED0, 0x0F20,
                                             0x1040, 0x17E0, 0x1810, 0xFF10};
  const auto u = static_cast<std::uint32_t>(c);
  for (std::uint32_t zero : kZeros)
    if (u >= zero && u <= zero + 9) return static_cast<int>(u - zero);
  return -1;
}

inline bool isDecimalDigit(wchar_t c) { return decimalDigitValue(c) >= 0; }

inline std::int32_t decimalToLong(const wchar_t* text) {
  if (!text) return 0;
  const wchar_t* p = text;
  while (*p == L' ' || (*p >= L'\t' && *p <= L'\r')) ++p;
  bool negative = false;
  if (*p == L'+' || *p == L'-') negative = *p++ == L'-';
  std::int64_t v = 0;
  bool overflow = false;
  for (; isDecimalDigit(*p); ++p) {
    v = v * 10 + decimalDigitValue(*p);
    if (v > 0x80000000LL) {
      overflow = true;
      break;
    }
  }
  if (negative) return overflow || v > 0x7FFFFFFFLL ? INT32_MIN : static_cast<std::int32_t>(-v);
  return overflow || v > 0x7FFFFFFFLL ? INT32_MAX : static_cast<std::int32_t>(v);
}

}  // namespace vmd
