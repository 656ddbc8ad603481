// The volumes and drive letters of the controller's disks against the
// simulated machine, for both kinds of disk.
#include "volume/volume.h"

#include <gtest/gtest.h>

#include "support/inventory_rig.h"

namespace vmd {
namespace disk_volumes_test {

using sim::json;
using test::Rig;
using test::sampleMachine;

TEST(ExtentDiskNumbers, ReadsOneDiskNumberAnExtentWithinTheBuffer) {
  std::vector<std::uint8_t> b(8 + 24 * 2, 0);
  b[0] = 3;  // says three, holds two
  b[8] = 5;
  b[8 + 24] = 6;
  b[8 + 24 + 1] = 1;
  EXPECT_EQ(extentDiskNumbers(b.data(), b.size()), (std::vector<std::uint32_t>{5, 0x106}));
  EXPECT_TRUE(extentDiskNumbers(b.data(), 4).empty());
}

// --- drive letters ---

TEST(DiskDriveLetters, DirectIoDiskHasTheLetterTheControllerOwns) {
  Rig rig(sampleMachine());
  const auto info = rig.inventory.queryDiskInfo(9);
  ASSERT_TRUE(info);
  EXPECT_EQ(rig.volumes.diskDriveLetters(9, *info), (std::vector<wchar_t>{L'S'}));
  EXPECT_EQ(rig.stat("requests", "QueryDosNameTarget"), 1);
  EXPECT_EQ(rig.stat("api", "GetLogicalDrives"), 0);  // no map for a Direct-IO disk
}

TEST(DiskDriveLetters, DirectIoDiskWhoseLetterAnotherDeviceTookHasNone) {
  json state = sampleMachine();
  state["controller"]["dosNameOwners"] = {{"S", 3}};
  Rig rig(state);
  const auto info = rig.inventory.queryDiskInfo(9);
  ASSERT_TRUE(info);
  EXPECT_TRUE(rig.volumes.diskDriveLetters(9, *info).empty());
}

TEST(DiskDriveLetters, DirectIoDiskWhoseLetterNobodyOwnsHasNone) {
  json state = sampleMachine();
  state["controller"]["dosNameOwners"] = {{"S", nullptr}};
  Rig rig(state);
  const auto info = rig.inventory.queryDiskInfo(9);
  ASSERT_TRUE(info);
  EXPECT_TRUE(rig.volumes.diskDriveLetters(9, *info).empty());
}

TEST(DiskDriveLetters, ScsiDiskHasTheLettersOfItsVolumesInAscendingOrder) {
  Rig rig(sampleMachine());
  const auto info = rig.inventory.queryDiskInfo(7);
  ASSERT_TRUE(info);
  EXPECT_EQ(rig.volumes.diskDriveLetters(7, *info), (std::vector<wchar_t>{L'E', L'G'}));
}

TEST(DiskDriveLetters, ScsiDiskWithoutVolumesHasNone) {
  Rig rig(sampleMachine());
  const auto info = rig.inventory.queryDiskInfo(12);
  ASSERT_TRUE(info);
  EXPECT_TRUE(rig.volumes.diskDriveLetters(12, *info).empty());
}

TEST(DiskDriveLetters, ScsiDiskWhoseVolumeIsOfflineHasNone) {
  json state = sampleMachine();
  for (auto& v : state["volumes"]) v["offline"] = true;
  Rig rig(state);
  const auto info = rig.inventory.queryDiskInfo(7);
  ASSERT_TRUE(info);
  EXPECT_TRUE(rig.volumes.diskDriveLetters(7, *info).empty());
}

TEST(DiskDriveLetters, FailedDeviceNumberGivesNone) {
  json state = sampleMachine();
  state["faults"] = json::array({{{"api", "DeviceIoControl"}, {"code", "0x46078"}, {"error", 31}}});
  Rig rig(state);
  const auto info = rig.inventory.queryDiskInfo(7);
  ASSERT_TRUE(info);
  EXPECT_TRUE(rig.volumes.diskDriveLetters(7, *info).empty());
}

TEST(DiskDriveLetters, LetterMapIsBuiltOnceAndShared) {
  Rig rig(sampleMachine());
  for (std::uint8_t n : {7, 12, 7}) {
    const auto info = rig.inventory.queryDiskInfo(n);
    ASSERT_TRUE(info);
    rig.volumes.diskDriveLetters(n, *info);
  }
  EXPECT_EQ(rig.stat("api", "GetLogicalDrives"), 1);
  EXPECT_EQ(rig.stat("api", "GetDriveTypeW"), 3);
  EXPECT_EQ(rig.stat("requests", "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS"), 3);
  EXPECT_EQ(rig.stat("requests", "QueryDeviceNumber"), 3);
  // Every volume opened for its extents is closed again.
  for (const char* drive : {"\\\\.\\C:", "\\\\.\\E:", "\\\\.\\G:"}) {
    EXPECT_EQ(rig.stat("opens", drive), 1) << drive;
    EXPECT_EQ(rig.stat("closes", drive), 1) << drive;
  }
  EXPECT_EQ(rig.sim.io.openHandles(), 0u);
}

TEST(BuildLetterMap, AsksTheDriveTypeOfTheDevicePathAndOpensTheDrive) {
  Rig rig(sampleMachine());
  const DiskVolumes::LetterMap map = rig.volumes.buildLetterMap();
  ASSERT_EQ(map.size(), 2u);
  EXPECT_EQ(map.at(0), (std::vector<wchar_t>{L'C'}));
  EXPECT_EQ(map.at(2), (std::vector<wchar_t>{L'E', L'G'}));
}

TEST(BuildLetterMap, SpannedVolumeIsInTheListsOfBothDisks) {
  json state = sampleMachine();
  state["volumes"][1]["extents"] = json::array({{{"disk", 2}}, {{"disk", 4}}});
  Rig rig(state);
  const DiskVolumes::LetterMap map = rig.volumes.buildLetterMap();
  EXPECT_EQ(map.at(2), (std::vector<wchar_t>{L'E', L'G'}));
  EXPECT_EQ(map.at(4), (std::vector<wchar_t>{L'G'}));
}

TEST(BuildLetterMap, OnlyFixedAndRemovableDrivesCount) {
  json state = sampleMachine();
  state["drives"][1]["type"] = "cdrom";
  state["drives"][2]["type"] = "remote";
  Rig rig(state);
  const DiskVolumes::LetterMap map = rig.volumes.buildLetterMap();
  EXPECT_EQ(map.count(2), 0u);
  EXPECT_EQ(rig.stat("requests", "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS"), 1);
}

// --- volume paths ---

TEST(DiskVolumePaths, DirectIoDiskHasItsOwnDevicePath) {
  Rig rig(sampleMachine());
  EXPECT_EQ(rig.volumes.diskVolumePaths(9, true), (std::vector<std::wstring>{L"\\\\.\\VelmoRdDevPort0Target9"}));
  EXPECT_EQ(rig.stat("api", "SetupDiGetClassDevsW"), 1);  // the discovery only
}

TEST(DiskVolumePaths, ScsiDiskHasItsVolumeInterfacesInEnumerationOrder) {
  Rig rig(sampleMachine());
  EXPECT_EQ(rig.volumes.diskVolumePaths(7, false),
            (std::vector<std::wstring>{L"\\\\?\\STORAGE#Volume#{00000002}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}",
                                       L"\\\\?\\STORAGE#Volume#{00000001}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}"}));
  EXPECT_EQ(rig.sim.io.openHandles(), 0u);
}

TEST(DiskVolumePaths, ScsiDiskWithoutVolumesHasNone) {
  Rig rig(sampleMachine());
  EXPECT_TRUE(rig.volumes.diskVolumePaths(12, false).empty());
}

TEST(DiskVolumePaths, OfflineAbsentAndCdVolumesAreLeftOut) {
  json state = sampleMachine();
  state["volumes"][1]["offline"] = true;
  state["volumes"][2]["present"] = false;
  Rig rig(state);
  EXPECT_TRUE(rig.volumes.diskVolumePaths(7, false).empty());

  json cd = sampleMachine();
  cd["volumes"][1]["type"] = "cdrom";
  Rig cdRig(cd);
  EXPECT_EQ(cdRig.volumes.diskVolumePaths(7, false),
            (std::vector<std::wstring>{L"\\\\?\\STORAGE#Volume#{00000001}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}"}));
}

TEST(DiskVolumePaths, SpannedVolumeIsInTheListsOfBothDisks) {
  json state = sampleMachine();
  state["volumes"][2]["extents"] = json::array({{{"disk", 2}}, {{"disk", 4}}});
  Rig rig(state);
  const std::wstring spanned = L"\\\\?\\STORAGE#Volume#{00000001}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}";
  EXPECT_EQ(rig.volumes.diskVolumePaths(12, false), (std::vector<std::wstring>{spanned}));
  EXPECT_EQ(rig.volumes.diskVolumePaths(7, false).back(), spanned);
}

TEST(DiskVolumePaths, FailedDeviceNumberOrDeviceSetGivesNone) {
  json state = sampleMachine();
  state["faults"] = json::array({{{"api", "DeviceIoControl"}, {"code", "0x46078"}, {"error", 31}}});
  Rig rig(state);
  EXPECT_TRUE(rig.volumes.diskVolumePaths(7, false).empty());

  json noSet = sampleMachine();
  noSet["faults"] = json::array({{{"api", "SetupDiGetClassDevsW"}, {"nth", 2}, {"error", 13}}});
  Rig noSetRig(noSet);
  EXPECT_TRUE(noSetRig.volumes.diskVolumePaths(7, false).empty());
}

TEST(DiskVolumePaths, VolumeMapIsBuiltAfreshForEachCall) {
  Rig rig(sampleMachine());
  rig.volumes.diskVolumePaths(7, false);
  rig.machine.world.volumes[1].present = false;
  EXPECT_EQ(rig.volumes.diskVolumePaths(7, false).size(), 1u);
  EXPECT_EQ(rig.stat("api", "SetupDiGetClassDevsW"), 3);
}

}  // namespace disk_volumes_test
}  // namespace vmd
