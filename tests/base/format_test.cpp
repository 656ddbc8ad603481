#include "base/format.h"

#include <gtest/gtest.h>

namespace vmd {
namespace format_test {

TEST(Format, WideStringWithWidthPadsToTheRight) {
  EXPECT_EQ(format(L"%-12s|", L"SCSI"), L"SCSI        |");
}

TEST(Format, ListingRowColumns) {
  EXPECT_EQ(format(L"#%-7d%-12d%-12s%-8s%-8s", 0, 128, L"SCSI", L"Yes", L"Good"),
            L"#0      128         SCSI        Yes     Good    ");
}

TEST(Format, SignedDecimalTakesLow32Bits) {
  EXPECT_EQ(format(L"%d", -5), L"-5");
  EXPECT_EQ(format(L"%d", 0x80000000u), L"-2147483648");
  EXPECT_EQ(format(L"%d", static_cast<long long>(0x100000003LL)), L"3");
}

TEST(Format, UnsignedAnd64BitForms) {
  EXPECT_EQ(format(L"%u", -1), L"4294967295");
  EXPECT_EQ(format(L"%I64u/%I64u MB", 12288ull, 16384ull), L"12288/16384 MB");
  EXPECT_EQ(format(L"%I64u", 0x100000000ull), L"4294967296");
}

TEST(Format, ZeroPaddedHex) {
  EXPECT_EQ(format(L"0x%08x", 31u), L"0x0000001f");
  EXPECT_EQ(format(L"%04X-%04X", 0x1234u, 0xABCDu), L"1234-ABCD");
  EXPECT_EQ(format(L"0x%08x", 0xC0000001u), L"0xc0000001");
}

TEST(Format, CharacterConversion) {
  EXPECT_EQ(format(L"%c: ", L'R'), L"R: ");
  EXPECT_EQ(format(L"%c:\\", static_cast<wchar_t>(L'e')), L"e:\\");
}

TEST(Format, FixedPointRoundsToTwoDecimals) {
  EXPECT_EQ(format(L"%.2f GB", 3.0), L"3.00 GB");
  EXPECT_EQ(format(L"%.2f", 1.005), L"1.00");  // 1.005 is just below in binary
  EXPECT_EQ(format(L"%.2f", 2.675), L"2.67");
  EXPECT_EQ(format(L"%.2f", 0.125), L"0.13");
}

TEST(Format, PercentAndUnknownConversions) {
  EXPECT_EQ(format(L"100%% done"), L"100% done");
  EXPECT_EQ(format(L"%q", 1), L"%q");
  EXPECT_EQ(format(L"trailing %"), L"trailing %");
}

TEST(Format, MissingArgumentPrintsNothing) { EXPECT_EQ(format(L"[%s][%d]"), L"[][]"); }

TEST(Format, NullStringPrintsNullMarker) {
  const wchar_t* none = nullptr;
  EXPECT_EQ(format(L"%s", none), L"(null)");
}

TEST(Format, PrecisionCutsStrings) { EXPECT_EQ(format(L"%.3s", L"abcdef"), L"abc"); }

TEST(Format, RightAlignedNumbers) {
  EXPECT_EQ(format(L"%5d|%-5d|%05d", 42, 42, -42), L"   42|42   |-0042");
}

}  // namespace format_test
}  // namespace vmd
