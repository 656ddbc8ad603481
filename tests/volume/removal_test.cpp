// Dismounting a disk's volumes, removing a disk and rebuilding it, against
// the simulated machine.
#include "volume/volume.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "volume/volume_world.h"

namespace vmd {
namespace removal_test {

using sim::json;
using test::SimApp;
using voltest::merged;
using voltest::oneDisk;
using voltest::timing;
using voltest::World;

// --- dismount

json heldVolumes(int firstHeld, int secondHeld) {
  return merged(json::parse(R"({"controller": {"disks": [{"index": 0, "size": 67108864}]}})"),
                json{{"volumes",
                    {{{"name", "\\\\?\\Volume{aaaa}\\"},
                      {"interfacePath", "\\\\?\\STORAGE#Volume#aaaa"},
                      {"mountPoints", {"E:\\"}},
                      {"fileSystem", "NTFS"},
                      {"extents", {{{"disk", 1}, {"offset", 32256}, {"length", 1048576}}}},
                      {"heldByOthers", firstHeld}},
                     {{"name", "\\\\?\\Volume{bbbb}\\"},
                      {"interfacePath", "\\\\?\\STORAGE#Volume#bbbb"},
                      {"mountPoints", {"F:\\"}},
                      {"fileSystem", "NTFS"},
                      {"extents", {{{"disk", 1}, {"offset", 2097152}, {"length", 1048576}}}},
                      {"heldByOthers", secondHeld}}}}});
}

TEST(DismountVolume, AFreeVolumeIsLockedDismountedUnlockedAndClosed) {
  World w(heldVolumes(0, 0));
  bool forceAll = false;
  VolumeLock lock;
  ASSERT_TRUE(DismountVolume(w.ctx, L"\\\\?\\STORAGE#Volume#aaaa", lock, forceAll));
  EXPECT_TRUE(lock.locked);
  EXPECT_TRUE(w.sim.machine.world.volumes[0].dismounted);
  ReleaseVolume(lock);
  EXPECT_EQ(w.io.log, (std::vector<std::string>{"open \\\\?\\STORAGE#Volume#aaaa",
                                                "FSCTL_LOCK_VOLUME \\\\?\\STORAGE#Volume#aaaa",
                                                "FSCTL_DISMOUNT_VOLUME \\\\?\\STORAGE#Volume#aaaa",
                                                "FSCTL_UNLOCK_VOLUME \\\\?\\STORAGE#Volume#aaaa",
                                                "close \\\\?\\STORAGE#Volume#aaaa"}));
  EXPECT_EQ(w.questions, 0u);
  EXPECT_EQ(w.openHandles(), 0u);
}

TEST(DismountVolume, AHeldVolumeAsksAndADeclineLeavesItMountedAndClosed) {
  World w(heldVolumes(1, 0));
  w.answers = {false};
  bool forceAll = false;
  VolumeLock lock;
  EXPECT_FALSE(DismountVolume(w.ctx, L"\\\\?\\STORAGE#Volume#aaaa", lock, forceAll));
  EXPECT_EQ(w.questions, 1u);
  EXPECT_FALSE(forceAll);
  EXPECT_FALSE(lock.volume.valid());
  EXPECT_EQ(w.openHandles(), 0u);
  EXPECT_EQ(w.sim.machine.world.volumes[0].heldByOthers, 1u);
  EXPECT_EQ(w.entriesWith("FSCTL_DISMOUNT"), "");
}

TEST(DismountVolume, AForcedDismountReleasesTheOtherHandles) {
  World w(heldVolumes(2, 0));
  w.answers = {true};
  bool forceAll = false;
  VolumeLock lock;
  EXPECT_TRUE(DismountVolume(w.ctx, L"\\\\?\\STORAGE#Volume#aaaa", lock, forceAll));
  EXPECT_TRUE(forceAll);
  EXPECT_FALSE(lock.locked);
  EXPECT_TRUE(w.sim.machine.world.volumes[0].dismounted);
  ReleaseVolume(lock);
  EXPECT_EQ(w.entriesWith("FSCTL"),
            "FSCTL_LOCK_VOLUME \\\\?\\STORAGE#Volume#aaaa failed 5\n"
            "FSCTL_DISMOUNT_VOLUME \\\\?\\STORAGE#Volume#aaaa\n");  // no unlock: it was never locked
  EXPECT_EQ(w.sim.machine.world.volumes[0].heldByOthers, 0u);
  EXPECT_EQ(w.openHandles(), 0u);
}

TEST(DismountVolume, ADismountThatFailsStillLetsTheCommandGoOn) {
  World w(merged(heldVolumes(0, 0), json{{"faults", {{{"api", "DeviceIoControl"}, {"code", "FSCTL_DISMOUNT_VOLUME"},
                                                       {"error", 1117}}}}}));
  bool forceAll = false;
  VolumeLock lock;
  EXPECT_TRUE(DismountVolume(w.ctx, L"\\\\?\\STORAGE#Volume#aaaa", lock, forceAll));
  EXPECT_TRUE(lock.locked);
  EXPECT_FALSE(w.sim.machine.world.volumes[0].dismounted);
  ReleaseVolume(lock);
  EXPECT_EQ(w.entriesWith("FSCTL"),
            "FSCTL_LOCK_VOLUME \\\\?\\STORAGE#Volume#aaaa\n"
            "FSCTL_DISMOUNT_VOLUME \\\\?\\STORAGE#Volume#aaaa failed 1117\n"
            "FSCTL_UNLOCK_VOLUME \\\\?\\STORAGE#Volume#aaaa\n");
  EXPECT_EQ(w.questions, 0u);
  EXPECT_EQ(w.openHandles(), 0u);
}

TEST(DismountVolume, AVolumeThatCannotBeOpenedIsAskedAboutAndThenPassedOver) {
  World w;
  w.answers = {true};
  bool forceAll = false;
  VolumeLock lock;
  EXPECT_TRUE(DismountVolume(w.ctx, L"\\\\?\\STORAGE#Volume#gone", lock, forceAll));
  EXPECT_EQ(w.questions, 1u);
  EXPECT_EQ(w.io.log, std::vector<std::string>{"open \\\\?\\STORAGE#Volume#gone failed"});
}

TEST(DismountVolume, OnceForcedTheLaterVolumesOfTheCommandAreNotAskedAbout) {
  World w(heldVolumes(1, 1));
  w.answers = {true};
  bool forceAll = false;
  for (const wchar_t* path : {L"\\\\?\\STORAGE#Volume#aaaa", L"\\\\?\\STORAGE#Volume#bbbb"}) {
    VolumeLock lock;
    EXPECT_TRUE(DismountVolume(w.ctx, path, lock, forceAll));
    ReleaseVolume(lock);
  }
  EXPECT_EQ(w.questions, 1u);
}

TEST(DismountVolume, DecliningAtTheSecondVolumeLeavesTheFirstDismounted) {
  World w(heldVolumes(0, 1));
  w.answers = {false};
  bool forceAll = false;
  VolumeLock first;
  ASSERT_TRUE(DismountVolume(w.ctx, L"\\\\?\\STORAGE#Volume#aaaa", first, forceAll));
  ReleaseVolume(first);
  VolumeLock second;
  EXPECT_FALSE(DismountVolume(w.ctx, L"\\\\?\\STORAGE#Volume#bbbb", second, forceAll));
  EXPECT_EQ(w.io.log, (std::vector<std::string>{"open \\\\?\\STORAGE#Volume#aaaa",
                                                "FSCTL_LOCK_VOLUME \\\\?\\STORAGE#Volume#aaaa",
                                                "FSCTL_DISMOUNT_VOLUME \\\\?\\STORAGE#Volume#aaaa",
                                                "FSCTL_UNLOCK_VOLUME \\\\?\\STORAGE#Volume#aaaa",
                                                "close \\\\?\\STORAGE#Volume#aaaa",
                                                "open \\\\?\\STORAGE#Volume#bbbb",
                                                "FSCTL_LOCK_VOLUME \\\\?\\STORAGE#Volume#bbbb failed 5",
                                                "close \\\\?\\STORAGE#Volume#bbbb"}));
  EXPECT_EQ(w.openHandles(), 0u);
}

// --- removal

TEST(CanRemoveDisk, TheControllerRefusesADiskWithAPagingFile) {
  World w(oneDisk({{"pagingFile", true}}));
  EXPECT_FALSE(CanRemoveDisk(w.ctx, diskAddress(4)));
  EXPECT_NE(w.sim.machine.world.controller.findDisk(4), nullptr);
}

TEST(CanRemoveDisk, OnlyAsksAndRemovesNothing) {
  World w(oneDisk());
  EXPECT_TRUE(CanRemoveDisk(w.ctx, diskAddress(4)));
  EXPECT_TRUE(IsDiskPresent(w.ctx, diskAddress(4)));
}

TEST(RemoveDiskAndWait, ADiskThatGoesAtOnceIsGoneAtTheSecondLook) {
  World w(merged(timing(1000, 500), oneDisk()));
  RemoveRequest r;
  r.address = diskAddress(4);
  RemoveDiskAndWait(w.ctx, r);
  EXPECT_EQ(r.error, 0u);
  EXPECT_EQ(r.removalStatus, removalstatus::Gone);
  EXPECT_EQ(w.sleeps(), 1u);
  EXPECT_EQ(w.sim.machine.world.controller.findDisk(4), nullptr);
}

TEST(RemoveDiskAndWait, ARemovalThatNeverFinishesCosts120RoundsOfHalfASecond) {
  World w(oneDisk({{"goneAfterMs", "never"}}));
  RemoveRequest r;
  r.address = diskAddress(4);
  RemoveDiskAndWait(w.ctx, r);
  EXPECT_EQ(r.error, 0u);
  EXPECT_EQ(r.removalStatus, removalstatus::StillPresent);
  EXPECT_EQ(w.sleeps(), 120u);
  EXPECT_EQ(w.elapsedMs(), 60000u);
  EXPECT_EQ(w.sim.machine.stats["requests"].value("QueryDiskPresent", 0), 120);
}

TEST(RemoveDiskAndWait, ARefusedRemovalGivesTheErrorAndDoesNotWait) {
  World w(merged(json{{"faults", {{{"api", "DeviceIoControl"}, {"code", "RemoveDisk"}, {"error", 0}}}}}, oneDisk()));
  RemoveRequest r;
  r.address = diskAddress(4);
  r.removalStatus = 99;
  RemoveDiskAndWait(w.ctx, r);
  EXPECT_EQ(r.error, syserr::GenFailure);
  EXPECT_EQ(r.removalStatus, 99u);  // unchanged
  EXPECT_EQ(w.sleeps(), 0u);
}

TEST(RemoveDisk, SendsTheSixteenByteRecord) {
  World w(oneDisk());
  EXPECT_TRUE(RemoveDisk(w.ctx, diskAddress(4), 0));
  EXPECT_EQ(w.sim.machine.stats["requestSizes"].value("RemoveDisk", std::string()), "in=16 out=0");
}

TEST(IsDiskPresent, AFailedRequestCountsAsAbsent) {
  World w(merged(json{{"faults", {{{"api", "DeviceIoControl"}, {"code", "QueryDiskPresent"}}}}}, oneDisk()));
  EXPECT_FALSE(IsDiskPresent(w.ctx, diskAddress(4)));
}

// --- rebuild

TEST(RebuildDisk, RemovesAnnouncesTheOldLetterAndCreatesAgainAtTheSameIndex) {
  World w(voltest::directIoDiskAtR());
  const Bytes rec = w.record(128, L'R', true);
  const RebuildRequest r = voltest::rebuildDisk4(w, rec, L'R');
  EXPECT_TRUE(r.removed);
  EXPECT_EQ(r.error, 0u);
  EXPECT_EQ(r.status, 0u);
  EXPECT_EQ(r.driveLetter, L'R');
  EXPECT_FALSE(r.announcementFailed);
  const auto& b = w.sim.machine.world.broadcasts;
  ASSERT_EQ(b.size(), 2u);
  EXPECT_EQ(b[0].event, "DBT_DEVICEREMOVECOMPLETE");
  EXPECT_EQ(b[1].event, "DBT_DEVICEARRIVAL");
  ASSERT_EQ(w.sim.machine.world.controller.disks.size(), 1u);
  EXPECT_EQ(w.sim.machine.world.controller.disks[0].size, 128u << 20);
}

TEST(RebuildDisk, AnAnnouncementThatFailsIsReportedAndTheDiskStillRebuilt) {
  World w(voltest::directIoDiskAtR(json::parse(R"({"faults": [{"api": "BroadcastSystemMessageW", "nth": 1}]})")));
  const Bytes rec = w.record(128, L'R', true);
  const RebuildRequest r = voltest::rebuildDisk4(w, rec, L'R');
  EXPECT_TRUE(r.removed);
  EXPECT_EQ(r.error, 0u);
  EXPECT_EQ(r.status, 0u);
  EXPECT_TRUE(r.announcementFailed);
  ASSERT_EQ(w.sim.machine.world.broadcasts.size(), 1u);
  EXPECT_EQ(w.sim.machine.world.broadcasts[0].event, "DBT_DEVICEARRIVAL");
}

TEST(RebuildDisk, ARemovalThatDoesNotFinishCreatesNothing) {
  World w(oneDisk({{"goneAfterMs", "never"}}));
  const Bytes rec = w.record(128, L'R');
  const RebuildRequest r = voltest::rebuildDisk4(w, rec);
  EXPECT_FALSE(r.removed);
  EXPECT_EQ(r.error, 0u);
  EXPECT_EQ(r.status, removalstatus::StillPresent);
  EXPECT_EQ(w.sim.machine.stats["requests"].value("CreateDisk", 0), 0);
}

}  // namespace removal_test
}  // namespace vmd
