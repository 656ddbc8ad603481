#include "settings/settings_validation.h"

#include <gtest/gtest.h>

#include <string>

#include "support/sim_app.h"

namespace vmd {
namespace {

using sim::json;
using test::SimApp;

// C: the NTFS system drive with 100 GiB free; D: a fixed FAT32 drive; E: a
// removable NTFS drive with 1 GiB free; N: a network drive. 12 GiB of
// physical memory are available.
json machine() {
  return json::parse(R"({
    "drives": [
      {"letter": "C", "type": "fixed", "volume": "\\\\?\\Volume{c}\\"},
      {"letter": "D", "type": "fixed", "volume": "\\\\?\\Volume{d}\\"},
      {"letter": "E", "type": "removable", "volume": "\\\\?\\Volume{e}\\"},
      {"letter": "N", "type": "remote", "volume": "\\\\?\\Volume{n}\\"}
    ],
    "volumes": [
      {"name": "\\\\?\\Volume{c}\\", "mountPoints": ["C:\\"], "fileSystem": "NTFS", "label": "System",
       "totalBytes": 255999344640, "freeBytes": 107374182400},
      {"name": "\\\\?\\Volume{d}\\", "mountPoints": ["D:\\"], "fileSystem": "FAT32", "label": "Data",
       "totalBytes": 107374182400, "freeBytes": 53687091200},
      {"name": "\\\\?\\Volume{e}\\", "mountPoints": ["E:\\"], "fileSystem": "NTFS", "label": "Stick",
       "totalBytes": 8589934592, "freeBytes": 1073741824, "freeToCaller": 1},
      {"name": "\\\\?\\Volume{n}\\", "mountPoints": ["N:\\"], "fileSystem": "NTFS",
       "totalBytes": 8589934592, "freeBytes": 8589934592}
    ],
    "host": {"memory": {"totalPhys": 17179869184, "availPhys": 12884901888}}
  })");
}

json withFiles(json m, json files) {
  m["files"] = std::move(files);
  return m;
}

struct Validated {
  bool result;
  DiskSettings s;
  std::wstring err;
};

Validated validate(DiskSettings s, json state = machine(), bool checkMemory = true,
                   std::uint16_t current = 0) {
  SimApp sim(std::move(state));
  const bool r = ValidateDiskSettings(sim.app, s, checkMemory, current);
  return {r, s, sim.err()};
}

// A disk that validation leaves as it is on the machine above.
DiskSettings plainDisk() {
  DiskSettings s;
  s.driveLetter = L'R';
  return s;
}

DiskSettings withImage(std::wstring path, std::uint32_t sizeMb = 128) {
  DiskSettings s = plainDisk();
  s.sizeMb = sizeMb;
  s.imageFile = std::move(path);
  return s;
}

const std::wstring kExternal =
    L"Warning: file 'D:\\img.bin' is located on an external (USB etc.) disk or dynamic disk, or a partition of "
    L"which file system is not same as boot file system!\n";

// ---- Disk size ----

TEST(ValidateDiskSettings, DefaultsPassUnchangedApartFromTheLetter) {
  const Validated v = validate(DiskSettings{});
  EXPECT_TRUE(v.result);
  DiskSettings expected;
  expected.driveLetter = L'Z';
  EXPECT_EQ(v.s, expected);
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, SizeZeroBecomes128) {
  DiskSettings s = plainDisk();
  s.sizeMb = 0;
  const Validated v = validate(s);
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.sizeMb, 128u);
  EXPECT_EQ(v.err, L"Warning: disk size must be greater than 0!\n");
}

TEST(ValidateDiskSettings, NegativeSizeBecomes128) {
  DiskSettings s = plainDisk();
  s.sizeMb = static_cast<std::uint32_t>(-5);
  EXPECT_EQ(validate(s).s.sizeMb, 128u);
}

TEST(ValidateDiskSettings, SizeAboveOneTerabyteIsCut) {
  DiskSettings s = plainDisk();
  s.sizeMb = 1048577;
  const Validated v = validate(s, machine(), false);
  EXPECT_EQ(v.s.sizeMb, 1048576u);
  EXPECT_EQ(v.err,
            L"Warning: disk size must be less than 1048577!\n"
            L"Warning: specified file system is not available for this disk!\n");
}

TEST(ValidateDiskSettings, OneTerabytePassesSilently) {
  DiskSettings s = plainDisk();
  s.sizeMb = 1048576;
  s.fileSystem = filesystem::Ntfs;
  const Validated v = validate(s, machine(), false);
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.sizeMb, 1048576u);
  EXPECT_EQ(v.err, L"");
}

// ---- Drive letter ----

TEST(ValidateDiskSettings, FreeLetterIsKept) {
  const Validated v = validate(plainDisk());
  EXPECT_EQ(v.s.driveLetter, L'R');
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, CurrentLetterIsKeptThoughInUse) {
  DiskSettings s = plainDisk();
  s.driveLetter = L'D';
  const Validated v = validate(s, machine(), 0, L'D');
  EXPECT_EQ(v.s.driveLetter, L'D');
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, LetterInUseFallsBackToTheHighestFree) {
  DiskSettings s = plainDisk();
  s.driveLetter = L'C';
  const Validated v = validate(s);
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.driveLetter, L'Z');
  EXPECT_EQ(v.err, L"Warning: drive letter 'C' is not valid or has been assigned!\n");
}

TEST(ValidateDiskSettings, LetterInUseFallsBackToTheCurrentLetter) {
  DiskSettings s = plainDisk();
  s.driveLetter = L'C';
  const Validated v = validate(s, machine(), 0, L'S');
  EXPECT_EQ(v.s.driveLetter, L'S');
  EXPECT_EQ(v.err, L"Warning: drive letter 'C' is not valid or has been assigned!\n");
}

TEST(ValidateDiskSettings, NonLetterIsRefused) {
  DiskSettings s = plainDisk();
  s.driveLetter = L'5';
  const Validated v = validate(s);
  EXPECT_EQ(v.s.driveLetter, L'Z');
  EXPECT_EQ(v.err, L"Warning: drive letter '5' is not valid or has been assigned!\n");
}

TEST(ValidateDiskSettings, NoLetterTakesTheHighestFreeWithoutWarning) {
  json m = machine();
  m["drives"].push_back({{"letter", "Z"}, {"type", "cdrom"}});
  const Validated v = validate(DiskSettings{}, m);
  EXPECT_EQ(v.s.driveLetter, L'Y');
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, WithDToZTakenTheLetterBelowIsChosen) {
  json m = machine();
  m["drives"] = json::array({{{"letter", "C"}, {"type", "fixed"}, {"volume", "\\\\?\\Volume{c}\\"}}});
  for (char c = 'D'; c <= 'Z'; ++c) m["drives"].push_back({{"letter", std::string(1, c)}, {"type", "fixed"}});
  EXPECT_EQ(validate(DiskSettings{}, m).s.driveLetter, L'B');
}

TEST(ValidateDiskSettings, FullDriveMaskIsAnError) {
  json m = machine();
  m["drives"] = json::array();
  for (char c = 'A'; c <= 'Z'; ++c) m["drives"].push_back({{"letter", std::string(1, c)}, {"type", "fixed"}});
  DiskSettings s = plainDisk();
  const Validated v = validate(s, m);
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.s.driveLetter, 0);
  EXPECT_EQ(v.err,
            L"Warning: drive letter 'R' is not valid or has been assigned!\n"
            L"Error: no available drive letter for this virtual disk!\n");
}

TEST(ValidateDiskSettings, EmptyDriveMaskIsAnError) {
  json m = machine();
  m["faults"] = json::array({{{"api", "GetLogicalDrives"}}});
  const Validated v = validate(DiskSettings{}, m);
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.err, L"Error: no available drive letter for this virtual disk!\n");
}

TEST(ValidateDiskSettings, LowerCaseFreeLetterIsKeptAsTyped) {
  DiskSettings s = plainDisk();
  s.driveLetter = L'r';
  const Validated v = validate(s);
  EXPECT_EQ(v.s.driveLetter, L'r');
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, LowerCaseLetterInUseIsFoundInUse) {
  DiskSettings s = plainDisk();
  s.driveLetter = L'c';
  const Validated v = validate(s);
  EXPECT_EQ(v.s.driveLetter, L'Z');
  EXPECT_EQ(v.err, L"Warning: drive letter 'c' is not valid or has been assigned!\n");
}

// "Equals the current letter" is an exact comparison: r is not R.
TEST(ValidateDiskSettings, LowerCaseOfTheCurrentLetterInUseFallsBackToIt) {
  json m = machine();
  m["drives"].push_back({{"letter", "R"}, {"type", "fixed"}});
  DiskSettings s = plainDisk();
  s.driveLetter = L'r';
  const Validated v = validate(s, m, 0, L'R');
  EXPECT_EQ(v.s.driveLetter, L'R');
  EXPECT_EQ(v.err, L"Warning: drive letter 'r' is not valid or has been assigned!\n");
}

// ---- Backing file ----

TEST(ValidateDiskSettings, BareFileMakesAFileDiskWithoutMemoryFeaturesOrImage) {
  DiskSettings s = plainDisk();
  s.sizeMb = 1000;
  s.physicalDriveFile = L"C:\\disk.bin";
  s.physicalDriveSizeMb = kDriveShareWholeDisk;
  s.substanceFlags = substance::Dmm | substance::DmmCompact | substance::InvisibleMemory | substance::Hybrid;
  s.imQuotaMb = 300;
  s.imageFile = L"C:\\disk.img";
  s.imageFlags = imageflag::DelayLoad;
  const Validated v = validate(s);
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.physicalDriveSizeMb, 1000u);
  EXPECT_EQ(v.s.substanceFlags, substance::Hybrid);  // left as it was
  EXPECT_EQ(v.s.imQuotaMb, 0u);
  EXPECT_EQ(v.s.imageFile, L"");
  EXPECT_EQ(v.s.imageFlags, 0u);
  EXPECT_EQ(v.err, L"Warning: hybrid-disk or file-disk does not support image file!\n");
}

TEST(ValidateDiskSettings, ShareBelowTheSizeMakesAHybridDisk) {
  DiskSettings s = plainDisk();
  s.sizeMb = 8192;
  s.fileSystem = filesystem::Ntfs;
  s.physicalDriveFile = L"C:\\hybrid.hbd";
  s.physicalDriveSizeMb = 3072;
  s.substanceFlags = substance::Dmm;
  const Validated v = validate(s);
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.physicalDriveSizeMb, 3072u);
  EXPECT_EQ(v.s.substanceFlags, substance::Dmm | substance::Hybrid);
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, NoShareOrNoFileMeansMemoryOnly) {
  DiskSettings s = plainDisk();
  s.physicalDriveFile = L"C:\\hybrid.hbd";
  s.physicalDriveSizeMb = 0;
  s.substanceFlags = substance::Hybrid;
  Validated v = validate(s);
  EXPECT_EQ(v.s.physicalDriveFile, L"");
  EXPECT_EQ(v.s.substanceFlags, 0u);

  s.physicalDriveSizeMb = static_cast<std::uint32_t>(-3);
  v = validate(s);
  EXPECT_EQ(v.s.physicalDriveSizeMb, 0u);
  EXPECT_EQ(v.s.physicalDriveFile, L"");

  s.physicalDriveFile.clear();
  s.physicalDriveSizeMb = 64;
  v = validate(s);
  EXPECT_EQ(v.s.physicalDriveSizeMb, 0u);
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, BackingFileWithoutRoomIsAnError) {
  DiskSettings s = plainDisk();
  s.sizeMb = 4096;
  s.physicalDriveFile = L"E:\\big.bin";
  s.physicalDriveSizeMb = 2048;
  const Validated v = validate(s);
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.err, L"Error: not enough disk space for physical file 'E:\\big.bin'!\n");
}

TEST(ValidateDiskSettings, BadBackingFileStopsValidation) {
  DiskSettings s = plainDisk();
  s.physicalDriveFile = L"N:\\share.bin";
  s.physicalDriveSizeMb = 64;
  const Validated v = validate(s);
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.err, L"Error: file 'N:\\share.bin' is invalid - \nno volume is mounted, or the volume is not suitable!\n");
}

// ---- Memory ----

TEST(ValidateDiskSettings, MemoryShortfallIsAnErrorWithoutDmm) {
  DiskSettings s = plainDisk();
  s.sizeMb = 12033;
  s.fileSystem = filesystem::Ntfs;
  const Validated v = validate(s);
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.err, L"Error: memory request exceeds the available system memory!\n");
}

TEST(ValidateDiskSettings, MemoryThatLeaves256MbFits) {
  DiskSettings s = plainDisk();
  s.sizeMb = 12032;
  s.fileSystem = filesystem::Ntfs;
  EXPECT_TRUE(validate(s).result);
}

TEST(ValidateDiskSettings, MemoryShortfallIsAWarningWithDmm) {
  DiskSettings s = plainDisk();
  s.sizeMb = 20000;
  s.fileSystem = filesystem::Ntfs;
  s.substanceFlags = substance::Dmm;
  const Validated v = validate(s);
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.err, L"Warning: memory request exceeds the available system memory!\n");
}

TEST(ValidateDiskSettings, EditNeverChecksMemory) {
  DiskSettings s = plainDisk();
  s.sizeMb = 500000;
  s.fileSystem = filesystem::Ntfs;
  SimApp sim(machine());
  EXPECT_TRUE(ValidateDiskSettings(sim.app, s, false, L'R'));
  EXPECT_EQ(sim.err(), L"");
  EXPECT_EQ(sim.apiCalls("GlobalMemoryStatusEx"), 0u);
}

TEST(ValidateDiskSettings, FileDiskNeedsNoMemory) {
  DiskSettings s = plainDisk();
  s.sizeMb = 20000;
  s.fileSystem = filesystem::Ntfs;
  s.physicalDriveFile = L"C:\\disk.bin";
  s.physicalDriveSizeMb = 20000;
  SimApp sim(machine());
  EXPECT_TRUE(ValidateDiskSettings(sim.app, s, true, 0));
  EXPECT_EQ(sim.apiCalls("GlobalMemoryStatusEx"), 0u);
}

TEST(ValidateDiskSettings, InvisibleMemoryCoversPartOfTheNeed) {
  json m = machine();
  // 2048 MB of free Invisible Memory (4 KiB units).
  m["controller"]["im"] = {{"state", 0}, {"localState", 1}, {"unitSize", 4096}, {"freeUnits", 524288}};
  DiskSettings s = plainDisk();
  s.sizeMb = 14080;  // 2048 + 12032
  s.fileSystem = filesystem::Ntfs;
  s.substanceFlags = substance::InvisibleMemory;
  EXPECT_TRUE(validate(s, m).result);
  s.sizeMb = 14081;
  EXPECT_FALSE(validate(s, m).result);
  s.sizeMb = 14080;
  s.substanceFlags = 0;  // not allowed to use it
  EXPECT_FALSE(validate(s, m).result);
}

// ---- Memory features ----

TEST(ValidateDiskSettings, QuotaIsBroughtIntoRange) {
  DiskSettings s = plainDisk();
  s.substanceFlags = substance::InvisibleMemory;
  s.imQuotaMb = static_cast<std::uint32_t>(-1);
  EXPECT_EQ(validate(s).s.imQuotaMb, 0u);
  s.imQuotaMb = 4096;
  EXPECT_EQ(validate(s).s.imQuotaMb, 128u);
  s.imQuotaMb = 100;
  EXPECT_EQ(validate(s).s.imQuotaMb, 100u);
}

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
  s.volumeLabel = std::wstring(40, L'L');
  EXPECT_EQ(validate(s).s.volumeLabel, std::wstring(32, L'L'));
  s.volumeLabel = std::wstring(32, L'M');
  EXPECT_EQ(validate(s).s.volumeLabel, std::wstring(32, L'M'));
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

// ---- Image file ----

TEST(ValidateDiskSettings, NewPlainImageGetsSaveAtShutdownAndQuickSave) {
  DiskSettings s = withImage(L"C:\\disk.img");
  s.imageFlags = imageflag::RealTimeSave;
  const Validated v = validate(s);
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.imageFlags, imageflag::Accepted | imageflag::SaveAtShutdown | imageflag::QuickSave |
                                imageflag::RealTimeSave);
  EXPECT_EQ(v.s.compressionLevel, 1u);
  EXPECT_EQ(v.s.timingSaveMinutes, 60u);  // no timing save: the interval still reads 60
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, TimingSaveIntervalOutOfRangeBecomes60) {
  DiskSettings s = withImage(L"C:\\disk.img");
  s.timingSaveMinutes = 7000;
  s.imageFlags = imageflag::TimingSave;
  Validated v = validate(s);
  EXPECT_EQ(v.s.timingSaveMinutes, 60u);
  EXPECT_TRUE(v.s.imageFlags & imageflag::TimingSave);
  s.timingSaveMinutes = 6000;
  EXPECT_EQ(validate(s).s.timingSaveMinutes, 6000u);
  s.timingSaveMinutes = static_cast<std::uint32_t>(-4);
  EXPECT_EQ(validate(s).s.timingSaveMinutes, 60u);
}

TEST(ValidateDiskSettings, ZeroIntervalClearsTimingSave) {
  DiskSettings s = withImage(L"C:\\disk.img");
  s.timingSaveMinutes = 0;
  s.imageFlags = imageflag::TimingSave;
  const Validated v = validate(s);
  EXPECT_FALSE(v.s.imageFlags & imageflag::TimingSave);
}

TEST(ValidateDiskSettings, TimingAndRealTimeSaveAreForPlainImagesOnly) {
  DiskSettings s = withImage(L"C:\\disk.img");
  s.timingSaveMinutes = 30;
  s.imageFlags = imageflag::TimingSave | imageflag::RealTimeSave;
  s.imageFormat = imageformat::Smart;
  const Validated v = validate(s);
  EXPECT_EQ(v.s.imageFlags, imageflag::Accepted | imageflag::SaveAtShutdown | imageflag::QuickSave);
  EXPECT_EQ(v.s.timingSaveMinutes, 0u);
}

TEST(ValidateDiskSettings, CompressionLevelIsBroughtInto1To9) {
  DiskSettings s = withImage(L"C:\\disk.img");
  s.imageFormat = imageformat::Compr;
  s.imageFlags = imageflag::QuickSave;
  s.compressionLevel = 12;
  Validated v = validate(s);
  EXPECT_EQ(v.s.compressionLevel, 9u);
  EXPECT_EQ(v.s.imageFlags, imageflag::Accepted | imageflag::SaveAtShutdown);
  s.compressionLevel = 0;
  EXPECT_EQ(validate(s).s.compressionLevel, 1u);
  s.compressionLevel = static_cast<std::uint32_t>(-7);
  EXPECT_EQ(validate(s).s.compressionLevel, 1u);
  s.compressionLevel = 5;
  EXPECT_EQ(validate(s).s.compressionLevel, 5u);
}

TEST(ValidateDiskSettings, LoadOnlyImageThatDoesNotExistPasses) {
  DiskSettings s = withImage(L"C:\\missing.img");
  s.loadOnly = 1;
  s.timingSaveMinutes = 30;
  s.imageFlags = imageflag::TimingSave | imageflag::QuickSave | imageflag::DelayLoad | 0x80000 |
                 imageflag::FurtherSave;
  s.imageFormat = imageformat::Compr;
  s.compressionLevel = 0;
  const Validated v = validate(s);
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.imageFlags, imageflag::Accepted | imageflag::DelayLoad);
  EXPECT_EQ(v.s.timingSaveMinutes, 0u);
  EXPECT_EQ(v.s.imageFormat, imageformat::Compr);  // untouched: a Load Only image is never saved
  EXPECT_EQ(v.s.compressionLevel, 0u);
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, LoadOnlyImageOfUnknownFormatIsRefused) {
  DiskSettings s = withImage(L"C:\\junk.img");
  s.loadOnly = 1;
  const Validated v = validate(s, withFiles(machine(), json::array({{{"path", "C:\\junk.img"}, {"size", 4096}}})));
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.s.imageFile, L"");
  EXPECT_EQ(v.err, L"Error: image file 'C:\\junk.img' is either in unknown format or damaged!\n");
}

TEST(ValidateDiskSettings, LoadOnlyImageOfAnotherSizeIsRefused) {
  DiskSettings s = withImage(L"C:\\smart.img");
  s.loadOnly = 1;
  const json files = json::array(
      {{{"path", "C:\\smart.img"}, {"image", {{"format", "smart"}, {"diskSize", 64 << 20}}}, {"size", 1 << 20}}});
  const Validated v = validate(s, withFiles(machine(), files));
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.err, L"Error: image file 'C:\\smart.img' does not match the virtual disk size!\n");
}

TEST(ValidateDiskSettings, LoadOnlyImageOfTheRightSizeIsAccepted) {
  DiskSettings s = withImage(L"C:\\plain.img", 64);
  s.loadOnly = 1;
  const json files = json::array({{{"path", "C:\\plain.img"}, {"image", {{"format", "plain"}, {"diskSize", 64 << 20}}}}});
  const Validated v = validate(s, withFiles(machine(), files));
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.imageFlags, imageflag::Accepted);
}

TEST(ValidateDiskSettings, ExistingSmartImageSupersedesCompr) {
  DiskSettings s = withImage(L"C:\\smart.img");
  s.imageFormat = imageformat::Compr;
  s.compressionLevel = 4;
  const json files =
      json::array({{{"path", "C:\\smart.img"}, {"image", {{"format", "smart"}, {"diskSize", 128 << 20}}}}});
  const Validated v = validate(s, withFiles(machine(), files));
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.imageFormat, imageformat::Smart);
  EXPECT_EQ(v.s.compressionLevel, 1u);
  EXPECT_EQ(v.s.imageFlags, imageflag::Accepted | imageflag::SaveAtShutdown | imageflag::QuickSave);
  EXPECT_EQ(v.err, L"Warning: image format option 'compr' is supersede by the existing image file format!\n");
}

TEST(ValidateDiskSettings, ExistingPlainOrComprImageSupersedesSmart) {
  for (const char* format : {"plain", "compr"}) {
    DiskSettings s = withImage(L"C:\\disk.img");
    s.imageFormat = imageformat::Smart;
    const json files = json::array(
        {{{"path", "C:\\disk.img"}, {"image", {{"format", format}, {"diskSize", 128 << 20}, {"level", 3}}}}});
    const Validated v = validate(s, withFiles(machine(), files));
    EXPECT_TRUE(v.result) << format;
    EXPECT_EQ(v.s.imageFormat, std::string(format) == "plain" ? imageformat::Plain : imageformat::Compr);
    EXPECT_EQ(v.err, L"Warning: image format option 'smart' is superseded by the existing image file format!\n");
  }
}

TEST(ValidateDiskSettings, PlainAndComprMaySwitch) {
  DiskSettings s = withImage(L"C:\\disk.img");
  s.imageFormat = imageformat::Compr;
  s.compressionLevel = 6;
  const json files =
      json::array({{{"path", "C:\\disk.img"}, {"image", {{"format", "plain"}, {"diskSize", 128 << 20}}}}});
  const Validated v = validate(s, withFiles(machine(), files));
  EXPECT_EQ(v.s.imageFormat, imageformat::Compr);
  EXPECT_EQ(v.s.compressionLevel, 6u);
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, ExistingImageOfUnknownFormatWillBeOverwritten) {
  DiskSettings s = withImage(L"C:\\junk.img");
  s.imageFormat = imageformat::Smart;
  const Validated v = validate(s, withFiles(machine(), json::array({{{"path", "C:\\junk.img"}, {"size", 100}}})));
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.imageFormat, imageformat::Smart);
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, ReadOnlyImageIsRefused) {
  const json files = json::array({{{"path", "C:\\ro.img"}, {"attributes", "0x21"}}});
  const Validated v = validate(withImage(L"C:\\ro.img"), withFiles(machine(), files));
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.s.imageFile, L"");
  EXPECT_EQ(v.err, L"Error: image file 'C:\\ro.img' is read-only!\n");
}

TEST(ValidateDiskSettings, ImageWithBadPathOrDriveIsInvalid) {
  for (const wchar_t* path : {L"C:\\a\\\\b.img", L"N:\\share.img", L"Q:\\nodrive.img", L"disk.img"}) {
    const Validated v = validate(withImage(path));
    EXPECT_FALSE(v.result) << path;
    EXPECT_EQ(v.err, std::wstring(L"Error: file '") + path + L"' is invalid!\n");
  }
}

TEST(ValidateDiskSettings, ImageAbove4GbOnFatIsRefused) {
  const Validated v = validate(withImage(L"D:\\img.bin", 4097), machine(), false);
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.err, kExternal +
                       L"Error: file 'D:\\img.bin' is invalid - \nfile size cannot exceed 4GB on a FAT/FAT32 "
                       L"partition!\n");
}

TEST(ValidateDiskSettings, ImageOfExactly4GbOnFatPasses) {
  DiskSettings s = withImage(L"D:\\img.bin", 4096);
  s.fileSystem = filesystem::Fat32;
  const Validated v = validate(s, machine(), false);
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.err, kExternal);  // on a FAT32 drive while Windows is on NTFS
}

TEST(ValidateDiskSettings, ImageWithoutRoomIsRefused) {
  const Validated v = validate(withImage(L"E:\\disk.img", 2048), machine(), false);
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.err, L"Error: not enough disk space for image file 'E:\\disk.img'!\n");
}

TEST(ValidateDiskSettings, ImageOnAHybridDiskIsDropped) {
  DiskSettings s = withImage(L"C:\\disk.img", 1024);
  s.physicalDriveFile = L"C:\\h.hbd";
  s.physicalDriveSizeMb = 512;
  s.imageFlags = imageflag::SaveAtShutdown;
  const Validated v = validate(s);
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.imageFile, L"");
  EXPECT_EQ(v.s.imageFlags, 0u);
  EXPECT_EQ(v.err, L"Warning: hybrid-disk or file-disk does not support image file!\n");
}

TEST(ValidateDiskSettings, NoImageClearsTheImageFlags) {
  DiskSettings s = plainDisk();
  s.imageFlags = imageflag::DelayLoad | imageflag::TimingSave;
  const Validated v = validate(s);
  EXPECT_EQ(v.s.imageFlags, 0u);
  EXPECT_EQ(v.err, L"");
}

// ---- CheckBackingFilePath ----

bool backing(const std::wstring& path, std::uint32_t sizeMb, json state, std::wstring& err) {
  SimApp sim(std::move(state));
  const bool r = CheckBackingFilePath(sim.app, path, sizeMb);
  err = sim.err();
  return r;
}

TEST(CheckBackingFilePath, NewFileInAPlainFolderPasses) {
  std::wstring err;
  EXPECT_TRUE(backing(L"C:\\hybrid.hbd", 3072, machine(), err));
  EXPECT_EQ(err, L"");
}

TEST(CheckBackingFilePath, BadPathIsInvalid) {
  std::wstring err;
  EXPECT_FALSE(backing(L"C:\\dir\\", 64, machine(), err));
  EXPECT_EQ(err, L"Error: file 'C:\\dir\\' is invalid!\n");
}

TEST(CheckBackingFilePath, DriveMustBeFixedOrRemovable) {
  std::wstring err;
  EXPECT_FALSE(backing(L"N:\\x.bin", 64, machine(), err));
  EXPECT_EQ(err, L"Error: file 'N:\\x.bin' is invalid - \nno volume is mounted, or the volume is not suitable!\n");
  EXPECT_TRUE(backing(L"E:\\x.bin", 64, machine(), err));
}

TEST(CheckBackingFilePath, FatVolumeHoldsAtMost4096Mb) {
  std::wstring err;
  EXPECT_FALSE(backing(L"D:\\x.bin", 4097, machine(), err));
  EXPECT_EQ(err, L"Error: file 'D:\\x.bin' is invalid - \nfile size cannot exceed 4GB on a FAT/FAT32 partition!\n");
  EXPECT_TRUE(backing(L"D:\\x.bin", 4096, machine(), err));
  EXPECT_EQ(err, L"Warning: file 'D:\\x.bin' is located on an external (USB etc.) disk or dynamic disk, or a "
                 L"partition of which file system is not same as boot file system!\n");
}

TEST(CheckBackingFilePath, CompressedOrEncryptedFolderOfANewFileIsRefused) {
  for (const char* attrs : {"0x810", "0x4010"}) {
    std::wstring err;
    const json files = json::array({{{"path", "C:\\packed"}, {"attributes", attrs}}});
    EXPECT_FALSE(backing(L"C:\\packed\\x.bin", 64, withFiles(machine(), files), err)) << attrs;
    EXPECT_EQ(err, L"Error: file 'C:\\packed\\x.bin' is invalid - \nfile or directory cannot be read-only, "
                   L"compressed, or encrypted\n");
  }
}

TEST(CheckBackingFilePath, MissingFolderIsRefusedToo) {
  std::wstring err;
  EXPECT_FALSE(backing(L"C:\\nowhere\\x.bin", 64, machine(), err));
  EXPECT_EQ(err, L"Error: file 'C:\\nowhere\\x.bin' is invalid - \nfile or directory cannot be read-only, "
                 L"compressed, or encrypted\n");
}

TEST(CheckBackingFilePath, ReadOnlyCompressedOrEncryptedFileIsRefused) {
  for (const char* attrs : {"0x21", "0x820", "0x4020"}) {
    std::wstring err;
    const json files = json::array({{{"path", "C:\\x.bin"}, {"attributes", attrs}}});
    EXPECT_FALSE(backing(L"C:\\x.bin", 64, withFiles(machine(), files), err)) << attrs;
    EXPECT_EQ(err, L"Error: file 'C:\\x.bin' is invalid - \nfile or directory cannot be read-only, compressed, "
                   L"or encrypted!\n");
  }
  std::wstring err;
  const json plain = json::array({{{"path", "C:\\x.bin"}, {"attributes", "0x20"}}});
  EXPECT_TRUE(backing(L"C:\\x.bin", 64, withFiles(machine(), plain), err));
}

// ---- CheckImageFile ----

TEST(CheckImageFile, FormatStartsAsZeroAndReportsTheExistingFile) {
  SimApp sim(withFiles(machine(), json::array({{{"path", "C:\\c.img"},
                                                {"image", {{"format", "compr"}, {"diskSize", 64 << 20}, {"level", 7}}}},
                                               {{"path", "C:\\junk.img"}, {"size", 600}}})));
  int format = 55;
  std::uint32_t second = 0;
  EXPECT_TRUE(CheckImageFile(sim.app, L"C:\\new.img", 64 << 20, 0, false, &format, &second));
  EXPECT_EQ(format, 0);
  EXPECT_TRUE(CheckImageFile(sim.app, L"C:\\c.img", 64 << 20, 0, false, &format, &second));
  EXPECT_EQ(format, 2);
  EXPECT_EQ(second, 7u);
  EXPECT_TRUE(CheckImageFile(sim.app, L"C:\\junk.img", 64 << 20, 0, false, &format, &second));
  EXPECT_EQ(format, -1);
  EXPECT_EQ(sim.err(), L"");
}

TEST(CheckImageFile, SmartRequiredRefusesOtherFormats) {
  SimApp sim(withFiles(machine(), json::array({{{"path", "C:\\p.img"},
                                                {"image", {{"format", "plain"}, {"diskSize", 64 << 20}}}},
                                               {{"path", "C:\\s.img"},
                                                {"image", {{"format", "smart"}, {"diskSize", 64 << 20}}}}})));
  EXPECT_FALSE(CheckImageFile(sim.app, L"C:\\p.img", 64 << 20, 1, true));
  EXPECT_EQ(sim.err(), L"Error: image file 'C:\\p.img' is not a Smart Image which is required for hybrid-disk!\n");
  sim.streams.clear();
  EXPECT_TRUE(CheckImageFile(sim.app, L"C:\\s.img", 64 << 20, 0, true));
  EXPECT_EQ(sim.err(), L"");
}

TEST(CheckImageFile, LoadOnlyDoesNotCareForSpaceOrFatLimit) {
  SimApp sim(machine());
  EXPECT_TRUE(CheckImageFile(sim.app, L"E:\\new.img", 8ull << 30, 1, false));
  EXPECT_TRUE(CheckImageFile(sim.app, L"D:\\new.img", 8ull << 30, 1, false));
}

// ---- Helpers ----

TEST(IsValidFilePath, Shapes) {
  EXPECT_TRUE(IsValidFilePath(L"C:\\a", 248));
  EXPECT_TRUE(IsValidFilePath(L"z:\\dir\\file.img", 248));
  EXPECT_TRUE(IsValidFilePath(L"C:\\dir with blanks\\f", 248));
  EXPECT_FALSE(IsValidFilePath(L"C:", 248));
  EXPECT_FALSE(IsValidFilePath(L"C:\\", 248));
  EXPECT_FALSE(IsValidFilePath(L"C:\\a\\", 248));
  EXPECT_FALSE(IsValidFilePath(L"1:\\a", 248));
  EXPECT_FALSE(IsValidFilePath(L"C;\\a", 248));
  EXPECT_FALSE(IsValidFilePath(L"C:a\\b", 248));
  EXPECT_FALSE(IsValidFilePath(L"C:\\a\\\\b", 248));
  EXPECT_FALSE(IsValidFilePath(L"\\\\server\\share\\f", 248));
  for (wchar_t c : std::wstring(L"/:*?\"<>|"))
    EXPECT_FALSE(IsValidFilePath(std::wstring(L"C:\\a") + c + L"b", 248)) << static_cast<int>(c);
}

TEST(IsValidFilePath, LengthLimitLeavesRoomForTheTerminator) {
  const std::wstring longest = L"C:\\" + std::wstring(244, L'f');  // 247 characters
  EXPECT_TRUE(IsValidFilePath(longest, 248));
  EXPECT_FALSE(IsValidFilePath(longest + L"f", 248));
}

TEST(HasDiskSpace, ComparesTheNeedWithTheVolumesFreeBytes) {
  SimApp sim(withFiles(machine(), json::array({{{"path", "E:\\old.img"}, {"size", 536870912}}})));
  EXPECT_TRUE(HasDiskSpace(sim.app, L"E:\\x", 0));
  EXPECT_TRUE(HasDiskSpace(sim.app, L"E:\\new.img", 1073741824));
  EXPECT_FALSE(HasDiskSpace(sim.app, L"E:\\new.img", 1073741825));
  // The existing file's bytes count: only the growth must fit.
  EXPECT_TRUE(HasDiskSpace(sim.app, L"E:\\old.img", 1610612736));
  EXPECT_FALSE(HasDiskSpace(sim.app, L"E:\\old.img", 1610612737));
  EXPECT_TRUE(HasDiskSpace(sim.app, L"E:\\old.img", 100));
  EXPECT_FALSE(HasDiskSpace(sim.app, L"Q:\\x", 1));  // no such volume
}

TEST(HasDiskSpace, FailedQueryFails) {
  json m = machine();
  m["faults"] = json::array({{{"api", "GetDiskFreeSpaceExW"}}});
  SimApp sim(m);
  EXPECT_FALSE(HasDiskSpace(sim.app, L"C:\\x", 1));
}

TEST(IsOnSystemFileSystem, SameLetterOrSameFileSystem) {
  SimApp sim(machine());
  EXPECT_TRUE(IsOnSystemFileSystem(sim.app, L'C'));
  EXPECT_TRUE(IsOnSystemFileSystem(sim.app, L'E'));
  EXPECT_TRUE(IsOnSystemFileSystem(sim.app, L'c'));  // another letter, but NTFS as well
  EXPECT_FALSE(IsOnSystemFileSystem(sim.app, L'D'));
  EXPECT_FALSE(IsOnSystemFileSystem(sim.app, L'Q'));
}

TEST(IsOnSystemFileSystem, SameLetterNeedsNoVolumeQuery) {
  SimApp sim(machine());
  EXPECT_TRUE(IsOnSystemFileSystem(sim.app, L'C'));
  EXPECT_EQ(sim.apiCalls("GetVolumeInformationW"), 0u);
}

TEST(IsOnSystemFileSystem, WithoutTheWindowsDirectoryItIsNot) {
  json m = machine();
  m["host"]["windowsDirectory"] = "";
  SimApp sim(m);
  EXPECT_FALSE(IsOnSystemFileSystem(sim.app, L'C'));
}

TEST(IsFatVolume, FileSystemNameBeginsWithFat) {
  json m = machine();
  m["drives"].push_back({{"letter", "F"}, {"type", "removable"}, {"fileSystem", "fat"}});
  m["drives"].push_back({{"letter", "G"}, {"type", "removable"}, {"fileSystem", "exFAT"}});
  m["drives"].push_back({{"letter", "H"}, {"type", "removable"}});
  SimApp sim(m);
  EXPECT_TRUE(IsFatVolume(sim.app, L'D'));
  EXPECT_TRUE(IsFatVolume(sim.app, L'F'));
  EXPECT_FALSE(IsFatVolume(sim.app, L'C'));
  EXPECT_FALSE(IsFatVolume(sim.app, L'G'));
  EXPECT_FALSE(IsFatVolume(sim.app, L'H'));  // unreadable
}

TEST(MemoryFits, KeepsTwoHundredFiftySixMegabytesFree) {
  SimApp sim(machine());
  EXPECT_TRUE(MemoryFits(sim.app, 0, false));
  EXPECT_TRUE(MemoryFits(sim.app, 12032, false));
  EXPECT_FALSE(MemoryFits(sim.app, 12033, false));
}

TEST(MemoryFits, FailedMemoryStatusFits) {
  json m = machine();
  m["host"]["memory"]["fails"] = true;
  SimApp sim(m);
  EXPECT_TRUE(MemoryFits(sim.app, 900000, false));
}

bool fits(const json& m, std::uint32_t neededMb, bool allowIm) {
  SimApp sim(m);
  return MemoryFits(sim.app, neededMb, allowIm);
}

TEST(MemoryFits, InvisibleMemoryCountsOnlyWhenRunningAndEnabled) {
  json m = machine();
  m["controller"]["im"] = {{"state", 0}, {"localState", 1}, {"unitSize", 1048576}, {"freeUnits", 100000}};
  EXPECT_TRUE(fits(m, 100000, true));
  EXPECT_TRUE(fits(m, 112032, true));
  EXPECT_FALSE(fits(m, 112033, true));
  m["controller"]["im"]["localState"] = 2;
  EXPECT_FALSE(fits(m, 100000, true));
  m["controller"]["im"]["localState"] = 1;
  m["controller"]["im"]["state"] = 5;
  EXPECT_FALSE(fits(m, 100000, true));
  m["controller"]["im"]["state"] = 0;
  m["controller"]["im"]["recordSize"] = 64;
  EXPECT_FALSE(fits(m, 100000, true));
}

}  // namespace
}  // namespace vmd
