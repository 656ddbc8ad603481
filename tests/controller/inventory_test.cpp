// The disk inventory against the simulated machine: index resolution and the
// disk records. It asks the controller and prints nothing.
#include "controller/controller.h"

#include <gtest/gtest.h>

#include "base/decimal.h"
#include "base/text_codec.h"
#include "support/inventory_rig.h"

namespace vmd {
namespace inventory_test {

using sim::json;
using test::kController;
using test::Rig;
using test::sampleMachine;

// --- index resolution ---

TEST(ResolveDiskIndex, LeadingZerosNameTheSameDisk) {
  Rig rig(sampleMachine());
  const DiskLookup found = rig.inventory.resolveDiskIndex(L"007");
  EXPECT_EQ(found.status, DiskLookup::Found);
  EXPECT_EQ(found.info.number, 7);
  EXPECT_EQ(rig.streams.all, L"");
}

TEST(ResolveDiskIndex, TextAfterTheDigitsIsIgnored) {
  Rig rig(sampleMachine());
  EXPECT_EQ(rig.inventory.resolveDiskIndex(L"7x").info.number, 7);
  EXPECT_EQ(rig.inventory.resolveDiskIndex(L"9abc").info.number, 9);
}

TEST(ResolveDiskIndex, TextThatDoesNotStartWithADigitIsNoNumber) {
  for (const wchar_t* text : {L"x7", L"", L"-1", L"+7", L" 7"}) {
    Rig rig(sampleMachine());
    EXPECT_EQ(rig.inventory.resolveDiskIndex(text).status, DiskLookup::NotANumber) << toUtf8(text);
    EXPECT_EQ(rig.streams.all, L"");
    EXPECT_EQ(rig.stat("requests", "QueryDiskInfo"), 0);
  }
}

TEST(ResolveDiskIndex, IndexOf128OrMoreIsOutOfRange) {
  for (const wchar_t* text : {L"128", L"300", L"4294967296", L"2147483648", L"99999999999999999999"}) {
    Rig rig(sampleMachine());
    EXPECT_EQ(rig.inventory.resolveDiskIndex(text).status, DiskLookup::OutOfRange) << toUtf8(text);
    EXPECT_EQ(rig.streams.all, L"");
    EXPECT_EQ(rig.stat("requests", "QueryDiskInfo"), 0);
  }
}

TEST(ResolveDiskIndex, Index127IsAskedFor) {
  Rig rig(sampleMachine());
  const DiskLookup lookup = rig.inventory.resolveDiskIndex(L"127");
  EXPECT_EQ(lookup.status, DiskLookup::NotFound);
  EXPECT_EQ(lookup.index, 127u);
  EXPECT_EQ(rig.stat("requests", "QueryDiskInfo"), 1);
}

TEST(ResolveDiskIndex, MissingDiskIsNotFoundAndNothingIsPrinted) {
  Rig rig(sampleMachine());
  const DiskLookup lookup = rig.inventory.resolveDiskIndex(L"5");
  EXPECT_EQ(lookup.status, DiskLookup::NotFound);
  EXPECT_EQ(lookup.index, 5u);
  EXPECT_EQ(rig.streams.all, L"");
}

TEST(ResolveDiskIndex, UnreachableControllerFindsNoDisk) {
  json state = sampleMachine();
  state["faults"] = json::array({{{"api", "CreateFileW"}, {"error", 5}}});
  Rig rig(state);
  EXPECT_EQ(rig.inventory.resolveDiskIndex(L"7").status, DiskLookup::NotFound);
}

TEST(ResolveDiskIndex, FailedInfoRequestFindsNoDisk) {
  json state = sampleMachine();
  state["faults"] = json::array({{{"api", "DeviceIoControl"}, {"code", "0x46024"}, {"error", 31}}});
  Rig rig(state);
  EXPECT_EQ(rig.inventory.resolveDiskIndex(L"9").status, DiskLookup::NotFound);
  EXPECT_EQ(rig.stat("opens", kController), 1);
  EXPECT_EQ(rig.stat("closes", kController), 1);
}

TEST(ResolveDiskIndex, FillsTheDiskRecord) {
  Rig rig(sampleMachine());
  const DiskLookup lookup = rig.inventory.resolveDiskIndex(L"9");
  ASSERT_EQ(lookup.status, DiskLookup::Found);
  const DiskInfo& info = lookup.info;
  EXPECT_EQ(info.number, 9);
  EXPECT_TRUE(info.directIo);
  EXPECT_FALSE(info.good);
  EXPECT_FALSE(info.hasImage);
  EXPECT_EQ(info.letter, L'S');
  EXPECT_EQ(info.sizeBytes, 33554432);
  EXPECT_EQ(info.raw[10], 9);
  // One request on a handle of its own.
  EXPECT_EQ(rig.stat("opens", kController), 1);
  EXPECT_EQ(rig.stat("closes", kController), 1);
}

// --- disk records ---

TEST(QueryDiskInfo, SizeIsSixtyFourBits) {
  Rig rig(sampleMachine());
  const auto info = rig.inventory.queryDiskInfo(7);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->sizeBytes, 5368709120);
  EXPECT_TRUE(info->hasImage);
  EXPECT_TRUE(info->good);
  EXPECT_FALSE(info->directIo);
  EXPECT_EQ(info->letter, 0);
}

TEST(QueryDiskBitmap, SetsTheBitOfEveryDisk) {
  Rig rig(sampleMachine());
  const auto bitmap = rig.inventory.queryDiskBitmap();
  ASSERT_TRUE(bitmap);
  EXPECT_EQ((*bitmap)[0], 0x80);
  EXPECT_EQ((*bitmap)[1], 0x12);
  EXPECT_EQ(disksInBitmap(*bitmap), (std::vector<std::uint8_t>{7, 9, 12}));
}

TEST(QueryDiskBitmap, FailureGivesTheSystemError) {
  json state = sampleMachine();
  state["faults"] = json::array({{{"api", "DeviceIoControl"}, {"code", "0x46028"}, {"error", 1117}}});
  Rig rig(state);
  std::uint32_t error = 0;
  EXPECT_FALSE(rig.inventory.queryDiskBitmap(&error));
  EXPECT_EQ(error, 1117u);
}

TEST(DisksInBitmap, WalksBytesUpAndBitsFromTheLeastSignificant) {
  std::array<std::uint8_t, 16> bitmap{};
  bitmap[0] = 0x01;
  bitmap[1] = 0x02;
  bitmap[15] = 0x80;
  EXPECT_EQ(disksInBitmap(bitmap), (std::vector<std::uint8_t>{0, 9, 127}));
  EXPECT_TRUE(disksInBitmap({}).empty());
}

TEST(DecimalToLong, ReadsLikeTheRuntimeWithA32BitLong) {
  EXPECT_EQ(decimalToLong(L"007"), 7);
  EXPECT_EQ(decimalToLong(L"7abc"), 7);
  EXPECT_EQ(decimalToLong(L"abc"), 0);
  EXPECT_EQ(decimalToLong(L"  -12"), -12);
  EXPECT_EQ(decimalToLong(L"+5"), 5);
  EXPECT_EQ(decimalToLong(L"2147483647"), 2147483647);
  EXPECT_EQ(decimalToLong(L"2147483648"), 2147483647);
  EXPECT_EQ(decimalToLong(L"4294967296"), 2147483647);
  EXPECT_EQ(decimalToLong(L"-2147483648"), INT32_MIN);
  EXPECT_EQ(decimalToLong(L"-99999999999"), INT32_MIN);
  EXPECT_EQ(decimalToLong(nullptr), 0);
}

TEST(DecimalToLong, ReadsTheOtherDigitBlocksTheRuntimeKnows) {
  EXPECT_EQ(decimalToLong(L"\xFF17"), 7);          // full-width 7
  EXPECT_EQ(decimalToLong(L"\x0661\x0662"), 12);  // Arabic-Indic 1 2
  EXPECT_EQ(decimalToLong(L"1\x0967x"), 11);       // ASCII 1, Devanagari 1
  EXPECT_TRUE(isDecimalDigit(L'\x0E59'));
  EXPECT_FALSE(isDecimalDigit(L'\xFF1A'));         // full-width colon follows full-width 9
  EXPECT_FALSE(isDecimalDigit(L'\x00B2'));         // superscript two is no decimal digit
}

}  // namespace inventory_test
}  // namespace vmd
