#include "commands/save_command.h"
#include "settings/image_file.h"

#include <gtest/gtest.h>

#include <string>

#include "base/bytes.h"
#include "settings/disk_settings.h"

namespace vmd {
namespace save_format_test {

ImageFormatChoice word(const std::wstring& w) {
  ImageFormatChoice c;
  ApplyImageFormatWord(c, w);
  return c;
}

ImageFormatChoice sent(const std::wstring& w, bool smartCapable = false) {
  return ApplyFormatRule(word(w), smartCapable);
}

TEST(ImageFormatWord, SmartInAnyCase) {
  EXPECT_EQ(word(L"smart").format, imageformat::Smart);
  EXPECT_EQ(word(L"SMART").format, imageformat::Smart);
  EXPECT_EQ(word(L"Smart").level, 1);
}

TEST(ImageFormatWord, ComprWithAndWithoutLevel) {
  EXPECT_EQ(word(L"compr").format, imageformat::Compr);
  EXPECT_EQ(word(L"compr").level, 0);
  EXPECT_EQ(word(L"compr?5").level, 5);
  EXPECT_EQ(word(L"Compr?5").format, imageformat::Compr);
  EXPECT_EQ(word(L"COMPR?12").level, 12);
  EXPECT_EQ(word(L"compr?x").level, 0);
}

TEST(ImageFormatWord, AnyOtherSixthCharacterIsPlain) {
  EXPECT_EQ(word(L"compressed").format, imageformat::Plain);
  EXPECT_EQ(word(L"compr5").format, imageformat::Plain);
}

TEST(ImageFormatWord, UnknownWordsArePlainSilently) {
  EXPECT_EQ(word(L"plain").format, imageformat::Plain);
  EXPECT_EQ(word(L"zip").format, imageformat::Plain);
  EXPECT_EQ(word(std::wstring()).format, imageformat::Plain);
  EXPECT_EQ(word(L"smartx").format, imageformat::Plain);
}

TEST(ImageFormatWord, TheLastWordWins) {
  ImageFormatChoice c;
  ApplyImageFormatWord(c, L"compr?7");
  ApplyImageFormatWord(c, L"plain");
  EXPECT_EQ(c.format, imageformat::Plain);
  EXPECT_EQ(c.level, 7);
}

TEST(FormatRule, LevelIsClampedToNine) {
  EXPECT_EQ(sent(L"compr?12").level, 9);
  EXPECT_EQ(sent(L"compr?9").level, 9);
  EXPECT_EQ(sent(L"compr?5").level, 5);
}

TEST(FormatRule, LevelBelowOneIsOne) {
  EXPECT_EQ(sent(L"compr?0").level, 1);
  EXPECT_EQ(sent(L"compr").level, 1);
  EXPECT_EQ(sent(L"compr?-3").level, 1);
}

TEST(FormatRule, WithoutSmartCapabilitySmartIsPlainButComprStays) {
  EXPECT_EQ(sent(L"smart", false).format, imageformat::Plain);
  EXPECT_EQ(sent(L"compr", false).format, imageformat::Compr);
}

TEST(FormatRule, WithSmartCapabilityComprIsSmart) {
  EXPECT_EQ(sent(L"compr?4", true).format, imageformat::Smart);
  EXPECT_EQ(sent(L"smart", true).format, imageformat::Smart);
  EXPECT_EQ(sent(L"plain", true).format, imageformat::Plain);
}

TEST(SaveImageRecord, WithoutATargetIs40Bytes) {
  const Bytes r = BuildSaveImageRecord(nullptr, 1, 2, 7);
  ASSERT_EQ(r.size(), 40u);
  EXPECT_EQ(get32(r, 0), 40u);
  EXPECT_EQ(get32(r, 4), 40u);
  EXPECT_EQ(get32(r, 8), 1u);
  EXPECT_EQ(r[12], 2);
  EXPECT_EQ(r[13], 7);
  for (std::size_t i = 14; i < 40; ++i) EXPECT_EQ(r[i], 0) << i;
}

TEST(SaveImageRecord, WithATargetCarriesThePrefixedName) {
  const std::wstring target = L"D:\\a.img";
  const Bytes r = BuildSaveImageRecord(&target, 0, 0, 1);
  const std::wstring name = L"\\DosDevices\\D:\\a.img";
  const std::size_t nameBytes = 2 * (name.size() + 1);
  ASSERT_EQ(r.size(), 38 + nameBytes);
  EXPECT_EQ(get32(r, 0), 40u);
  EXPECT_EQ(get32(r, 4), 38 + nameBytes);
  EXPECT_EQ(get32(r, 8), 0u);
  EXPECT_EQ(r[13], 1);
  EXPECT_EQ(get16(r, 36), nameBytes);
  for (std::size_t i = 0; i < name.size(); ++i) EXPECT_EQ(get16(r, 38 + 2 * i), name[i]) << i;
  EXPECT_EQ(get16(r, 38 + 2 * name.size()), 0);
}

}  // namespace save_format_test
}  // namespace vmd
