#include "settings/disk_settings.h"

#include <gtest/gtest.h>

namespace vmd {
namespace disk_settings_test {

TEST(DiskSettings, DefaultsAreThoseOfANewDisk) {
  const DiskSettings s;
  EXPECT_EQ(s.sizeMb, 128u);
  EXPECT_EQ(s.diskFlags, 0u);
  EXPECT_EQ(s.driveLetter, 0);
  EXPECT_EQ(s.substanceFlags, 0u);
  EXPECT_EQ(s.imQuotaMb, 0u);
  EXPECT_EQ(s.physicalDriveSizeMb, 0u);
  EXPECT_TRUE(s.physicalDriveFile.empty());
  EXPECT_TRUE(s.numaNodeMasks.empty());
  EXPECT_EQ(s.volumeLabel, L"RAMDISK");
  EXPECT_EQ(s.clusterSize, 0u);
  EXPECT_EQ(s.fileSystem, 19);
  EXPECT_EQ(s.fsFlags, 0);
  EXPECT_EQ(s.fsExtraMask, 0);
  EXPECT_EQ(s.everyonePermissions, 0);
  EXPECT_EQ(s.volumeSerial, 0u);
  EXPECT_EQ(s.customFolderCount, 0u);
  for (const auto& f : s.customFolders) EXPECT_TRUE(f.empty());
  EXPECT_TRUE(s.imageFile.empty());
  EXPECT_EQ(s.loadOnly, 0u);
  EXPECT_EQ(s.imageFlags, 0u);
  EXPECT_EQ(s.imageFormat, imageformat::Plain);
  EXPECT_EQ(s.compressionLevel, 1u);
  EXPECT_EQ(s.timingSaveMinutes, 0u);
}

TEST(DiskSettings, SaveSetAndLoadOnlyMask) {
  EXPECT_EQ(imageflag::SaveSet, 0x5030u);
  EXPECT_EQ(imageflag::LoadOnlyClear, 0x95030u);
  EXPECT_EQ(imageflag::LoadOnlyClear & imageflag::DelayLoad, 0u);
  EXPECT_EQ(imageflag::LoadOnlyClear & imageflag::Accepted, 0u);
}

TEST(DiskSettings, PermissionValuesNestInsideEachOther) {
  EXPECT_EQ(permission::Full & permission::Modify, permission::Modify);
  EXPECT_EQ(permission::Modify & (permission::Write | permission::ReadExec), permission::Write | permission::ReadExec);
  EXPECT_EQ(permission::Full, permission::FullBit | permission::ModifyBit | permission::ReadExecBit | permission::WriteBit);
}

TEST(DiskSettings, BitValuesOfTheControllersWords) {
  EXPECT_EQ(diskflag::DirectIo, 0x01000000u);
  EXPECT_EQ(diskflag::OneTime, 0x40000000u);
  EXPECT_EQ(substance::InvisibleMemory | substance::Dmm | substance::DmmCompact | substance::Hybrid, 0x00300500u);
  EXPECT_EQ(fsextra::Permissions | fsextra::Serial | fsextra::Folders | fsextra::AutoSerial, 0x0F);
  EXPECT_EQ(imageflag::QuickSave | imageflag::DelayLoad | imageflag::Accepted, 0x00810001u);
}

TEST(DiskSettings, CopiesCompareEqualFieldByField) {
  DiskSettings a;
  DiskSettings b = a;
  EXPECT_EQ(a, b);
  b.customFolders[9] = L"x";
  EXPECT_NE(a, b);
}

}  // namespace disk_settings_test
}  // namespace vmd
