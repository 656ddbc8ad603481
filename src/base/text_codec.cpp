#include "base/text_codec.h"

namespace vmd {

namespace {

// Splits text into code points (UTF-32 on Linux, UTF-16 pairs on Windows).
template <class F>
void forEachCodePoint(std::wstring_view text, F f) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint32_t c = static_cast<std::uint32_t>(text[i]);
    if constexpr (sizeof(wchar_t) == 2) {
      c &= 0xFFFF;
      if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size()) {
        std::uint32_t d = static_cast<std::uint32_t>(text[i + 1]) & 0xFFFF;
        if (d >= 0xDC00 && d < 0xE000) {
          c = 0x10000 + ((c - 0xD800) << 10) + (d - 0xDC00);
          ++i;
        }
      }
    }
    f(c);
  }
}

void appendCodePoint(std::wstring& out, std::uint32_t c) {
  if constexpr (sizeof(wchar_t) == 2) {
    if (c >= 0x10000) {
      c -= 0x10000;
      out += static_cast<wchar_t>(0xD800 + (c >> 10));
      out += static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
      return;
    }
  }
  out += static_cast<wchar_t>(c);
}

template <class F>
void forEachUnit(std::wstring_view text, F f) {
  forEachCodePoint(text, [&](std::uint32_t c) {
    if (c >= 0x10000 && c <= 0x10FFFF) {
      c -= 0x10000;
      f(static_cast<std::uint16_t>(0xD800 + (c >> 10)));
      f(static_cast<std::uint16_t>(0xDC00 + (c & 0x3FF)));
    } else {
      f(static_cast<std::uint16_t>(c));
    }
  });
}

}  // namespace

std::size_t utf16Length(std::wstring_view text) {
  std::size_t n = 0;
  forEachUnit(text, [&](std::uint16_t) { ++n; });
  return n;
}

void appendUtf16(std::vector<std::uint8_t>& out, std::wstring_view text) {
  forEachUnit(text, [&](std::uint16_t u) {
    out.push_back(static_cast<std::uint8_t>(u & 0xFF));
    out.push_back(static_cast<std::uint8_t>(u >> 8));
  });
}

std::size_t putUtf16z(std::uint8_t* out, std::size_t room, std::wstring_view text) {
  std::size_t at = 0;
  auto put = [&](std::uint16_t u) {
    if (at + 2 <= room) {
      out[at] = static_cast<std::uint8_t>(u & 0xFF);
      out[at + 1] = static_cast<std::uint8_t>(u >> 8);
    }
    at += 2;
  };
  forEachUnit(text, put);
  put(0);
  return at;
}

std::wstring readUtf16z(const std::uint8_t* data, std::size_t size, std::size_t offset, std::size_t limit) {
  std::wstring out;
  if (limit > size) limit = size;
  std::uint32_t pending = 0;
  for (std::size_t i = offset; i + 1 < limit; i += 2) {
    std::uint32_t u = data[i] | (data[i + 1] << 8);
    if (u == 0) break;
    if (u >= 0xD800 && u < 0xDC00) {
      if (pending) appendCodePoint(out, pending);
      pending = u;
      continue;
    }
    if (u >= 0xDC00 && u < 0xE000 && pending) {
      appendCodePoint(out, 0x10000 + ((pending - 0xD800) << 10) + (u - 0xDC00));
      pending = 0;
      continue;
    }
    if (pending) {
      appendCodePoint(out, pending);
      pending = 0;
    }
    appendCodePoint(out, u);
  }
  if (pending) appendCodePoint(out, pending);
  return out;
}

std::string toUtf8(std::wstring_view text) {
  std::string out;
  forEachCodePoint(text, [&](std::uint32_t c) {
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  });
  return out;
}

std::wstring fromUtf8(std::string_view s) {
  std::wstring out;
  for (std::size_t i = 0; i < s.size();) {
    unsigned char b = static_cast<unsigned char>(s[i]);
    std::uint32_t c;
    int extra;
    if (b < 0x80) { c = b; extra = 0; }
    else if ((b & 0xE0) == 0xC0) { c = b & 0x1F; extra = 1; }
    else if ((b & 0xF0) == 0xE0) { c = b & 0x0F; extra = 2; }
    else if ((b & 0xF8) == 0xF0) { c = b & 0x07; extra = 3; }
    else { c = 0xFFFD; extra = 0; }
    ++i;
    for (int k = 0; k < extra; ++k) {
      if (i >= s.size() || (static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) {
        c = 0xFFFD;
        break;
      }
      c = (c << 6) | (static_cast<unsigned char>(s[i]) & 0x3F);
      ++i;
    }
    appendCodePoint(out, c);
  }
  return out;
}


int compareNoCase(std::wstring_view a, std::wstring_view b) {
  const std::size_t n = a.size() < b.size() ? a.size() : b.size();
  for (std::size_t i = 0; i < n; ++i) {
    const auto x = static_cast<std::uint32_t>(asciiLower(a[i]));
    const auto y = static_cast<std::uint32_t>(asciiLower(b[i]));
    if (x != y) return x < y ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

bool equalsNoCase(std::wstring_view a, std::wstring_view b) { return compareNoCase(a, b) == 0; }

}  // namespace vmd
