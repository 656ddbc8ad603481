// Moving and announcing drive letters and the mounted-devices database,
// against the simulated machine.
#include "volume/volume.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "volume/volume_world.h"

namespace vmd {
namespace letters_test {

using sim::json;
using test::SimApp;
using voltest::merged;
using voltest::oneDisk;
using voltest::timing;
using voltest::World;

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

}  // namespace letters_test
}  // namespace vmd
