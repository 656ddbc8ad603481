#include "settings/settings_report.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <vector>

#include "platform/host.h"
#include "support/fakes.h"

namespace vmd {
namespace settings_report_test {

const std::wstring kRuleLine = L"-------------------------------------------------------";

class SettingsReport : public ::testing::Test {
 protected:
  // The report's lines, printed through an Output over the program's own catalogue.
  std::vector<std::wstring> report(const DiskSettings& s, std::uint32_t mode) {
    streams.clear();
    PrintDiskSettings(out, s, mode);
    EXPECT_TRUE(streams.err.empty());
    EXPECT_FALSE(streams.out.empty());
    EXPECT_EQ(streams.out.back(), L'\n');
    std::vector<std::wstring> lines;
    std::wstringstream in(streams.out);
    for (std::wstring line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }
  std::wstring line(const DiskSettings& s, std::wstring_view label, std::uint32_t mode = 0) {
    for (const auto& l : report(s, mode))
      if (l.rfind(label, 0) == 0) return l;
    return L"<missing " + std::wstring(label) + L">";
  }

  test::CapturingStreams streams;
  std::unique_ptr<MessageCatalog> catalog = makeHostCatalog();
  test::ScriptedKeys keys;
  Output out{streams, *catalog, keys};
};

using Lines = std::vector<std::wstring>;

TEST_F(SettingsReport, DefaultDiskInFull) {
  EXPECT_EQ(report(DiskSettings{}, 0), (Lines{
                                           kRuleLine,
                                           L"Disk size: 128 MB",
                                           L"Disk type: SCSI",
                                           L"Drive letter: -",
                                           L"One-time disk: No",
                                           L"Memory size: 128 MB",
                                           L"Memory features: -",
                                           L"Drive file size: 0 MB",
                                           L"Drive file name: -",
                                           L"File system: FAT32",
                                           L"Cluster size: Default",
                                           L"Volume label: RAMDISK",
                                           L"NTFS compression: -",
                                           L"NTFS indexing: -",
                                           L"NTFS \"Everyone\" permission: -",
                                           L"Create \"TEMP\" folder: No",
                                           L"Custom folders: -",
                                           L"Volume serial number: -",
                                           L"Enable image file: No",
                                           kRuleLine,
                                       }));
}

DiskSettings hybridDisk() {
  DiskSettings s;
  s.sizeMb = 8192;
  s.diskFlags = diskflag::DirectIo | diskflag::OneTime;
  s.driveLetter = L'R';
  s.substanceFlags = substance::InvisibleMemory | substance::Hybrid;
  s.imQuotaMb = 0;
  s.physicalDriveSizeMb = 3072;
  s.physicalDriveFile = L"C:\\hybrid.hbd";
  s.fileSystem = filesystem::Ntfs;
  s.clusterSize = 4096;
  s.volumeLabel = L"HYBRID";
  s.fsFlags = fsflag::Compress | fsflag::TempFolder;
  s.everyonePermissions = permission::Modify;
  s.volumeSerial = 0x1234ABCD;
  s.customFolderCount = 2;
  s.customFolders[0] = L"work";
  s.customFolders[1] = L"cache";
  return s;
}

TEST_F(SettingsReport, HybridDiskInFull) {
  EXPECT_EQ(report(hybridDisk(), 0), (Lines{
                                         kRuleLine,
                                         L"Disk size: 8192 MB",
                                         L"Disk type: Direct-IO",
                                         L"Drive letter: R",
                                         L"One-time disk: Yes",
                                         L"Memory size: 5120 MB",
                                         L"Memory features: IM ",
                                         L"Drive file size: 3072 MB",
                                         L"Drive file name: C:\\hybrid.hbd",
                                         L"File system: NTFS",
                                         L"Cluster size: 4 KB",
                                         L"Volume label: HYBRID",
                                         L"NTFS compression: Yes",
                                         L"NTFS indexing: Yes",
                                         L"NTFS \"Everyone\" permission: Modify, Read & Exec, Write",
                                         L"Create \"TEMP\" folder: Yes",
                                         L"Custom folders: ",
                                         L"    work",
                                         L"    cache",
                                         L"Volume serial number: 1234-ABCD",
                                         L"Enable image file: No",
                                         kRuleLine,
                                     }));
}

TEST_F(SettingsReport, StatusFormLeavesOutDriveLetterAndTheVolumeFormat) {
  EXPECT_EQ(report(hybridDisk(), 1), (Lines{
                                         kRuleLine,
                                         L"Disk size: 8192 MB",
                                         L"Disk type: Direct-IO",
                                         L"One-time disk: Yes",
                                         L"Memory size: 5120 MB",
                                         L"Memory features: IM (0 MB) ",
                                         L"Drive file size: 3072 MB",
                                         L"Drive file name: C:\\hybrid.hbd",
                                         L"Enable image file: No",
                                         kRuleLine,
                                     }));
}

TEST_F(SettingsReport, LoadOnlyImageStopsAfterTheDelayLoadLine) {
  DiskSettings s;
  s.imageFile = L"D:\\images\\base.img";
  s.loadOnly = 1;
  s.imageFlags = imageflag::Accepted | imageflag::DelayLoad;
  s.imageFormat = imageformat::Compr;  // not shown for a Load Only image
  const Lines lines = report(s, 0);
  const Lines tail(lines.end() - 5, lines.end());
  EXPECT_EQ(tail, (Lines{
                      L"Enable image file: Yes",
                      L"Image file name: D:\\images\\base.img",
                      L"Load/Save functions: Load only",
                      L"Delay Load mode: Yes",
                      kRuleLine,
                  }));
}

TEST_F(SettingsReport, CompressedImageWithTimingAndRealTimeSave) {
  DiskSettings s;
  s.imageFile = L"D:\\c.img";
  s.imageFlags = imageflag::Accepted | imageflag::SaveAtShutdown | imageflag::TimingSave | imageflag::RealTimeSave;
  s.imageFormat = imageformat::Compr;
  s.compressionLevel = 9;
  s.timingSaveMinutes = 10;
  const Lines lines = report(s, 0);
  const Lines tail(lines.end() - 8, lines.end());
  EXPECT_EQ(tail, (Lines{
                      L"Enable image file: Yes",
                      L"Image file name: D:\\c.img",
                      L"Load/Save functions: Load & save",
                      L"Delay Load mode: No",
                      L"Image format: Compressed image (level = 9)",
                      L"When to save: Save at shutdown, Timing save (10 min), Real-time save",
                      L"Quick Save mode: No",
                      kRuleLine,
                  }));
}

TEST_F(SettingsReport, ImageLinesAppearInTheStatusFormToo) {
  DiskSettings s;
  s.imageFile = L"D:\\p.img";
  s.imageFlags = imageflag::SaveAtShutdown | imageflag::QuickSave;
  const Lines lines = report(s, 1);
  const Lines tail(lines.end() - 8, lines.end());
  EXPECT_EQ(tail, (Lines{
                      L"Enable image file: Yes",
                      L"Image file name: D:\\p.img",
                      L"Load/Save functions: Load & save",
                      L"Delay Load mode: No",
                      L"Image format: Plain image",
                      L"When to save: Save at shutdown",
                      L"Quick Save mode: Yes",
                      kRuleLine,
                  }));
}

TEST_F(SettingsReport, ImageFormatNames) {
  DiskSettings s;
  s.imageFile = L"D:\\p.img";
  s.imageFlags = imageflag::SaveAtShutdown;
  s.imageFormat = imageformat::Smart;
  EXPECT_EQ(line(s, L"Image format"), L"Image format: Smart image");
  s.imageFormat = 7;
  EXPECT_EQ(line(s, L"Image format"), L"Image format: Unknown");
}

TEST_F(SettingsReport, MemoryFeatureTexts) {
  DiskSettings s;
  s.substanceFlags = substance::InvisibleMemory;
  s.imQuotaMb = 512;
  EXPECT_EQ(line(s, L"Memory features"), L"Memory features: IM (Quota: 512 MB) ");
  EXPECT_EQ(line(s, L"Memory features", 1), L"Memory features: IM (512 MB) ");
  s.imQuotaMb = 0;
  EXPECT_EQ(line(s, L"Memory features"), L"Memory features: IM ");
  s.substanceFlags = substance::Dmm;
  EXPECT_EQ(line(s, L"Memory features"), L"Memory features: DMM ");
  s.substanceFlags = substance::Dmm | substance::DmmCompact;
  EXPECT_EQ(line(s, L"Memory features"), L"Memory features: DMM Compact");
  s.substanceFlags = substance::InvisibleMemory | substance::Dmm | substance::DmmCompact;
  s.imQuotaMb = 64;
  EXPECT_EQ(line(s, L"Memory features"), L"Memory features: IM (Quota: 64 MB) DMM Compact");
  s.substanceFlags = substance::Hybrid;  // no feature named, yet not "-"
  EXPECT_EQ(line(s, L"Memory features"), L"Memory features: ");
}

TEST_F(SettingsReport, MemorySizeIsPlain32BitSubtraction) {
  DiskSettings s;
  s.sizeMb = 100;
  s.physicalDriveSizeMb = kDriveShareWholeDisk;
  s.physicalDriveFile = L"C:\\f";
  EXPECT_EQ(line(s, L"Memory size"), L"Memory size: -2147483547 MB");
  EXPECT_EQ(line(s, L"Drive file size"), L"Drive file size: 2147483647 MB");
}

TEST_F(SettingsReport, DriveFileNameNeedsAShare) {
  DiskSettings s;
  s.physicalDriveFile = L"C:\\f";
  EXPECT_EQ(line(s, L"Drive file name"), L"Drive file name: -");
}

TEST_F(SettingsReport, FileSystemNames) {
  DiskSettings s;
  s.fileSystem = filesystem::Fat;
  EXPECT_EQ(line(s, L"File system"), L"File system: FAT");
  s.fileSystem = 7;
  EXPECT_EQ(line(s, L"File system"), L"File system: RAW");
}

TEST_F(SettingsReport, ClusterSizes) {
  DiskSettings s;
  for (auto [bytes, text] : std::vector<std::pair<std::uint32_t, std::wstring>>{
           {512, L"512"}, {1024, L"1 KB"}, {1536, L"1 KB"}, {2048, L"2 KB"}, {4096, L"4 KB"}, {65536, L"64 KB"}}) {
    s.clusterSize = bytes;
    EXPECT_EQ(line(s, L"Cluster size"), L"Cluster size: " + text);
  }
}

TEST_F(SettingsReport, NtfsCompressionAndIndexingOnlyForNtfs) {
  DiskSettings s;
  s.fileSystem = filesystem::Ntfs;
  s.fsFlags = fsflag::NoIndexing;
  EXPECT_EQ(line(s, L"NTFS compression"), L"NTFS compression: No");
  EXPECT_EQ(line(s, L"NTFS indexing"), L"NTFS indexing: No");
  s.fileSystem = filesystem::Fat;
  s.fsFlags = fsflag::Compress | fsflag::NoIndexing;
  EXPECT_EQ(line(s, L"NTFS compression"), L"NTFS compression: -");
  EXPECT_EQ(line(s, L"NTFS indexing"), L"NTFS indexing: -");
}

TEST_F(SettingsReport, PermissionListsFollowTheOverlappingBits) {
  DiskSettings s;
  const std::wstring label = L"NTFS \"Everyone\" permission: ";
  s.everyonePermissions = permission::Full;
  EXPECT_EQ(line(s, label), label + L"Full, Modify, Read & Exec, Write");
  s.everyonePermissions = permission::Modify;
  EXPECT_EQ(line(s, label), label + L"Modify, Read & Exec, Write");
  s.everyonePermissions = permission::ReadExec | permission::Write;
  EXPECT_EQ(line(s, label), label + L"Read & Exec, Write");
  s.everyonePermissions = permission::ReadExec;
  EXPECT_EQ(line(s, label), label + L"Read & Exec");
  s.everyonePermissions = 0x40;  // no named bit: everything is cut away
  EXPECT_EQ(line(s, label), label);
}

TEST_F(SettingsReport, SerialIsTwoUpperCaseHexHalves) {
  DiskSettings s;
  s.volumeSerial = 0x000A00FF;
  EXPECT_EQ(line(s, L"Volume serial"), L"Volume serial number: 000A-00FF");
}

TEST_F(SettingsReport, CustomFoldersListOnlyTheCountedEntries) {
  DiskSettings s;
  s.customFolderCount = 1;
  s.customFolders[0] = L"only";
  s.customFolders[1] = L"not shown";
  const Lines lines = report(s, 0);
  const auto at = std::find(lines.begin(), lines.end(), L"Custom folders: ");
  ASSERT_NE(at, lines.end());
  EXPECT_EQ(*(at + 1), L"    only");
  EXPECT_EQ((at + 2)->rfind(L"Volume serial number", 0), 0u);
}

TEST_F(SettingsReport, TextWithPercentSignsIsPrintedAsIs) {
  DiskSettings s;
  s.volumeLabel = L"100%d";
  EXPECT_EQ(line(s, L"Volume label"), L"Volume label: 100%d");
}

class ByteSize : public SettingsReport {};

TEST_F(ByteSize, GigabytesWithTwoDecimals) {
  EXPECT_EQ(FormatByteSize(out, 3ull << 30), L"3.00 GB");
  EXPECT_EQ(FormatByteSize(out, 1ull << 30), L"1.00 GB");
  EXPECT_EQ(FormatByteSize(out, (1ull << 30) + (1ull << 29)), L"1.50 GB");
  EXPECT_EQ(FormatByteSize(out, 5000ull << 30), L"5000.00 GB");
}

TEST_F(ByteSize, MegabytesRoundedToTheNearest) {
  EXPECT_EQ(FormatByteSize(out, 3ull << 19), L"2 MB");  // 1.5 MiB
  EXPECT_EQ(FormatByteSize(out, (1ull << 30) - 1), L"1024 MB");
  EXPECT_EQ(FormatByteSize(out, 1ull << 20), L"1 MB");
  EXPECT_EQ(FormatByteSize(out, (1ull << 20) + 0x7FFFF), L"1 MB");
}

TEST_F(ByteSize, BelowOneMegabyteIsZero) {
  EXPECT_EQ(FormatByteSize(out, 1048575), L"0 MB");
  EXPECT_EQ(FormatByteSize(out, 0), L"0 MB");
}

TEST_F(ByteSize, PrintsNothingItself) {
  streams.clear();
  FormatByteSize(out, 12345678);
  EXPECT_TRUE(streams.all.empty());
}

}  // namespace settings_report_test
}  // namespace vmd
