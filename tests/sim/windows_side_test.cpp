// The Windows side of the simulated machine: volume locks and dismounts,
// mount points, labels, the mounted-devices key, broadcasts and fault rules.
#include <gtest/gtest.h>

#include "sim/sim_rig.h"

namespace vmd::sim {
namespace windows_side_test {

using test::Rig;

json heldDisk(std::uint32_t held) {
  return {{"controller", {{"disks", {{{"index", 2}, {"size", 67108864}}}}}},
          {"volumes", {{{"disk", 2}, {"heldByOthers", held}}}}};
}

TEST(SimWindowsSide, HeldVolumeRefusesTheLockAndAForcedDismountReleasesIt) {
  Rig rig(heldDisk(2));
  const SysResult<DeviceIo::Handle> opened = rig.sim.io.open(L"\\\\.\\D:", 0x80000000u, 3, 3, 0x80);
  ASSERT_TRUE(opened.ok);
  const DeviceIo::Handle h = opened.value;
  EXPECT_EQ(rig.send(h, ioctl::FsctlLockVolume, {}, 0).error, 5u);
  EXPECT_TRUE(rig.send(h, ioctl::FsctlDismountVolume, {}, 0).ok);
  EXPECT_EQ(rig.volumeOf(2)->heldByOthers, 0u);
  EXPECT_TRUE(rig.send(h, ioctl::FsctlLockVolume, {}, 0).ok);
  EXPECT_TRUE(rig.send(h, ioctl::FsctlUnlockVolume, {}, 0).ok);
  rig.sim.io.close(h);
}

TEST(SimWindowsSide, LockIsReleasedWhenItsHandleCloses) {
  Rig rig(heldDisk(0));
  const DeviceIo::Handle first = rig.sim.io.open(L"\\\\.\\D:", 0x80000000u, 3, 3, 0x80).value;
  ASSERT_TRUE(rig.send(first, ioctl::FsctlLockVolume, {}, 0).ok);
  const SysResult<DeviceIo::Handle> opened = rig.sim.io.open(
      rig.volumeOf(2)->interfacePath.empty() ? L"" : fromUtf8(rig.volumeOf(2)->interfacePath), 0x80000000u, 3, 3, 0x80);
  ASSERT_TRUE(opened.ok);
  const DeviceIo::Handle second = opened.value;
  EXPECT_EQ(rig.send(second, ioctl::FsctlLockVolume, {}, 0).error, 5u);
  rig.sim.io.close(first);
  EXPECT_TRUE(rig.send(second, ioctl::FsctlLockVolume, {}, 0).ok);
  EXPECT_EQ(rig.send(second, ioctl::FsctlUnlockVolume, {}, 0).error, 0u);
  EXPECT_EQ(rig.send(second, ioctl::FsctlUnlockVolume, {}, 0).error, 158u);
  rig.sim.io.close(second);
}

TEST(SimWindowsSide, MovingAMountPointUpdatesTheDrivesAndMountedDevices) {
  Rig rig(json{{"controller", {{"disks", {{{"index", 2}, {"signature", "0x00000077"}}}}}}});
  const auto name = rig.sim.volumes.volumeNameForMountPoint(L"D:\\", 260);
  ASSERT_TRUE(name.ok);
  ASSERT_TRUE(rig.sim.volumes.deleteVolumeMountPoint(L"D:\\").ok);
  EXPECT_EQ(rig.sim.volumes.logicalDrives().value, 1u << ('C' - 'A'));
  ASSERT_TRUE(rig.sim.volumes.setVolumeMountPoint(L"M:\\", name.value).ok);
  EXPECT_EQ(rig.sim.volumes.logicalDrives().value, (1u << ('C' - 'A')) | (1u << ('M' - 'A')));
  auto key = rig.sim.registry.openForWrite(L"SYSTEM\\MountedDevices").value;
  ASSERT_TRUE(key);
  const SysResult<Registry::Value> first = key->enumValue(0, 16, 12);
  ASSERT_TRUE(first.ok);
  EXPECT_EQ(first.value.name, L"\\DosDevices\\M:");
  EXPECT_EQ(key->enumValue(1, 16, 12).error, 259u);
  EXPECT_EQ(rig.sim.volumes.setVolumeMountPoint(L"C:\\", name.value).error, 145u);
}

TEST(SimWindowsSide, LabelChangesOnTheVolume) {
  Rig rig(json{{"controller", {{"disks", {{{"index", 2}}}}}}});
  const std::wstring label = L"SCRATCH";
  ASSERT_TRUE(rig.sim.volumes.setVolumeLabel(L"D:\\", &label).ok);
  EXPECT_EQ(rig.sim.volumes.volumeInformation(L"D:\\").value.label, L"SCRATCH");
}

TEST(SimWindowsSide, RegistryValuesEnumerateInTheOrderWrittenWithinTheirBuffers) {
  Rig rig(json{{"registry",
            {{"SYSTEM\\MountedDevices",
              {{"\\DosDevices\\Z:", {{"type", "REG_BINARY"}, {"data", "01"}}},
               {"\\DosDevices\\A:", {{"type", "REG_BINARY"}, {"data", "0102030405060708090a0b0c0d"}}},
               {"\\??\\Volume{a-very-long-name}", {{"type", "REG_BINARY"}, {"data", "01"}}}}}}}});
  auto key = rig.sim.registry.openForWrite(L"SYSTEM\\MountedDevices").value;
  ASSERT_TRUE(key);
  const SysResult<Registry::Value> first = key->enumValue(0, 16, 12);
  ASSERT_TRUE(first.ok);
  EXPECT_EQ(first.value.name, L"\\DosDevices\\Z:");
  EXPECT_EQ(key->enumValue(1, 16, 12).error, 234u);  // 13 data bytes
  EXPECT_EQ(key->enumValue(2, 16, 12).error, 234u);  // a name of more than 15 characters
  EXPECT_EQ(key->enumValue(3, 16, 12).error, 259u);
  ASSERT_TRUE(key->deleteValue(L"\\DosDevices\\Z:").ok);
  EXPECT_EQ(key->enumValue(0, 16, 12).error, 234u);  // later values moved down
}

TEST(SimWindowsSide, BroadcastsAreLoggedReadably) {
  Rig rig;
  Bytes record(20, 0);
  record[0] = 20;
  record[4] = 2;
  put32(record.data() + 12, 1u << ('R' - 'A'));
  const SysResult<std::int32_t> sent = rig.sim.broadcast.broadcast(0x122, 0x219, 0x8000, record);
  EXPECT_TRUE(sent.ok);
  EXPECT_GT(sent.value, 0);
  const json b = rig.machine.toJson()["broadcasts"][0];
  EXPECT_EQ(b["event"], "DBT_DEVICEARRIVAL");
  EXPECT_EQ(b["letter"], "R");
}

TEST(SimWindowsSide, OneFaultRuleFailsTheRequestThroughThePlatformAndAtTheControllerEntry) {
  Rig rig(json{{"faults", {{{"api", "DeviceIoControl"}, {"code", "QueryDiskInfo"}, {"error", 1117}}}},
           {"controller", {{"disks", {{{"index", 1}}}}}}});
  EXPECT_EQ(rig.controller(ioctl::QueryDiskInfo, Rig::head(1), 32).error, 1117u);
  ControllerFaults entry(rig.machine, rig.machine.controller());
  std::vector<std::uint8_t> out(32), in = Rig::head(1);
  EXPECT_EQ(entry.handle(ioctl::QueryDiskInfo, in.data(), 12, out.data(), 32).error, 1117u);
  EXPECT_EQ(entry.handle(ioctl::QueryDiskBitmap, nullptr, 0, out.data(), 16).error, 0u);
}

TEST(SimWindowsSide, RequestsAreCountedByName) {
  Rig rig;
  rig.controller(ioctl::QueryDiskBitmap, {}, 16);
  EXPECT_EQ(rig.machine.stats["requests"]["QueryDiskBitmap"], 1);
  EXPECT_EQ(rig.machine.stats["requestSizes"]["QueryDiskBitmap"], "in=0 out=16");
}

}  // namespace windows_side_test
}  // namespace vmd::sim
