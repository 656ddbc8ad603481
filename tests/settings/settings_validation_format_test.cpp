// Validation of the file system, its cluster size, the NTFS-only settings,
// the label and the extra mask.
#include "settings/settings_validation.h"

#include <gtest/gtest.h>

#include <string>

#include "settings/settings_validation_support.h"

namespace vmd::test {
namespace settings_validation_format_test {

// ---- File system ----

struct FsCase {
  std::uint32_t sizeMb;
  std::uint8_t asked;
  std::uint8_t result;
  bool warns;
};

TEST(ValidateDiskSettings, FileSystemBySize) {
  const FsCase cases[] = {
      {9, filesystem::Ntfs, filesystem::Fat, true},      {9, filesystem::Fat, filesystem::Fat, false},
      {10, filesystem::Fat32, filesystem::Fat, true},    {64, filesystem::Fat32, filesystem::Fat, true},
      {65, filesystem::Fat32, filesystem::Fat32, false}, {65, filesystem::Fat, filesystem::Fat, false},
      {2048, filesystem::Fat, filesystem::Fat, false},   {2049, filesystem::Fat, filesystem::Fat32, true},
      {32768, filesystem::Fat32, filesystem::Fat32, false}, {32769, filesystem::Fat32, filesystem::Ntfs, true},
      {10, filesystem::Ntfs, filesystem::Ntfs, false},   {128, 7, filesystem::Fat, true},
      {4096, 0, filesystem::Fat32, true},
  };
  for (const FsCase& c : cases) {
    DiskSettings s = plainDisk();
    s.sizeMb = c.sizeMb;
    s.fileSystem = c.asked;
    const Validated v = validate(s, machine(), false);
    EXPECT_EQ(v.s.fileSystem, c.result) << c.sizeMb << " " << int(c.asked);
    EXPECT_EQ(v.err, c.warns ? L"Warning: specified file system is not available for this disk!\n" : L"")
        << c.sizeMb << " " << int(c.asked);
  }
}

// ---- Cluster size ----

struct ClusterCase {
  std::uint32_t sizeMb;
  std::uint8_t fs;
  std::uint32_t cluster;
  std::uint32_t result;
  const wchar_t* warning;
};

TEST(ValidateDiskSettings, ClusterSizes) {
  const wchar_t* bad = L"Warning: bad value for cluster size!\n";
  const wchar_t* na = L"Warning: specified cluster size is not available for this disk!\n";
  const ClusterCase cases[] = {
      {128, filesystem::Fat32, 3000, 0, bad},
      {128, filesystem::Fat32, 0, 0, L""},
      {128, filesystem::Fat32, 256, 0, bad},
      {128, filesystem::Fat32, 131072, 0, bad},
      {100, filesystem::Fat32, 65536, 0, na},     // [1, 2] sectors
      {100, filesystem::Fat32, 1024, 1024, L""},
      {100, filesystem::Fat32, 512, 512, L""},
      {128, filesystem::Ntfs, 4096, 4096, L""},
      {128, filesystem::Ntfs, 512, 512, L""},
      {128, filesystem::Ntfs, 65536, 65536, L""},
      {12, filesystem::Fat, 4096, 4096, L""},     // small FAT: exactly 8 sectors
      {12, filesystem::Fat, 2048, 0, na},
      {2, filesystem::Fat, 512, 512, L""},
      {2, filesystem::Fat, 4096, 4096, L""},
      {17, filesystem::Fat, 512, 512, L""},       // [1, 8]
      {17, filesystem::Fat, 8192, 0, na},
      {1500, filesystem::Fat, 32768, 32768, L""},  // [64, 64]
      {1500, filesystem::Fat, 16384, 0, na},
      {3000, filesystem::Fat32, 512, 0, na},      // [2, 64]
      {3000, filesystem::Fat32, 32768, 32768, L""},
      {30000, filesystem::Fat32, 4096, 0, na},    // [16, 64]
  };
  for (const ClusterCase& c : cases) {
    DiskSettings s = plainDisk();
    s.sizeMb = c.sizeMb;
    s.fileSystem = c.fs;
    s.clusterSize = c.cluster;
    const Validated v = validate(s, machine(), false);
    EXPECT_EQ(v.s.clusterSize, c.result) << c.sizeMb << " " << c.cluster;
    EXPECT_EQ(v.err, c.warning) << c.sizeMb << " " << c.cluster;
  }
}

TEST(ClusterTables, FirstRowAtOrAboveTheSize) {
  EXPECT_EQ(ClusterSectors(clustertable::Fat32Min, 2040), 1u);
  EXPECT_EQ(ClusterSectors(clustertable::Fat32Min, 2041), 2u);
  EXPECT_EQ(ClusterSectors(clustertable::Fat32Min, 32768), 32u);
  EXPECT_EQ(ClusterSectors(clustertable::Fat32Min, 32769), 0u);
  EXPECT_EQ(ClusterSectors(clustertable::Fat32Max, 68), 1u);
  EXPECT_EQ(ClusterSectors(clustertable::Fat32Max, 2052), 32u);
  EXPECT_EQ(ClusterSectors(clustertable::Fat32Max, 2053), 64u);
  EXPECT_EQ(ClusterSectors(clustertable::FatMin, 2049), 0u);
  EXPECT_EQ(ClusterSectors(clustertable::FatMax, 129), 64u);
  EXPECT_EQ(ClusterSectors(clustertable::FatSmallMin, 1), 1u);
  EXPECT_EQ(ClusterSectors(clustertable::FatSmallMin, 5), 4u);
  EXPECT_EQ(ClusterSectors(clustertable::FatSmallMax, 16), 8u);
  EXPECT_EQ(ClusterSectors(clustertable::FatSmallMax, 17), 0u);
}

// Every row of every table, at its limit and one above it.
TEST(ClusterTables, EveryRowAtItsLimitAndAbove) {
  struct Row {
    const ClusterTable* table;
    std::uint32_t limit, atLimit, above;
  };
  const Row rows[] = {
      {&clustertable::FatSmallMin, 2, 1, 2},     {&clustertable::FatSmallMin, 4, 2, 4},
      {&clustertable::FatSmallMin, 8, 4, 8},     {&clustertable::FatSmallMin, 16, 8, 0},
      {&clustertable::FatSmallMax, 16, 8, 0},
      {&clustertable::FatMin, 32, 1, 2},         {&clustertable::FatMin, 64, 2, 4},
      {&clustertable::FatMin, 128, 4, 8},        {&clustertable::FatMin, 256, 8, 16},
      {&clustertable::FatMin, 512, 16, 32},      {&clustertable::FatMin, 1024, 32, 64},
      {&clustertable::FatMin, 2048, 64, 0},
      {&clustertable::FatMax, 32, 8, 16},        {&clustertable::FatMax, 64, 16, 32},
      {&clustertable::FatMax, 128, 32, 64},      {&clustertable::FatMax, 2048, 64, 0},
      {&clustertable::Fat32Min, 2040, 1, 2},     {&clustertable::Fat32Min, 4080, 2, 4},
      {&clustertable::Fat32Min, 8160, 4, 8},     {&clustertable::Fat32Min, 16320, 8, 16},
      {&clustertable::Fat32Min, 32640, 16, 32},  {&clustertable::Fat32Min, 32768, 32, 0},
      {&clustertable::Fat32Max, 68, 1, 2},       {&clustertable::Fat32Max, 132, 2, 4},
      {&clustertable::Fat32Max, 260, 4, 8},      {&clustertable::Fat32Max, 516, 8, 16},
      {&clustertable::Fat32Max, 1028, 16, 32},   {&clustertable::Fat32Max, 2052, 32, 64},
      {&clustertable::Fat32Max, 32768, 64, 0},
  };
  for (const Row& r : rows) {
    EXPECT_EQ(ClusterSectors(*r.table, r.limit), r.atLimit) << r.limit;
    EXPECT_EQ(ClusterSectors(*r.table, r.limit + 1), r.above) << r.limit + 1;
  }
  EXPECT_EQ(ClusterSectors(clustertable::Fat32Max, 0x7fffffff), 0u);
}

// 16 MB is the last size of the small-FAT tables: 4 KB clusters exactly.
TEST(ValidateDiskSettings, SixteenMegabyteFatUsesTheSmallTables) {
  const wchar_t* na = L"Warning: specified cluster size is not available for this disk!\n";
  for (auto [cluster, kept] : {std::pair{512u, false}, std::pair{4096u, true}}) {
    DiskSettings s = plainDisk();
    s.sizeMb = 16;
    s.fileSystem = filesystem::Fat;
    s.clusterSize = cluster;
    const Validated v = validate(s, machine(), false);
    EXPECT_EQ(v.s.clusterSize, kept ? cluster : 0u) << cluster;
    EXPECT_EQ(v.err, kept ? L"" : na) << cluster;
  }
}

// ---- NTFS-only settings, label, extra mask ----

TEST(ValidateDiskSettings, NtfsCompressionNeedsSmallClusters) {
  DiskSettings s = plainDisk();
  s.fileSystem = filesystem::Ntfs;
  s.clusterSize = 8192;
  s.fsFlags = fsflag::Compress | fsflag::NoIndexing;
  const Validated v = validate(s);
  EXPECT_EQ(v.s.fsFlags, fsflag::NoIndexing);
  EXPECT_EQ(v.err, L"Warning: NTFS compression is not available for cluster size greater than 4KB!\n");

  s.fsFlags = fsflag::NoIndexing;
  EXPECT_EQ(validate(s).err, L"");
  s.clusterSize = 4096;
  s.fsFlags = fsflag::Compress;
  EXPECT_EQ(validate(s).s.fsFlags, fsflag::Compress);
}

TEST(ValidateDiskSettings, FatKeepsOnlyTheTempFolderAndNoPermissions) {
  DiskSettings s = plainDisk();
  s.fsFlags = fsflag::Compress | fsflag::NoIndexing | fsflag::TempFolder;
  s.everyonePermissions = permission::Full;
  const Validated v = validate(s);
  EXPECT_EQ(v.s.fsFlags, fsflag::TempFolder);
  EXPECT_EQ(v.s.everyonePermissions, 0);
  EXPECT_EQ(v.s.fsExtraMask, 0);
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, LabelIsCutTo32) {
  DiskSettings s = plainDisk();
  const std::wstring longest(32, L'L');
  s.volumeLabel = longest + L"LLLLLLLL";
  EXPECT_EQ(validate(s).s.volumeLabel, longest);
  const std::wstring exact(32, L'M');
  s.volumeLabel = exact;
  EXPECT_EQ(validate(s).s.volumeLabel, exact);
}

TEST(ValidateDiskSettings, ExtraMaskIsRecomputed) {
  DiskSettings s = plainDisk();
  s.fileSystem = filesystem::Ntfs;
  s.fsExtraMask = fsextra::AutoSerial | fsextra::Serial;
  EXPECT_EQ(validate(s).s.fsExtraMask, 0);
  s.everyonePermissions = permission::Write;
  EXPECT_EQ(validate(s).s.fsExtraMask, fsextra::Permissions);
  s.customFolderCount = 1;
  s.customFolders[0] = L"x";
  EXPECT_EQ(validate(s).s.fsExtraMask, fsextra::Permissions | fsextra::Folders);
  s.volumeSerial = 0x1234;
  EXPECT_EQ(validate(s).s.fsExtraMask, fsextra::Permissions | fsextra::Folders | fsextra::Serial);
}

}  // namespace settings_validation_format_test
}  // namespace vmd::test
