#include "settings/format_spec.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <map>
#include <string>

#include "base/bytes.h"
#include "settings/settings_record.h"
#include "sim/record_layout.h"

namespace vmd {
namespace init_format_spec_test {

// One volume at R:\ with what GetVolumeInformationW, GetDiskFreeSpaceW and
// GetFileAttributesW report for it.
class OneVolume : public VolumeService, public FileService {
 public:
  SysResult<std::uint32_t> logicalDrives() override { return SysResult<std::uint32_t>::failure(1); }
  SysResult<std::uint32_t> driveType(const std::wstring&) override {
    return SysResult<std::uint32_t>::success(drivetype::Fixed);
  }
  SysResult<VolumeInfo> volumeInformation(const std::wstring& root) override {
    asked = root;
    if (!infoOk) return SysResult<VolumeInfo>::failure(21);
    return SysResult<VolumeInfo>::success({label, serial, fileSystem});
  }
  SysResult<FreeSpace> diskFreeSpace(const std::wstring&) override {
    if (!spaceOk) return SysResult<FreeSpace>::failure(21);
    return SysResult<FreeSpace>::success({sectors, 512, 0, 0});
  }
  SysResult<FreeSpaceEx> diskFreeSpaceEx(const std::wstring&) override { return SysResult<FreeSpaceEx>::failure(1); }
  SysResult<std::wstring> volumeNameForMountPoint(const std::wstring&, std::uint32_t) override {
    return SysResult<std::wstring>::failure(1);
  }
  SysResult<PathNames> volumePathNames(const std::wstring&, std::uint32_t) override {
    return SysResult<PathNames>::failure(1);
  }
  SysStatus setVolumeMountPoint(const std::wstring&, const std::wstring&) override { return SysStatus::failure(1); }
  SysStatus deleteVolumeMountPoint(const std::wstring&) override { return SysStatus::failure(1); }
  SysStatus setVolumeLabel(const std::wstring&, const std::wstring*) override { return SysStatus::failure(1); }

  SysResult<std::uint32_t> attributes(const std::wstring& path) override {
    auto it = attrs.find(path);
    if (it == attrs.end()) return SysResult<std::uint32_t>::failure(2, InvalidFileAttributes);
    return SysResult<std::uint32_t>::success(it->second);
  }
  SysResult<std::uint64_t> fileSize(const std::wstring&) override { return SysResult<std::uint64_t>::failure(2); }
  SysResult<Bytes> readHead(const std::wstring&, std::uint32_t) override { return SysResult<Bytes>::failure(2); }
  SysStatus writeWhole(const std::wstring&, const Bytes&) override { return SysStatus::failure(110); }
  SysResult<bool> pathIsDirectory(const std::wstring&) override { return SysResult<bool>::success(false); }

  bool infoOk = true, spaceOk = true;
  std::wstring label = L"RAMDISK", fileSystem = L"NTFS";
  std::uint32_t serial = 0x1A2B3C4D, sectors = 8;
  std::map<std::wstring, std::uint32_t> attrs = {{L"R:\\", 0x10}};
  std::wstring asked;
};

std::optional<Bytes> build(OneVolume& v) { return BuildFormatSpecFromVolume(v, v, L"R:\\"); }

TEST(BuildFormatSpecFromVolume, NtfsVolumeWithLabel) {
  OneVolume v;
  const auto spec = build(v);
  ASSERT_TRUE(spec);
  // 44 + 2 x 7 label characters: the terminator is counted in the 44.
  ASSERT_EQ(spec->size(), 58u);
  EXPECT_EQ(get32(*spec, 0), 44u);
  EXPECT_EQ(get32(*spec, 4), 58u);
  EXPECT_EQ((*spec)[8], 0);     // no TEMP, not compressed, indexed
  EXPECT_EQ((*spec)[9], 0x08);  // the serial is to be used
  EXPECT_EQ((*spec)[10], 2);
  EXPECT_EQ((*spec)[11], 8);
  EXPECT_EQ(get32(*spec, 12), 0x1A2B3C4Du);
  for (std::size_t i = 16; i < 40; ++i) EXPECT_EQ((*spec)[i], 0) << i;
  EXPECT_EQ(get16(*spec, 40), 16);
  const std::wstring label = L"RAMDISK";
  for (std::size_t i = 0; i < label.size(); ++i) EXPECT_EQ(get16(*spec, 42 + 2 * i), label[i]);
  EXPECT_EQ(get16(*spec, 56), 0);
  EXPECT_EQ(v.asked, L"R:\\");
}

TEST(BuildFormatSpecFromVolume, VolumeWithoutLabelIs44Bytes) {
  OneVolume v;
  v.label = L"";
  const auto spec = build(v);
  ASSERT_TRUE(spec);
  EXPECT_EQ(spec->size(), 44u);
  EXPECT_EQ(get32(*spec, 4), 44u);
  EXPECT_EQ(get16(*spec, 40), 0);
}

TEST(BuildFormatSpecFromVolume, FileSystemNamesInAnyCase) {
  OneVolume v;
  const std::pair<const wchar_t*, int> names[] = {
      {L"ntfs", 2}, {L"FAT", 18}, {L"fat32", 19}, {L"Fat32", 19}, {L"exFAT", 1}, {L"UDF", 1}, {L"", 1}};
  for (const auto& [name, code] : names) {
    v.fileSystem = name;
    const auto spec = build(v);
    ASSERT_TRUE(spec);
    EXPECT_EQ((*spec)[10], code) << std::string(name, name + std::wcslen(name));
  }
}

TEST(BuildFormatSpecFromVolume, TempFolderCompressionAndIndexingOnNtfs) {
  OneVolume v;
  v.attrs[L"R:\\"] = 0x10 | 0x800 | 0x2000;
  v.attrs[L"R:\\TEMP\\"] = 0x10;
  const auto spec = build(v);
  ASSERT_TRUE(spec);
  EXPECT_EQ((*spec)[8], 0x02 | 0x01 | 0x04);
}

TEST(BuildFormatSpecFromVolume, FatTakesOnlyTheTempBit) {
  OneVolume v;
  v.fileSystem = L"FAT32";
  v.attrs[L"R:\\"] = 0x10 | 0x800 | 0x2000;
  v.attrs[L"R:\\TEMP\\"] = 0x10;
  const auto spec = build(v);
  ASSERT_TRUE(spec);
  EXPECT_EQ((*spec)[8], 0x02);
}

TEST(BuildFormatSpecFromVolume, UnreadableRootAttributesSetNoFlag) {
  OneVolume v;
  v.attrs.clear();
  const auto spec = build(v);
  ASSERT_TRUE(spec);
  EXPECT_EQ((*spec)[8], 0);
}

TEST(BuildFormatSpecFromVolume, ClusterZeroWhenFreeSpaceFails) {
  OneVolume v;
  v.spaceOk = false;
  const auto spec = build(v);
  ASSERT_TRUE(spec);
  EXPECT_EQ((*spec)[11], 0);
}

TEST(BuildFormatSpecFromVolume, ClusterTakesTheLowByte) {
  OneVolume v;
  v.sectors = 256;
  EXPECT_EQ((*build(v))[11], 0);
  v.sectors = 128;
  EXPECT_EQ((*build(v))[11], 128);
}

TEST(BuildFormatSpecFromVolume, NothingWhenTheVolumeCannotBeRead) {
  OneVolume v;
  v.infoOk = false;
  EXPECT_FALSE(build(v));
}

TEST(StoredFormatSpec, TheRecordsFormatSection) {
  const Bytes record = sim::buildRecord({{"sizeMb", 64}, {"fileSystem", 2}, {"volumeLabel", "X"}});
  const auto spec = StoredFormatSpec(record);
  ASSERT_TRUE(spec);
  const std::size_t at = get16(record, 44);
  EXPECT_EQ(*spec, Bytes(record.begin() + at, record.begin() + at + get16(record, 46)));
}

TEST(StoredFormatSpec, FileSystemCodeOneIsNotUsed) {
  const Bytes record = sim::buildRecord({{"sizeMb", 64}, {"fileSystem", 1}});
  EXPECT_FALSE(StoredFormatSpec(record));
}

TEST(StoredFormatSpec, AbsentOrOutsideSectionIsNotUsed) {
  Bytes record = sim::buildRecord({{"sizeMb", 64}, {"fileSystem", 2}});
  Bytes absent = record;
  put16(absent, 46, 0);
  EXPECT_FALSE(StoredFormatSpec(absent));
  put16(record, 46, record.size());
  EXPECT_FALSE(StoredFormatSpec(record));
}

}  // namespace init_format_spec_test
}  // namespace vmd
