// The state file is read strictly: what cannot be is refused by its place,
// and the file is left as it was.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "sim/machine.h"

namespace vmd::sim {
namespace state_file_test {

std::string readAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// Loading `text` fails with `message`, and the file stays byte for byte.
void refused(const std::string& text, const std::string& message) {
  const std::string path = ::testing::TempDir() + "sim_refused_" + ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".json";
  std::ofstream(path, std::ios::binary) << text;
  try {
    Machine::load(path);
    ADD_FAILURE() << "loaded: " << text;
  } catch (const LoadError& e) {
    EXPECT_EQ(std::string(e.what()), path + ": " + message);
  }
  EXPECT_EQ(readAll(path), text);
}

TEST(SimStateFile, UnknownKeyIsRefusedByItsPlace) {
  refused(R"({"controller": {"disks": [{"index": 1, "directIO": true}]}})", "controller.disks[0].directIO: unknown key");
}

TEST(SimStateFile, WrongTypeIsRefusedByItsPlace) {
  refused(R"({"host": {"memory": {"totalPhys": "lots"}}})", "host.memory.totalPhys: \"lots\" is not a number");
}

TEST(SimStateFile, DiskIndexOf200IsRefused) {
  refused(R"({"controller": {"disks": [{"index": 1}, {"index": 200}]}})",
          "controller.disks[1].index: 200 is not a disk index (0 to 127)");
}

TEST(SimStateFile, TwoVolumesOnOneLetterAreRefused) {
  refused(R"({"schema": 2, "controller": {"disks": [{"index": 1}, {"index": 2}]},
             "volumes": [{"disk": 1, "mountPoints": ["E:\\"]}, {"disk": 2, "mountPoints": ["E:\\"]}]})",
          "volumes[1].mountPoints: E: is the letter of another volume or drive");
}

TEST(SimStateFile, VolumeOnADrivesLetterIsRefused) {
  refused(R"({"schema": 2, "controller": {"disks": [{"index": 1}]}, "volumes": [{"disk": 1, "mountPoints": ["C:\\"]}]})",
          "volumes[0].mountPoints: C: is the letter of another volume or drive");
}

TEST(SimStateFile, DwordValueWithoutDataIsRefused) {
  refused(R"({"registry": {"K": {"v": {"type": "REG_DWORD"}}}})", "registry.K.v.data: a REG_DWORD value needs its data");
}

TEST(SimStateFile, UnknownSchemaIsRefused) {
  refused(R"({"schema": 7})", "schema: 7 is not a schema this simulator reads (1 or 2)");
}

TEST(SimStateFile, ReadingAndWritingGivesTheSameMachine) {
  Machine m(json::parse(R"({"schema": 2, "controller": {"disks": [{"index": 3, "size": 1048576,
      "settings": {"volumeLabel": "X"}}]}, "registry": {"K": {"b": 2, "a": 1}}})"));
  const json once = m.toJson();
  const json twice = Machine(once).toJson();
  EXPECT_EQ(once, twice);
  EXPECT_EQ(once["registry"]["K"].begin().key(), "b");  // values keep the order written
  EXPECT_EQ(once["controller"]["disks"][0]["settings"]["volumeLabel"], "X");
}

TEST(SimStateFile, VersionOneDisksBringNoVolumes) {
  Machine old(json::parse(R"({"controller": {"disks": [{"index": 3}]}})"));
  EXPECT_EQ(old.world.volumes.size(), 1u);
  Machine now(json::parse(R"({"schema": 2, "controller": {"disks": [{"index": 3}]}})"));
  ASSERT_EQ(now.world.volumes.size(), 2u);
  EXPECT_EQ(now.world.volumes[1].mountPoints, (std::vector<std::string>{"D:\\"}));
}

TEST(SimStateFile, DescribedVolumeIsLaidOverWhatTheDiskBrings) {
  Machine m(json::parse(R"({"schema": 2, "controller": {"disks": [{"index": 3, "settings": {"volumeLabel": "RD"}}]},
      "volumes": [{"disk": 3, "mountPoints": ["Q:\\"], "heldByOthers": 1}]})"));
  ASSERT_EQ(m.world.volumes.size(), 2u);
  const Volume& v = m.world.volumes[1];
  EXPECT_EQ(v.mountPoints, (std::vector<std::string>{"Q:\\"}));
  EXPECT_EQ(v.props.label, "RD");
  EXPECT_EQ(v.heldByOthers, 1u);
  ASSERT_EQ(v.extents.size(), 1u);
  EXPECT_EQ(v.extents[0].disk, 4u);
}

TEST(SimStateFile, DiskMarkedWithoutVolumeHasNone) {
  Machine m(json::parse(R"({"schema": 2, "controller": {"disks": [{"index": 3, "volume": false}]}})"));
  EXPECT_EQ(m.world.volumes.size(), 1u);
  EXPECT_EQ(m.toJson()["controller"]["disks"][0]["volume"], false);
}

TEST(SimStateFile, TextThatIsNoJsonIsRefusedByLineAndColumn) {
  refused("{\n \"x\": [1,\n  2,, 3]}", "line 3, column 5: syntax error while parsing value - unexpected ','; expected '[', '{', or a literal");
  refused("", "line 1, column 1: syntax error while parsing value - unexpected end of input; expected '[', '{', or a literal");
}

TEST(SimStateFile, NumberNoDoubleHoldsIsRefusedByLineAndColumn) {
  refused(R"({"clock": {"fileTime": 1e999}})", "line 1, column 24: number overflow parsing '1e999'");
}

// A refusal stays one readable line, whatever the file holds.
TEST(SimStateFile, ControlCharactersInARefusalAreWrittenAsBytes) {
  refused(R"({"host": {"os\nx": 1}})", "host.os\\x0ax: unknown key");
  refused(R"({"": 1})", "\"\": unknown key");
  refused("{\"host\": \"\x7f\xff\"}", "line 1, column 12: syntax error while parsing value - invalid string: "
                                            "ill-formed UTF-8 byte; last read: '\"\\x7f\\xff'");
}

TEST(SimStateFile, UnknownKeyInDiskSettingsIsRefusedByItsPlace) {
  refused(R"({"controller": {"disks": [{"index": 0, "settings": {"volumeLable": "X"}}]}})",
          "controller.disks[0].settings.volumeLable: unknown key");
}

TEST(SimStateFile, WrongTypeInDiskSettingsIsRefusedByItsPlace) {
  refused(R"({"controller": {"disks": [{"index": 0, "settings": {"volumeLabel": 5}}]}})",
          "controller.disks[0].settings.volumeLabel: 5 is not a text");
  refused(R"({"controller": {"disks": [{"index": 0, "settings": {"customFolders": ["a", 7]}}]}})",
          "controller.disks[0].settings.customFolders[1]: 7 is not a text");
  refused(R"({"controller": {"disks": [{"index": 0, "settings": {"fileSystem": "exFAT"}}]}})",
          "controller.disks[0].settings.fileSystem: \"exFAT\" is not a file system (NTFS, FAT, FAT32 or a code)");
  refused(R"({"controller": {"disks": [{"index": 0, "settings": []}]}})", "controller.disks[0].settings: is not an object");
}

TEST(SimStateFile, DiskSettingsTooLargeForTheirFieldAreRefused) {
  refused(R"({"controller": {"disks": [{"index": 0, "settings": {"marker": 256}}]}})",
          "controller.disks[0].settings.marker: 256 is too large (at most 255)");
  refused(R"({"controller": {"disks": [{"index": 0, "settings": {"sizeMb": "0x100000000000"}}]}})",
          "controller.disks[0].settings.sizeMb: 17592186044416 is too large (at most 17592186044415)");
  refused(R"({"controller": {"disks": [{"index": 0, "settings": {"driveLetter": "RS"}}]}})",
          "controller.disks[0].settings.driveLetter: \"RS\" is not a drive letter");
}

TEST(SimStateFile, UnknownKeyOrWrongTypeInDiskStatusIsRefusedByItsPlace) {
  refused(R"({"controller": {"disks": [{"index": 1, "status": {"imQuota": 96}}]}})",
          "controller.disks[0].status.imQuota: unknown key");
  refused(R"({"controller": {"disks": [{"index": 1, "settingsRecord": "0102", "status": {"imageFlags": true}}]}})",
          "controller.disks[0].status.imageFlags: true is not a number");
}

TEST(SimStateFile, ADiskDescribedTwiceIsRefused) {
  refused(R"({"controller": {"disks": [{"index": 1, "settings": {}, "settingsRecord": "00"}]}})",
          "controller.disks[0].settingsRecord: a disk gives its settings or its settingsRecord, not both");
  refused(R"({"controller": {"disks": [{"index": 1, "status": {}, "statusRecord": "00"}]}})",
          "controller.disks[0].statusRecord: a disk gives its status or its statusRecord, not both");
}

// The one description that loads without a record, and stays so when written back.
TEST(SimStateFile, SettingsNoRecordCanHoldLoadAsNoRecord) {
  json state = json::parse(R"({"schema": 2, "controller": {"disks": [{"index": 1, "settings": {}}]}})");
  state["controller"]["disks"][0]["settings"]["imageFile"] = std::string(33000, 'x');
  const Machine m(state);
  ASSERT_EQ(m.world.controller.disks.size(), 1u);
  EXPECT_FALSE(m.world.controller.disks[0].settings.has_value());
  const json written = m.toJson();
  EXPECT_EQ(written["controller"]["disks"][0]["settings"]["imageFile"], std::string(33000, 'x'));
  EXPECT_FALSE(Machine(written).world.controller.disks[0].settings.has_value());
}

TEST(SimStateFile, StatusNoRecordCanHoldLoadsAsABrokenStatus) {
  json state = json::parse(R"({"schema": 2, "controller": {"disks": [{"index": 1, "status": {}}]}})");
  state["controller"]["disks"][0]["status"]["volumeLabel"] = std::string(33000, 'x');
  const Machine m(state);
  EXPECT_TRUE(m.world.controller.disks[0].settings.has_value());
  EXPECT_TRUE(m.world.controller.disks[0].statusBroken);
  const json written = m.toJson();
  EXPECT_TRUE(written["controller"]["disks"][0].contains("status"));
  EXPECT_TRUE(Machine(written).world.controller.disks[0].statusBroken);
}

// A status laid over a raw record that is no record at all still loads.
TEST(SimStateFile, StatusOverAMalformedRawRecordLoads) {
  const Machine m(json::parse(R"({"controller": {"disks": [{"index": 1, "settingsRecord": "0102ff",
      "status": {"imQuotaMb": 1}}]}})"));
  EXPECT_TRUE(m.world.controller.disks[0].status.has_value());
}

// Code units that are no letters are written as numbers, so they read back the same.
TEST(SimStateFile, LettersThatAreNoLettersKeepTheirCodeUnit) {
  Machine m(json::parse(R"({"schema": 2, "controller": {"disks": [{"index": 1, "directIo": true, "letter": 49}],
      "im": {"hiberDriveConfigured": 49}}})"));
  const json once = m.toJson();
  EXPECT_EQ(once["controller"]["disks"][0]["letter"], 49);
  EXPECT_EQ(once["controller"]["im"]["hiberDriveConfigured"], 49);
  EXPECT_EQ(Machine(once).toJson(), once);
}

}  // namespace state_file_test
}  // namespace vmd::sim
