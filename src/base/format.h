// The one formatter behind every printed line. It follows the C printf
// conversions the program uses, with its own rules so every build prints the
// same bytes: %s always takes a wide string, %c a wide character.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace vmd {

class FormatArg {
 public:
  enum class Kind { Signed, Unsigned, Real, Text, Char };

  FormatArg(int v) : kind_(Kind::Signed), i_(v) {}
  FormatArg(long v) : kind_(Kind::Signed), i_(v) {}
  FormatArg(long long v) : kind_(Kind::Signed), i_(v) {}
  FormatArg(unsigned v) : kind_(Kind::Unsigned), u_(v) {}
  FormatArg(unsigned long v) : kind_(Kind::Unsigned), u_(v) {}
  FormatArg(unsigned long long v) : kind_(Kind::Unsigned), u_(v) {}
  FormatArg(unsigned short v) : kind_(Kind::Unsigned), u_(v) {}
  FormatArg(unsigned char v) : kind_(Kind::Unsigned), u_(v) {}
  FormatArg(double v) : kind_(Kind::Real), d_(v) {}
  FormatArg(wchar_t c) : kind_(Kind::Char), u_(static_cast<std::uint32_t>(c)) {}
  FormatArg(const wchar_t* s) : kind_(Kind::Text), s_(s ? std::wstring_view(s) : std::wstring_view(L"(null)")) {}
  FormatArg(const std::wstring& s) : kind_(Kind::Text), s_(s) {}
  FormatArg(std::wstring_view s) : kind_(Kind::Text), s_(s) {}

  Kind kind() const { return kind_; }
  std::int64_t asSigned() const;
  std::uint64_t asUnsigned() const;
  double asReal() const;
  std::wstring_view asText() const { return kind_ == Kind::Text ? s_ : std::wstring_view(); }

 private:
  Kind kind_;
  std::int64_t i_ = 0;
  std::uint64_t u_ = 0;
  double d_ = 0;
  std::wstring_view s_;
};

// Supported: %% %d %i %u %x %X %c %s %f and %I64u/%I64d/%lld/%llu/%ld/%lu/%hs-free
// forms, with the flags '-' and '0', a width and a precision. %d, %u, %x
// take the low 32 bits as C does for an int; the I64 and ll forms take 64.
// A conversion without an argument prints nothing; an unknown one prints as typed.
std::wstring formatArgs(std::wstring_view format, std::initializer_list<FormatArg> args);

template <class... Args>
std::wstring format(std::wstring_view fmt, const Args&... args) {
  return formatArgs(fmt, {FormatArg(args)...});
}

}  // namespace vmd
