// The state file is read strictly: what cannot be is refused by its place,
// and the file is left as it was.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "sim/machine.h"

namespace vmd::sim {
namespace {

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

}  // namespace
}  // namespace vmd::sim
