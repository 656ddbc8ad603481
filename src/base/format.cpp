#include "base/format.h"

#include <cmath>

namespace vmd {

std::int64_t FormatArg::asSigned() const {
  switch (kind_) {
    case Kind::Signed: return i_;
    case Kind::Unsigned:
    case Kind::Char: return static_cast<std::int64_t>(u_);
    case Kind::Real: return static_cast<std::int64_t>(d_);
    case Kind::Text: return 0;
  }
  return 0;
}

std::uint64_t FormatArg::asUnsigned() const {
  switch (kind_) {
    case Kind::Signed: return static_cast<std::uint64_t>(i_);
    case Kind::Unsigned:
    case Kind::Char: return u_;
    case Kind::Real: return static_cast<std::uint64_t>(d_);
    case Kind::Text: return 0;
  }
  return 0;
}

double FormatArg::asReal() const {
  switch (kind_) {
    case Kind::Signed: return static_cast<double>(i_);
    case Kind::Unsigned:
    case Kind::Char: return static_cast<double>(u_);
    case Kind::Real: return d_;
    case Kind::Text: return 0;
  }
  return 0;
}

namespace {

struct Spec {
  bool left = false;
  bool zero = false;
  int width = -1;
  int precision = -1;
  bool wide64 = false;
};

std::wstring digits(std::uint64_t v, unsigned base, bool upper) {
  const wchar_t* set = upper ? L"0123456789ABCDEF" : L"0123456789abcdef";
  std::wstring r;
  do {
    r.insert(r.begin(), set[v % base]);
    v /= base;
  } while (v);
  return r;
}

void pad(std::wstring& out, std::wstring body, const Spec& s, bool numeric) {
  const int w = s.width;
  if (w > 0 && static_cast<int>(body.size()) < w) {
    const std::size_t n = static_cast<std::size_t>(w) - body.size();
    if (s.left) {
      body.append(n, L' ');
    } else if (s.zero && numeric) {
      const std::size_t at = (!body.empty() && body[0] == L'-') ? 1 : 0;
      body.insert(at, n, L'0');
    } else {
      body.insert(0, n, L' ');
    }
  }
  out += body;
}

// Fixed notation with the given number of decimals, rounded half away from
// zero on the exact binary value as the C runtimes do for the values we print.
std::wstring fixed(double v, int precision) {
  if (std::isnan(v)) return L"nan";
  if (std::isinf(v)) return v < 0 ? L"-inf" : L"inf";
  std::wstring sign;
  if (std::signbit(v)) {
    sign = L"-";
    v = -v;
  }
  long double scale = 1;
  for (int i = 0; i < precision; ++i) scale *= 10;
  long double scaled = std::floor(static_cast<long double>(v) * scale + 0.5L);
  std::wstring all;
  if (scaled < 1.8e19L) {
    all = digits(static_cast<std::uint64_t>(scaled), 10, false);
  } else {
    all = L"0";
  }
  while (static_cast<int>(all.size()) <= precision) all.insert(all.begin(), L'0');
  if (precision > 0) all.insert(all.size() - static_cast<std::size_t>(precision), 1, L'.');
  return sign + all;
}

}  // namespace

std::wstring formatArgs(std::wstring_view f, std::initializer_list<FormatArg> args) {
  std::wstring out;
  auto next = args.begin();
  std::size_t i = 0;
  while (i < f.size()) {
    wchar_t c = f[i];
    if (c != L'%') {
      out += c;
      ++i;
      continue;
    }
    const std::size_t start = i++;
    if (i < f.size() && f[i] == L'%') {
      out += L'%';
      ++i;
      continue;
    }
    Spec s;
    while (i < f.size() && (f[i] == L'-' || f[i] == L'0' || f[i] == L'+' || f[i] == L' ' || f[i] == L'#')) {
      if (f[i] == L'-') s.left = true;
      if (f[i] == L'0') s.zero = true;
      ++i;
    }
    while (i < f.size() && f[i] >= L'0' && f[i] <= L'9') {
      s.width = (s.width < 0 ? 0 : s.width) * 10 + (f[i] - L'0');
      ++i;
    }
    if (i < f.size() && f[i] == L'.') {
      ++i;
      s.precision = 0;
      while (i < f.size() && f[i] >= L'0' && f[i] <= L'9') {
        s.precision = s.precision * 10 + (f[i] - L'0');
        ++i;
      }
    }
    // Length modifiers.
    if (f.substr(i, 3) == L"I64") {
      s.wide64 = true;
      i += 3;
    } else if (f.substr(i, 2) == L"ll") {
      s.wide64 = true;
      i += 2;
    } else if (i < f.size() && (f[i] == L'l' || f[i] == L'h' || f[i] == L'w')) {
      ++i;
    }
    if (i >= f.size()) {
      out.append(f.substr(start));
      break;
    }
    const wchar_t conv = f[i++];
    const bool have = next != args.end();
    switch (conv) {
      case L'd':
      case L'i': {
        if (!have) break;
        std::int64_t v = next->asSigned();
        ++next;
        if (!s.wide64) v = static_cast<std::int32_t>(static_cast<std::uint32_t>(v));
        std::wstring body = v < 0 ? L"-" + digits(0 - static_cast<std::uint64_t>(v), 10, false)
                                  : digits(static_cast<std::uint64_t>(v), 10, false);
        pad(out, body, s, true);
        break;
      }
      case L'u':
      case L'x':
      case L'X': {
        if (!have) break;
        std::uint64_t v = next->asUnsigned();
        ++next;
        if (!s.wide64) v &= 0xFFFFFFFFu;
        std::wstring body = digits(v, conv == L'u' ? 10 : 16, conv == L'X');
        if (s.precision >= 0)
          while (static_cast<int>(body.size()) < s.precision) body.insert(body.begin(), L'0');
        pad(out, body, s, true);
        break;
      }
      case L'c': {
        if (!have) break;
        std::wstring body(1, static_cast<wchar_t>(next->asUnsigned()));
        ++next;
        pad(out, body, s, false);
        break;
      }
      case L's': {
        if (!have) break;
        std::wstring body(next->asText());
        ++next;
        if (s.precision >= 0 && static_cast<int>(body.size()) > s.precision)
          body.resize(static_cast<std::size_t>(s.precision));
        pad(out, body, s, false);
        break;
      }
      case L'f': {
        if (!have) break;
        std::wstring body = fixed(next->asReal(), s.precision < 0 ? 6 : s.precision);
        ++next;
        pad(out, body, s, true);
        break;
      }
      default:
        out.append(f.substr(start, i - start));
        break;
    }
  }
  return out;
}

}  // namespace vmd
