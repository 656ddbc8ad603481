// Disks come and go over virtual time, and their volumes with them, with the
// letters the mount-point manager gives.
#include <gtest/gtest.h>

#include "sim/sim_rig.h"

namespace vmd::sim {
namespace disk_lifecycle_test {

using test::Rig;

json mountedDevices(const std::string& letter, const std::string& data) {
  return {{"SYSTEM\\MountedDevices", {{"\\DosDevices\\" + letter + ":", {{"type", "REG_BINARY"}, {"data", data}}}}}};
}

TEST(SimDiskLifecycle, CreatedDiskVolumeArrivesAfterTheDelayAtTheLetterMountedDevicesGivesIt) {
  // Signature 0x1234abcd at partition offset 32256 was K: before.
  Rig rig(json{{"registry", mountedDevices("K", "cdab3412007e000000000000")},
           {"controller", {{"timing", {{"volumeAfterMs", 2000}}}}}});
  const auto r = rig.controller(ioctl::CreateDisk, Rig::creation({{"sizeMb", 64}, {"signature", "0x1234abcd"}}), 12);
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.out, (std::vector<std::uint8_t>{12, 0, 0, 0, 12, 0, 0, 0, 0, 0, 0, 0}));
  rig.machine.sleep(1999);
  EXPECT_EQ(rig.volumeOf(0), nullptr);
  EXPECT_EQ(rig.sim.volumes.logicalDrives().value & (1u << ('K' - 'A')), 0u);
  rig.machine.sleep(1);
  ASSERT_NE(rig.volumeOf(0), nullptr);
  EXPECT_EQ(rig.volumeOf(0)->mountPoints, (std::vector<std::string>{"K:\\"}));
  EXPECT_NE(rig.sim.volumes.logicalDrives().value & (1u << ('K' - 'A')), 0u);
}

TEST(SimDiskLifecycle, WithoutARememberedLetterTheFirstFreeFromCIsTakenAndRemembered) {
  Rig rig(json{{"controller", {{"timing", {{"volumeAfterMs", 0}}}}}});
  ASSERT_TRUE(rig.controller(ioctl::CreateDisk, Rig::creation({{"signature", "0x00000042"}}), 12).ok);
  ASSERT_NE(rig.volumeOf(0), nullptr);
  EXPECT_EQ(rig.volumeOf(0)->mountPoints, (std::vector<std::string>{"D:\\"}));
  auto key = rig.sim.registry.openForWrite(L"SYSTEM\\MountedDevices").value;
  ASSERT_TRUE(key);
  const SysResult<Registry::Value> v = key->enumValue(0, 16, 12);
  ASSERT_TRUE(v.ok);
  EXPECT_EQ(v.value.name, L"\\DosDevices\\D:");
  EXPECT_EQ(v.value.data, (Bytes{0x42, 0, 0, 0, 0x00, 0x7e, 0, 0, 0, 0, 0, 0}));
}

TEST(SimDiskLifecycle, WithAutomaticMountingOffTheVolumeHasNoLetter) {
  Rig rig(json{{"host", {{"autoMount", false}}}});
  ASSERT_TRUE(rig.controller(ioctl::CreateDisk, Rig::creation({}), 12).ok);
  rig.machine.sleep(1500);
  ASSERT_NE(rig.volumeOf(0), nullptr);
  EXPECT_TRUE(rig.volumeOf(0)->mountPoints.empty());
  EXPECT_EQ(rig.sim.volumes.logicalDrives().value, 1u << ('C' - 'A'));
}

TEST(SimDiskLifecycle, MountManagerSwitchesAutomaticMounting) {
  Rig rig;
  auto q = rig.request(L"\\\\.\\MountPointManager", ioctl::MountmgrQueryAutoMount, {}, 4);
  ASSERT_TRUE(q.ok);
  EXPECT_EQ(q.out, (std::vector<std::uint8_t>{1, 0, 0, 0}));
  ASSERT_TRUE(rig.request(L"\\\\.\\MountPointManager", ioctl::MountmgrSetAutoMount, {0, 0, 0, 0}, 0).ok);
  EXPECT_FALSE(rig.machine.world.host.autoMount);
}

TEST(SimDiskLifecycle, DirectIoDiskGetsTheRequestedLetterAndItsDeviceOpensOnlyAfterArrival) {
  Rig rig;
  const auto record = Rig::creation({{"diskFlags", "0x01000000"}, {"driveLetter", "R"}});
  ASSERT_TRUE(rig.controller(ioctl::CreateDisk, record, 12).ok);
  EXPECT_FALSE(rig.request(L"\\\\.\\VelmoRdDevPort0Target0", ioctl::DiskGetPartitionInfo, {}, 32).ok);
  rig.machine.sleep(1500);
  const auto info = rig.controller(ioctl::QueryDiskInfo, Rig::head(0), 32);
  ASSERT_TRUE(info.ok);
  EXPECT_EQ(info.out[24], 1);
  EXPECT_EQ(info.out[25], 'R');
  const auto part = rig.request(L"\\\\.\\VelmoRdDevPort0Target0", ioctl::DiskGetPartitionInfo, {}, 32);
  ASSERT_TRUE(part.ok);
  EXPECT_EQ(get32(part.out.data()), 32256u);
  EXPECT_TRUE(rig.sim.volumes.volumeInformation(L"R:\\").ok);
}

TEST(SimDiskLifecycle, VolumeThatNeverArrivesStaysAwayThroughSave) {
  Rig rig(json{{"controller", {{"timing", {{"volumeAfterMs", "never"}}}}}});
  ASSERT_TRUE(rig.controller(ioctl::CreateDisk, Rig::creation({}), 12).ok);
  rig.machine.sleep(60000);
  EXPECT_EQ(rig.volumeOf(0), nullptr);
  const json saved = rig.machine.toJson();
  EXPECT_EQ(saved["controller"]["disks"][0]["phase"], "arriving");
}

TEST(SimDiskLifecycle, SavingLetsThePendingArrivalHappen) {
  Rig rig;
  ASSERT_TRUE(rig.controller(ioctl::CreateDisk, Rig::creation({}), 12).ok);
  const std::string path = ::testing::TempDir() + "sim_settle_" + ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".json";
  rig.machine.save(path);
  Machine again = Machine::load(path);
  ASSERT_EQ(again.world.volumes.size(), 2u);
  EXPECT_EQ(again.world.volumes[1].mountPoints, (std::vector<std::string>{"D:\\"}));
}

TEST(SimDiskLifecycle, RemovedDiskStaysPresentUntilItLeaves) {
  Rig rig(json{{"controller", {{"timing", {{"goneAfterMs", 3000}}}, {"disks", {{{"index", 4}, {"size", 1048576}}}}}}});
  ASSERT_NE(rig.volumeOf(4), nullptr);
  ASSERT_TRUE(rig.controller(ioctl::RemoveDisk, Rig::removal(4, false, false), 0).ok);
  rig.machine.sleep(2999);
  EXPECT_EQ(rig.controller(ioctl::QueryDiskPresent, Rig::head(4), 4).out, (std::vector<std::uint8_t>{1, 0, 0, 0}));
  rig.machine.sleep(1);
  EXPECT_EQ(rig.controller(ioctl::QueryDiskPresent, Rig::head(4), 4).out, (std::vector<std::uint8_t>{0, 0, 0, 0}));
  EXPECT_EQ(rig.volumeOf(4), nullptr);
}

TEST(SimDiskLifecycle, DiskThatNeverLeavesIsStillPresentAfterAMinute) {
  Rig rig(json{{"controller", {{"disks", {{{"index", 4}, {"goneAfterMs", "never"}}}}}}});
  ASSERT_TRUE(rig.controller(ioctl::RemoveDisk, Rig::removal(4, false, false), 0).ok);
  rig.machine.sleep(60000);
  EXPECT_EQ(rig.controller(ioctl::QueryDiskPresent, Rig::head(4), 4).out[0], 1);
}

TEST(SimDiskLifecycle, RemovalWithTheSaveFlagWritesTheImageFile) {
  Rig rig(json{{"controller",
            {{"disks",
              {{{"index", 2},
                {"size", 67108864},
                {"settings", {{"imageFile", "C:\\img\\fast.img"}, {"imageFormat", 2}, {"compressionLevel", 5}}}}}}}}});
  ASSERT_TRUE(rig.controller(ioctl::RemoveDisk, Rig::removal(2, false, true), 0).ok);
  const SysResult<Bytes> read = rig.sim.files.readHead(L"C:\\img\\fast.img", 512);
  ASSERT_TRUE(read.ok);
  const Bytes& head = read.value;
  ASSERT_EQ(head.size(), 512u);
  EXPECT_EQ(head[0], 0x11);  // the COMPR magic number, then level and disk size
  EXPECT_EQ(get32(head.data() + 20), 5u);
  EXPECT_EQ(get32(head.data() + 24), 67108864u);
}

TEST(SimDiskLifecycle, RemovalWithoutTheSaveFlagWritesNothing) {
  Rig rig(json{{"controller", {{"disks", {{{"index", 2}, {"settings", {{"imageFile", "C:\\img\\fast.img"}}}}}}}}});
  ASSERT_TRUE(rig.controller(ioctl::RemoveDisk, Rig::removal(2, false, false), 0).ok);
  EXPECT_FALSE(rig.sim.files.readHead(L"C:\\img\\fast.img", 512).ok);
}

TEST(SimDiskLifecycle, DiskWithAPagingFileRefusesRemovalEvenTheTest) {
  Rig rig(json{{"controller", {{"disks", {{{"index", 1}, {"pagingFile", true}}}}}}});
  EXPECT_EQ(rig.controller(ioctl::RemoveDisk, Rig::removal(1, true, false), 0).error, 5u);
  EXPECT_EQ(rig.controller(ioctl::RemoveDisk, Rig::removal(1, false, false), 0).error, 5u);
  Rig free(json{{"controller", {{"disks", {{{"index", 1}}}}}}});
  EXPECT_TRUE(free.controller(ioctl::RemoveDisk, Rig::removal(1, true, false), 0).ok);
  EXPECT_EQ(free.machine.world.controller.disks[0].phase, DiskPhase::Present);
}

TEST(SimDiskLifecycle, DiskBeyondTheMemoryLimitFailsWith112) {
  Rig rig(json{{"controller", {{"memoryLimitMb", 100}, {"disks", {{{"index", 0}, {"size", 67108864}}}}}}});
  EXPECT_EQ(rig.controller(ioctl::CreateDisk, Rig::creation({{"sizeMb", 37}}), 12).error, 112u);
  EXPECT_TRUE(rig.controller(ioctl::CreateDisk, Rig::creation({{"sizeMb", 36}}), 12).ok);
}

TEST(SimDiskLifecycle, MalformedCreationRecordFailsWith87) {
  Rig rig;
  auto record = Rig::creation({});
  record[20] ^= 1;  // the checksum no longer holds
  EXPECT_EQ(rig.controller(ioctl::CreateDisk, record, 12).error, 87u);
}

TEST(SimDiskLifecycle, DosDeviceOwnerIsTheDiskWhoseVolumeHasTheLetter) {
  Rig rig(json{{"controller", {{"disks", {{{"index", 6}}}}}}});
  std::vector<std::uint8_t> name;
  for (char16_t c : std::u16string(u"\\??\\D:")) {
    name.push_back(static_cast<std::uint8_t>(c));
    name.push_back(0);
  }
  name.push_back(0);
  name.push_back(0);
  const auto r = rig.controller(ioctl::QueryDosDeviceOwner, name, 12);
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.out[10], 6);
  name[8] = 'C';
  EXPECT_EQ(rig.controller(ioctl::QueryDosDeviceOwner, name, 12).error, 2u);
}

TEST(SimDiskLifecycle, DirectIoLetterMovesThroughTheController) {
  Rig rig(json{{"controller", {{"disks", {{{"index", 3}, {"directIo", true}, {"letter", "S"}}}}}}});
  const std::vector<std::uint8_t> change = {16, 0, 0, 0, 16, 0, 0, 0, 0, 0, 3, 0, 'S', 0, 'U', 0};
  ASSERT_TRUE(rig.controller(ioctl::ChangeDiskLetter, change, 0).ok);
  const std::uint32_t drives = rig.sim.volumes.logicalDrives().value;
  EXPECT_EQ(drives & (1u << ('S' - 'A')), 0u);
  EXPECT_NE(drives & (1u << ('U' - 'A')), 0u);
  EXPECT_EQ(rig.controller(ioctl::QueryDiskInfo, Rig::head(3), 32).out[25], 'U');
}

TEST(SimDiskLifecycle, RestartAppliesSettingsThatWaitedForIt) {
  const std::string pending = toHex(buildRecord({{"index", 1}, {"sizeMb", 256}, {"volumeLabel", "NEW"}}));
  Rig rig(json{{"controller", {{"disks", {{{"index", 1}, {"size", 134217728}, {"pendingSettingsRecord", pending}}}}}}});
  rig.machine.restart();
  const auto info = rig.controller(ioctl::QueryDiskInfo, Rig::head(1), 32);
  EXPECT_EQ(get32(info.out.data() + 16), 256u << 20);
  ASSERT_NE(rig.volumeOf(1), nullptr);
  EXPECT_EQ(rig.volumeOf(1)->props.label, "NEW");
  EXPECT_EQ(rig.volumeOf(1)->mountPoints, (std::vector<std::string>{"D:\\"}));
}

TEST(SimDiskLifecycle, RestartCompletesARemovalThatNeverFinished) {
  Rig rig(json{{"controller", {{"disks", {{{"index", 4}, {"goneAfterMs", "never"}}}}}}});
  ASSERT_TRUE(rig.controller(ioctl::RemoveDisk, Rig::removal(4, false, false), 0).ok);
  rig.machine.restart();
  EXPECT_TRUE(rig.machine.world.controller.disks.empty());
}

}  // namespace disk_lifecycle_test
}  // namespace vmd::sim

namespace vmd::sim {
namespace disk_lifecycle_test {

using test::Rig;

TEST(SimDiskSettingsChange, NewSettingsAreReadBackAtOnceAndTheSizeChangesAtTheRestart) {
  Rig rig(json{{"controller", {{"disks", {{{"index", 1}, {"size", 134217728}}}}}}});
  const auto record = buildRecord({{"index", 1}, {"sizeMb", 256}, {"volumeLabel", "LATER"}});
  ASSERT_TRUE(rig.controller(ioctl::ChangeDiskSettings, record, 0).ok);
  const auto read = rig.controller(ioctl::ReadDiskSettingsRecord, Rig::head(1), 4096);
  ASSERT_TRUE(read.ok);
  EXPECT_EQ(std::vector<std::uint8_t>(read.out.begin() + 12, read.out.end()), record);
  EXPECT_EQ(get32(rig.controller(ioctl::QueryDiskInfo, Rig::head(1), 32).out.data() + 16), 128u << 20);
  rig.machine.restart();
  EXPECT_EQ(get32(rig.controller(ioctl::QueryDiskInfo, Rig::head(1), 32).out.data() + 16), 256u << 20);
  EXPECT_EQ(rig.volumeOf(1)->props.label, "LATER");
}

TEST(SimDiskSettingsChange, SettingsOfADiskThatDoesNotExistFailWith2) {
  Rig rig;
  EXPECT_EQ(rig.controller(ioctl::ChangeDiskSettings, buildRecord({{"index", 9}}), 0).error, 2u);
}

}  // namespace disk_lifecycle_test
}  // namespace vmd::sim
