#include "base/text_codec.h"

#include <gtest/gtest.h>

namespace vmd {
namespace text_codec_test {

TEST(TextCodec, Utf16LittleEndianWithTerminator) {
  std::vector<std::uint8_t> b(8, 0xEE);
  EXPECT_EQ(putUtf16z(b.data(), b.size(), L"AB"), 6u);
  EXPECT_EQ(b, (std::vector<std::uint8_t>{'A', 0, 'B', 0, 0, 0, 0xEE, 0xEE}));
}

TEST(TextCodec, PutNeverWritesPastTheRoom) {
  std::vector<std::uint8_t> b(3, 0xEE);
  EXPECT_EQ(putUtf16z(b.data(), b.size(), L"AB"), 6u);
  EXPECT_EQ(b, (std::vector<std::uint8_t>{'A', 0, 0xEE}));
}

TEST(TextCodec, ReadStopsAtTerminatorOrLimit) {
  const std::uint8_t d[] = {'x', 0, 'A', 0, 'B', 0, 0, 0, 'C', 0};
  EXPECT_EQ(readUtf16z(d, sizeof d, 2), L"AB");
  EXPECT_EQ(readUtf16z(d, sizeof d, 2, 4), L"A");
  EXPECT_EQ(readUtf16z(d, sizeof d, 8), L"C");
  EXPECT_EQ(readUtf16z(d, sizeof d, 9), L"");   // odd tail: no whole unit left
  EXPECT_EQ(readUtf16z(d, sizeof d, 200), L"");  // past the end
}

TEST(TextCodec, NonBmpTravelsAsSurrogatePair) {
  std::wstring s;
  if constexpr (sizeof(wchar_t) == 4) {
    s = std::wstring(1, static_cast<wchar_t>(0x1F600));
  } else {
    s = std::wstring{static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
  }
  std::vector<std::uint8_t> b;
  appendUtf16(b, s);
  EXPECT_EQ(b, (std::vector<std::uint8_t>{0x3D, 0xD8, 0x00, 0xDE}));
  EXPECT_EQ(utf16Length(s), 2u);
  b.push_back(0);
  b.push_back(0);
  EXPECT_EQ(readUtf16z(b.data(), b.size(), 0), s);
  EXPECT_EQ(fromUtf8(toUtf8(s)), s);
  EXPECT_EQ(toUtf8(s), "\xF0\x9F\x98\x80");
}

TEST(TextCodec, Utf8RoundTrip) {
  const std::wstring s = L"R\u00e9sum\u00e9 \u20ac";
  EXPECT_EQ(toUtf8(s), "R\xC3\xA9sum\xC3\xA9 \xE2\x82\xAC");
  EXPECT_EQ(fromUtf8(toUtf8(s)), s);
}

TEST(TextCodec, CaseFoldingIsAsciiOnly) {
  EXPECT_TRUE(equalsNoCase(L"LS", L"ls"));
  EXPECT_TRUE(equalsNoCase(L"ReBuild", L"rebuild"));
  EXPECT_FALSE(equalsNoCase(L"l", L"ls"));
  EXPECT_FALSE(equalsNoCase(L"\u00c9", L"\u00e9"));
  EXPECT_LT(compareNoCase(L"a", L"B"), 0);
}

}  // namespace text_codec_test
}  // namespace vmd
