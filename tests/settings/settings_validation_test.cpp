// Validation of a disk's size, drive letter, backing file and memory.
#include "settings/settings_validation.h"

#include <gtest/gtest.h>

#include <string>

#include "settings/settings_validation_support.h"

namespace vmd::test {
namespace settings_validation_test {

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

}  // namespace settings_validation_test
}  // namespace vmd::test
