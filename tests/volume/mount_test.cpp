// Creating a disk and waiting for its volume and letter, against the
// simulated machine: each test is a short story of one procedure, with the
// requests it sends in order, the virtual time it spends and the machine it
// leaves.
#include "volume/volume.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "volume/volume_world.h"

namespace vmd {
namespace mount_test {

using sim::json;
using test::SimApp;
using voltest::merged;
using voltest::oneDisk;
using voltest::timing;
using voltest::World;

// --- CreateAndMountDisk

TEST(CreateAndMountDisk, AVolumeReadyAtTheFirstPollCostsOneWait) {
  World w(timing(1000));
  const Bytes rec = w.record(256, L'D');
  const MountRequest m = w.create(rec);
  EXPECT_EQ(m.error, 0u);
  EXPECT_EQ(m.mountStatus, mountstatus::Ready);
  EXPECT_EQ(m.driveLetter, L'D');
  EXPECT_EQ(addressTarget(m.address), 0);
  EXPECT_EQ(w.sleeps(), 1u);
  EXPECT_EQ(w.elapsedMs(), 1000u);
  EXPECT_EQ(w.lettersOf(0), std::vector<std::string>{"D:\\"});
  EXPECT_EQ(w.openHandles(), 0u);
}

TEST(CreateAndMountDisk, TheVolumeComesUpAtTheFirstFreeLetterAndIsMovedToTheOneAskedFor) {
  World w(timing(1500));
  const Bytes rec = w.record(256, L'R');
  const MountRequest m = w.create(rec);
  EXPECT_EQ(m.mountStatus, mountstatus::Ready);
  EXPECT_EQ(m.driveLetter, L'R');
  EXPECT_EQ(w.sleeps(), 2u);  // not there at 1000 ms, there at 2000 ms
  EXPECT_EQ(w.lettersOf(0), std::vector<std::string>{"R:\\"});
  EXPECT_EQ(w.sim.apiCalls("DeleteVolumeMountPointW"), 1u);
  EXPECT_EQ(w.sim.apiCalls("SetVolumeMountPointW"), 1u);
}

TEST(CreateAndMountDisk, AScsiVolumeThatNeverComesCostsSixtyRoundsOfOneSecond) {
  World w(timing("never"));
  const Bytes rec = w.record(64, L'R');
  const MountRequest m = w.create(rec);
  EXPECT_EQ(m.error, 0u);
  EXPECT_EQ(m.mountStatus, mountstatus::VolumeNotReady);
  EXPECT_EQ(m.driveLetter, 0);
  EXPECT_EQ(w.sleeps(), 60u);
  EXPECT_EQ(w.elapsedMs(), 60000u);
}

TEST(CreateAndMountDisk, ADirectIoVolumeThatNeverComesCostsSixtyRoundsOfHalfASecond) {
  World w(timing("never"));
  const Bytes rec = w.record(64, L'R', true);
  const MountRequest m = w.create(rec);
  EXPECT_EQ(m.mountStatus, mountstatus::VolumeNotReady);
  EXPECT_EQ(m.driveLetter, 0);
  EXPECT_EQ(w.sleeps(), 60u);
  EXPECT_EQ(w.elapsedMs(), 30000u);
}

TEST(CreateAndMountDisk, ADirectIoDiskIsReadyWhenItsLetterAnswers) {
  World w(timing(1000));
  const Bytes rec = w.record(64, L'R', true);
  const MountRequest m = w.create(rec);
  EXPECT_EQ(m.mountStatus, mountstatus::Ready);
  EXPECT_EQ(m.driveLetter, L'R');
  EXPECT_EQ(w.sleeps(), 2u);
  EXPECT_EQ(w.sim.apiCalls("GetVolumeInformationW"), 2u);
}

TEST(CreateAndMountDisk, ADirectIoDiskWithoutALetterIsReadyWhenItsDeviceOpens) {
  World w(timing(500));
  Bytes rec = w.record(64, 0, true);
  ASSERT_EQ(requestedLetter(rec), 0);
  const MountRequest m = w.create(rec);
  EXPECT_EQ(m.mountStatus, mountstatus::Ready);
  EXPECT_EQ(m.driveLetter, 0);
  EXPECT_EQ(w.sleeps(), 1u);
  EXPECT_NE(w.entriesWith("open \\\\.\\VelmoRdDevPort0Target0"), "");
  EXPECT_EQ(w.sim.machine.world.broadcasts.size(), 0u);
}

TEST(CreateAndMountDisk, WithCToZAllTakenNothingWaits) {
  json state = timing(1000);
  state["drives"] = json::array();
  for (char c = 'C'; c <= 'Z'; ++c) state["drives"].push_back({{"letter", std::string(1, c)}, {"type", "fixed"}});
  World w(state);
  const Bytes rec = w.record(64, L'R');
  const MountRequest m = w.create(rec);
  EXPECT_EQ(m.error, 0u);
  EXPECT_EQ(m.mountStatus, mountstatus::NoFreeLetter);
  EXPECT_EQ(w.sleeps(), 0u);
  EXPECT_EQ(w.elapsedMs(), 0u);
}

TEST(CreateAndMountDisk, AandBAreNeverCountedAsFree) {
  json state = timing(1000);
  state["drives"] = json::array();
  for (char c = 'C'; c <= 'Z'; ++c) state["drives"].push_back({{"letter", std::string(1, c)}, {"type", "fixed"}});
  World w(state);
  EXPECT_EQ(w.sim.platform.volumes.logicalDrives().value & 3u, 0u);  // A: and B: are free
  const Bytes rec = w.record(64, L'R');
  EXPECT_EQ(w.create(rec).mountStatus, mountstatus::NoFreeLetter);
}

TEST(CreateAndMountDisk, AFailedCreateReportsItsErrorAndWaitsForNothing) {
  World w(json{{"controller", {{"memoryLimitMb", 100}}}});
  const Bytes rec = w.record(256, L'R');
  MountRequest m;
  m.createRequest = &rec;
  m.mountStatus = 77;
  m.driveLetter = L'Q';
  CreateAndMountDisk(w.ctx, m);
  EXPECT_EQ(m.error, syserr::DiskFull);
  EXPECT_EQ(m.mountStatus, 77u);  // left as it was
  EXPECT_EQ(m.driveLetter, L'Q');
  EXPECT_EQ(w.sleeps(), 0u);
  EXPECT_TRUE(w.sim.machine.world.controller.disks.empty());
}

TEST(CreateAndMountDisk, AFailureWithoutAnErrorCodeIsAGeneralFailure) {
  World w(json{{"faults", {{{"api", "DeviceIoControl"}, {"code", "CreateDisk"}, {"error", 0}}}}});
  const Bytes rec = w.record(64, L'R');
  EXPECT_EQ(w.create(rec).error, syserr::GenFailure);
}

TEST(CreateAndMountDisk, AutomaticMountingIsSwitchedOnForTheWaitAndOffAgain) {
  json state = timing(1000);
  state["host"] = {{"autoMount", false}};
  World w(state);
  const Bytes rec = w.record(64, L'D');
  const MountRequest m = w.create(rec);
  EXPECT_EQ(m.mountStatus, mountstatus::Ready);
  EXPECT_EQ(m.driveLetter, L'D');
  EXPECT_FALSE(w.sim.machine.world.host.autoMount);
  EXPECT_EQ(w.entriesWith("IOCTL_MOUNTMGR"),
            "IOCTL_MOUNTMGR_QUERY_AUTO_MOUNT \\\\.\\MountPointManager\n"
            "IOCTL_MOUNTMGR_SET_AUTO_MOUNT \\\\.\\MountPointManager\n"
            "IOCTL_MOUNTMGR_SET_AUTO_MOUNT \\\\.\\MountPointManager\n");
}

TEST(CreateAndMountDisk, AutomaticMountingAlreadyOnIsLeftAlone) {
  World w(timing(1000));
  const Bytes rec = w.record(64, L'D');
  w.create(rec);
  EXPECT_TRUE(w.sim.machine.world.host.autoMount);
  EXPECT_EQ(w.entriesWith("IOCTL_MOUNTMGR"), "IOCTL_MOUNTMGR_QUERY_AUTO_MOUNT \\\\.\\MountPointManager\n");
}

TEST(CreateAndMountDisk, WhenTheQueryFailsNothingIsChangedAndTheVolumeGetsNoLetter) {
  json state = timing(1000);
  state["host"] = {{"autoMount", false}};
  state["faults"] = {{{"api", "DeviceIoControl"}, {"code", "IOCTL_MOUNTMGR_QUERY_AUTO_MOUNT"}, {"error", 50}}};
  World w(state);
  const Bytes rec = w.record(64, L'D');
  const MountRequest m = w.create(rec);
  EXPECT_EQ(m.mountStatus, mountstatus::VolumeNotReady);
  EXPECT_EQ(w.entriesWith("IOCTL_MOUNTMGR_SET"), "");
  EXPECT_FALSE(w.sim.machine.world.host.autoMount);
}

TEST(CreateAndMountDisk, AMoveThatFailsLeavesTheLetterItCameUpWith) {
  json state = timing(1000);
  state["faults"] = {{{"api", "SetVolumeMountPointW"}, {"path", "R:\\"}, {"error", 5}}};
  World w(state);
  const Bytes rec = w.record(64, L'R');
  const MountRequest m = w.create(rec);
  EXPECT_EQ(m.mountStatus, mountstatus::LetterNotMoved);
  EXPECT_EQ(m.driveLetter, L'D');
  EXPECT_EQ(w.lettersOf(0), std::vector<std::string>{"D:\\"});
}

TEST(CreateAndMountDisk, AVolumeThatCanBePutNeitherThereNorBackHasNoLetter) {
  json state = timing(1000);
  state["faults"] = {{{"api", "SetVolumeMountPointW"}, {"path", "R:\\"}, {"error", 5}},
                     {{"api", "SetVolumeMountPointW"}, {"path", "D:\\"}, {"error", 1117}}};
  World w(state);
  const Bytes rec = w.record(64, L'R');
  const MountRequest m = w.create(rec);
  EXPECT_EQ(m.error, 0u);
  EXPECT_EQ(m.mountStatus, mountstatus::LetterNotMoved);
  EXPECT_EQ(m.driveLetter, 0);
  EXPECT_TRUE(w.lettersOf(0).empty());
}

TEST(CreateAndMountDisk, MountedDevicesGivesTheDiskItsRememberedLetter) {
  World w(timing(1000));
  Bytes rec = w.record(64, L'T');
  put32(rec, DiskSettingsRecord::Header::Signature, 0x11223344);
  DiskSettingsRecord::storeChecksum(rec);
  w.sim.machine.edit([](json& s) {
    s["registry"]["SYSTEM\\MountedDevices"]["\\DosDevices\\T:"] = {{"type", "REG_BINARY"},
                                                                    {"data", "44332211007e000000000000"}};
  });
  const MountRequest m = w.create(rec);
  EXPECT_EQ(m.mountStatus, mountstatus::Ready);
  EXPECT_EQ(m.driveLetter, L'T');
  EXPECT_EQ(w.sim.apiCalls("SetVolumeMountPointW"), 0u);  // it came up there: nothing to move
}

// --- FindNewDiskLetter

TEST(FindNewDiskLetter, ALetterOfAnotherDiskIsLookedAtOnceAndNotAgain) {
  World w;
  std::uint32_t previous = 0x4;  // C:
  std::uint16_t letter = 0;
  // D: appears and belongs to nothing of the controller.
  EXPECT_FALSE(FindNewDiskLetter(w.ctx, diskAddress(3), previous, 0x4 | 0x8, letter));
  EXPECT_EQ(previous, 0xCu);
  EXPECT_FALSE(FindNewDiskLetter(w.ctx, diskAddress(3), previous, 0xC, letter));
  EXPECT_EQ(w.sim.machine.stats["requests"].value("QueryDosDeviceOwner", 0), 1);
  EXPECT_EQ(letter, 0);
}

}  // namespace mount_test
}  // namespace vmd
