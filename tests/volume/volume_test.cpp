// Volume management against the simulated machine: each test is a short
// story of one procedure, with the requests it sends in order, the virtual
// time it spends and the machine it leaves.
#include "volume/volume.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/bytes.h"
#include "base/text_codec.h"
#include "controller/codes.h"
#include "settings/creation_record.h"
#include "settings/settings_record.h"
#include "support/sim_app.h"

namespace vmd {
namespace {

using sim::json;
using test::SimApp;

// Passes every device call on to the simulated machine and writes down, in
// order, what was opened, asked and closed.
class RecordingIo : public DeviceIo {
 public:
  explicit RecordingIo(DeviceIo& inner) : inner_(inner) {}
  SysResult<Handle> open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                         std::uint32_t disposition, std::uint32_t flags) override {
    const SysResult<Handle> r = inner_.open(path, access, share, disposition, flags);
    if (r.ok) paths_[r.value] = toUtf8(path);
    log.push_back("open " + toUtf8(path) + (r.ok ? "" : " failed"));
    return r;
  }
  SysResult<std::uint32_t> control(Handle h, std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                                   std::uint32_t outSize) override {
    const SysResult<std::uint32_t> r = inner_.control(h, code, in, inSize, out, outSize);
    log.push_back(sim::codeName(code) + " " + paths_[h] + (r.ok ? "" : " failed " + std::to_string(r.error)));
    return r;
  }
  SysStatus flush(Handle h) override { return inner_.flush(h); }
  void close(Handle h) override {
    log.push_back("close " + paths_[h]);
    inner_.close(h);
  }

  std::vector<std::string> log;

 private:
  DeviceIo& inner_;
  std::map<Handle, std::string> paths_;
};

// A machine, the program's controller object on a recording device layer,
// and the volume services over both.
class World {
 public:
  explicit World(json state = json::object())
      : sim(std::move(state)),
        io(sim.platform.io),
        controller(sim.platform.setup, io),
        ctx{controller,
            io,
            sim.platform.volumes,
            sim.platform.registry,
            sim.platform.clock,
            sim.platform.broadcast,
            [this] {
              ++questions;
              return answers.empty() ? false : answers[questions - 1 < answers.size() ? questions - 1 : 0];
            }} {
    controller.discover();
  }

  // A creation record as add would send it.
  Bytes record(std::uint32_t sizeMb, wchar_t letter, bool directIo = false) {
    DiskSettings s;
    s.sizeMb = sizeMb;
    s.driveLetter = static_cast<std::uint16_t>(letter);
    if (directIo) s.diskFlags = diskflag::DirectIo;
    return *BuildCreationRecord(s, nullptr, sim.platform.clock, sim.platform.system);
  }

  MountRequest create(const Bytes& rec) {
    MountRequest m;
    m.createRequest = &rec;
    CreateAndMountDisk(ctx, m);
    return m;
  }

  std::uint64_t elapsedMs() const { return sim.machine.nowMs(); }
  std::uint32_t sleeps() const { return sim.apiCalls("Sleep"); }
  std::size_t openHandles() const { return sim.platform.io.openHandles(); }
  std::vector<std::string> lettersOf(std::uint8_t disk) const {
    for (const auto& v : sim.machine.world.volumes)
      if (v.disk && *v.disk == disk) return v.mountPoints;
    return {};
  }
  std::string entriesWith(const char* request) const {
    std::string all;
    for (const std::string& l : io.log)
      if (l.rfind(request, 0) == 0) all += l + "\n";
    return all;
  }

  SimApp sim;
  RecordingIo io;
  CVmDevControl controller;
  VolumeContext ctx;
  std::vector<bool> answers;
  std::size_t questions = 0;
};

// `a` with the top-level objects of `b` merged in.
json merged(json a, const json& b) {
  a.merge_patch(b);
  return a;
}

json timing(json volumeAfter, json goneAfter = 1000) {
  return json{{"controller", {{"timing", {{"volumeAfterMs", volumeAfter}, {"goneAfterMs", goneAfter}}}}}};
}

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

// --- letters

TEST(ChangeDriveLetter, TheSameLetterSucceedsWithoutTouchingAnything) {
  World w;
  EXPECT_TRUE(ChangeDriveLetter(w.ctx, 0, false, L'R', L'R'));
  EXPECT_TRUE(w.io.log.empty());
  EXPECT_EQ(w.sim.apiCalls("GetLogicalDrives"), 0u);
}

TEST(ChangeDriveLetter, ALetterInUseFailsWithoutTouchingAnything) {
  World w;
  EXPECT_FALSE(ChangeDriveLetter(w.ctx, 0, true, L'R', L'C'));
  EXPECT_TRUE(w.io.log.empty());
  EXPECT_EQ(w.sim.apiCalls("DeleteVolumeMountPointW"), 0u);
}

TEST(ChangeDriveLetter, AControllerLetterMovesThroughTheControllerAndIsAnnounced) {
  World w(json::parse(R"({"controller": {"disks": [{"index": 2, "size": 67108864, "directIo": true, "letter": "R"}]}})"));
  EXPECT_TRUE(ChangeDriveLetter(w.ctx, 2, true, L'R', L'S'));
  const auto& b = w.sim.machine.world.broadcasts;
  ASSERT_EQ(b.size(), 2u);
  EXPECT_EQ(b[0].event, "DBT_DEVICEREMOVECOMPLETE");
  EXPECT_EQ(b[0].letter, "R");
  EXPECT_EQ(b[1].event, "DBT_DEVICEARRIVAL");
  EXPECT_EQ(b[1].letter, "S");
  EXPECT_EQ(w.sim.machine.world.controller.findDisk(2)->letter, u'S');
}

TEST(ChangeDriveLetter, ASystemLetterMovesTheMountPoint) {
  World w(json::parse(R"({"controller": {"disks": [{"index": 0, "size": 67108864}]},
                          "volumes": [{"disk": 0, "mountPoints": ["E:\\"]}]})"));
  EXPECT_TRUE(ChangeDriveLetter(w.ctx, 0, false, L'E', L'F'));
  EXPECT_EQ(w.lettersOf(0), std::vector<std::string>{"F:\\"});
  EXPECT_TRUE(w.sim.machine.world.broadcasts.empty());
}

TEST(MoveVolumeMountPoint, AFailedMovePutsTheVolumeBackAndSaysSo) {
  World w(json::parse(R"({"controller": {"disks": [{"index": 0, "size": 67108864}]},
                          "volumes": [{"disk": 0, "mountPoints": ["E:\\"]}],
                          "faults": [{"api": "SetVolumeMountPointW", "path": "F:\\", "error": 5}]})"));
  bool keptOld = false;
  EXPECT_FALSE(MoveVolumeMountPoint(w.ctx, L'E', L'F', &keptOld));
  EXPECT_TRUE(keptOld);
  EXPECT_EQ(w.lettersOf(0), std::vector<std::string>{"E:\\"});
}

TEST(MoveVolumeMountPoint, AVolumeThatCannotGoBackIsReportedWithoutALetter) {
  World w(json::parse(R"({"controller": {"disks": [{"index": 0, "size": 67108864}]},
                          "volumes": [{"disk": 0, "mountPoints": ["E:\\"]}],
                          "faults": [{"api": "SetVolumeMountPointW", "error": 1117}]})"));
  bool keptOld = true;
  EXPECT_FALSE(MoveVolumeMountPoint(w.ctx, L'E', L'F', &keptOld));
  EXPECT_FALSE(keptOld);
  EXPECT_TRUE(w.lettersOf(0).empty());
  EXPECT_EQ(w.sim.apiCalls("SetVolumeMountPointW"), 2u);  // the new letter, then the old: no third try
}

TEST(BroadcastVolumeChange, SendsTheVolumeRecordOfTheLetter) {
  const Bytes r = volumeBroadcastRecord(L'R');
  ASSERT_EQ(r.size(), 20u);
  EXPECT_EQ(get32(r, 0), 20u);
  EXPECT_EQ(get32(r, 4), 2u);
  EXPECT_EQ(get32(r, 8), 0u);
  EXPECT_EQ(get32(r, 12), 1u << 17);
  EXPECT_EQ(get16(r, 16), 0);
}

TEST(BroadcastVolumeChange, AFailedBroadcastIsNotOkWithItsError) {
  World w(json{{"faults", {{{"api", "BroadcastSystemMessageW"}, {"error", 1460}}}}});
  const SysStatus sent = BroadcastVolumeChange(w.ctx, dbt::DeviceArrival, L'R');
  EXPECT_FALSE(sent.ok);
  EXPECT_EQ(sent.error, 1460u);
}

// --- the mounted-devices database

json mountedDevices(json values) {
  return json{{"registry", {{"SYSTEM\\MountedDevices", std::move(values)}}}};
}
json binary(const std::string& hex) { return json{{"type", "REG_BINARY"}, {"data", hex}}; }

std::vector<std::string> valueNames(const SimApp& sim) {
  std::vector<std::string> names;
  for (const auto& k : sim.machine.world.registry)
    if (k.name == "SYSTEM\\MountedDevices")
      for (const auto& v : k.values) names.push_back(v.name);
  return names;
}

TEST(RewriteMountedDevice, RemovesEveryLetterOfTheDiskAndWritesTheNewOne) {
  const std::string mine = "44332211007e000000000000";
  World w(mountedDevices({{"\\DosDevices\\E:", binary(mine)},
                          {"\\DosDevices\\F:", binary("44332211007e0000ffffffff")},  // high half not compared
                          {"\\DosDevices\\G:", binary("55332211007e000000000000")},
                          {"\\DosDevices\\H:", binary(mine)}}));
  std::array<std::uint8_t, 12> data{0x44, 0x33, 0x22, 0x11, 0x00, 0x7e, 0, 0, 0, 0, 0, 0};
  EXPECT_TRUE(RewriteMountedDevice(w.ctx, L'r', data));
  EXPECT_EQ(valueNames(w.sim), (std::vector<std::string>{"\\DosDevices\\G:", "\\DosDevices\\R:"}));
}

TEST(RewriteMountedDevice, ValuesLongerThanTheBuffersAreSkippedNeverRemoved) {
  const std::string mine = "44332211007e000000000000";
  World w(mountedDevices({{"\\??\\Volume{0123456789}", binary(mine)},
                          {"\\DosDevices\\E:", binary(mine + "00")},
                          {"\\DosDevices\\F:", {{"type", "REG_DWORD"}, {"data", 7}}}}));
  std::array<std::uint8_t, 12> data{0x44, 0x33, 0x22, 0x11, 0x00, 0x7e, 0, 0, 0, 0, 0, 0};
  EXPECT_TRUE(RewriteMountedDevice(w.ctx, L'S', data));
  EXPECT_EQ(valueNames(w.sim), (std::vector<std::string>{"\\??\\Volume{0123456789}", "\\DosDevices\\E:",
                                                         "\\DosDevices\\F:", "\\DosDevices\\S:"}));
}

TEST(RewriteMountedDevice, OnlyLettersAToZ) {
  World w;
  EXPECT_FALSE(RewriteMountedDevice(w.ctx, L'1', {}));
  EXPECT_FALSE(RewriteMountedDevice(w.ctx, L'[', {}));
  EXPECT_TRUE(valueNames(w.sim).empty());
}

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

json oneDisk(json extra = json::object()) {
  json disk = {{"index", 4}, {"size", 67108864}};
  disk.update(extra);
  return json{{"controller", {{"disks", {disk}}}}};
}

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
  World w(merged(timing(500, 500),
                 json::parse(R"({"controller": {"disks": [{"index": 4, "size": 67108864, "directIo": true, "letter": "R"}]}})")));
  Bytes rec = w.record(128, L'R', true);
  RebuildRequest r;
  r.address = diskAddress(4);
  r.createRequest = &rec;
  r.driveLetter = L'R';
  RebuildDisk(w.ctx, r);
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
  World w(merged(timing(500, 500),
                 json::parse(R"({"controller": {"disks": [{"index": 4, "size": 67108864, "directIo": true, "letter": "R"}]},
                                 "faults": [{"api": "BroadcastSystemMessageW", "nth": 1}]})")));
  Bytes rec = w.record(128, L'R', true);
  RebuildRequest r;
  r.address = diskAddress(4);
  r.createRequest = &rec;
  r.driveLetter = L'R';
  RebuildDisk(w.ctx, r);
  EXPECT_TRUE(r.removed);
  EXPECT_EQ(r.error, 0u);
  EXPECT_EQ(r.status, 0u);
  EXPECT_TRUE(r.announcementFailed);
  ASSERT_EQ(w.sim.machine.world.broadcasts.size(), 1u);
  EXPECT_EQ(w.sim.machine.world.broadcasts[0].event, "DBT_DEVICEARRIVAL");
}

TEST(RebuildDisk, ARemovalThatDoesNotFinishCreatesNothing) {
  World w(oneDisk({{"goneAfterMs", "never"}}));
  Bytes rec = w.record(128, L'R');
  RebuildRequest r;
  r.address = diskAddress(4);
  r.createRequest = &rec;
  RebuildDisk(w.ctx, r);
  EXPECT_FALSE(r.removed);
  EXPECT_EQ(r.error, 0u);
  EXPECT_EQ(r.status, removalstatus::StillPresent);
  EXPECT_EQ(w.sim.machine.stats["requests"].value("CreateDisk", 0), 0);
}

}  // namespace
}  // namespace vmd
