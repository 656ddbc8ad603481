#include "commands/view_command.h"

#include <gtest/gtest.h>

#include <string>

#include "support/sim_app.h"

namespace vmd {
namespace view_command_test {

using sim::json;
using test::SimApp;

const char* kGuid = "\\\\?\\Volume{aa000002-0000-0000-0000-000000000000}\\";

json machineWithMounts(json mountPoints) {
  json m = json::object();
  m["volumes"] = json::array({{{"name", kGuid}, {"mountPoints", std::move(mountPoints)}, {"fileSystem", "FAT"},
                               {"label", "L"}, {"serial", "0x00010002"}, {"sectorsPerCluster", 2},
                               {"bytesPerSector", 512}, {"totalBytes", 3221225472ull}, {"freeBytes", 0},
                               {"devicePath", "\\\\.\\VelmoRdDevPort0Target4"}}});
  return m;
}

std::wstring first(const std::vector<wchar_t>& multi) { return std::wstring(multi.data()); }

TEST(QueryVolumePathNames, GivesTheMultiString) {
  SimApp sim(machineWithMounts(json::array({"R:\\", "C:\\mnt\\r\\"})));
  const auto names = QueryVolumePathNames(sim.app, fromUtf8(kGuid));
  ASSERT_TRUE(names);
  const std::vector<wchar_t> expected = {L'R', L':', L'\\', 0, L'C', L':', L'\\', L'm', L'n', L't',
                                         L'\\', L'r', L'\\', 0, 0};
  EXPECT_EQ(*names, expected);
  EXPECT_EQ(sim.apiCalls("GetVolumePathNamesForVolumeNameW"), 1u);
}

TEST(QueryVolumePathNames, LongListIsFetchedAgainWithTheLengthAskedFor) {
  json paths = json::array();
  for (int i = 0; i < 20; ++i) paths.push_back("C:\\mounted\\folder-" + std::to_string(i) + "\\");
  SimApp sim(machineWithMounts(paths));
  const auto names = QueryVolumePathNames(sim.app, fromUtf8(kGuid));
  ASSERT_TRUE(names);
  EXPECT_GT(names->size(), 261u);
  EXPECT_EQ(first(*names), L"C:\\mounted\\folder-0\\");
  EXPECT_EQ(sim.apiCalls("GetVolumePathNamesForVolumeNameW"), 2u);
}

TEST(QueryVolumePathNames, OtherErrorsGiveNothing) {
  json m = machineWithMounts(json::array({"R:\\"}));
  m["faults"] = json::array({{{"api", "GetVolumePathNamesForVolumeNameW"}, {"error", 5}}});
  SimApp sim(m);
  EXPECT_FALSE(QueryVolumePathNames(sim.app, fromUtf8(kGuid)));
  EXPECT_EQ(sim.apiCalls("GetVolumePathNamesForVolumeNameW"), 1u);
}

TEST(QueryVolumePathNames, ListThatNeverFitsIsGivenUp) {
  json m = machineWithMounts(json::array({"R:\\"}));
  m["faults"] = json::array({{{"api", "GetVolumePathNamesForVolumeNameW"}, {"error", 234}}});
  SimApp sim(m);
  EXPECT_FALSE(QueryVolumePathNames(sim.app, fromUtf8(kGuid)));
  EXPECT_EQ(sim.apiCalls("GetVolumePathNamesForVolumeNameW"), 16u);
}

TEST(PrintVolumeDetails, VolumeGuidNameShowsItsFirstMountPath) {
  SimApp sim(machineWithMounts(json::array({"C:\\mnt\\r\\", "R:\\"})));
  PrintVolumeDetails(sim.app, fromUtf8(kGuid), false);
  EXPECT_EQ(sim.out(),
            L"Volume: C:\\mnt\\r\\\n"
            L"File system: FAT\n"
            L"Cluster size: 1 KB\n"
            L"Volume label: L\n"
            L"Volume size: 3.00 GB\n"
            L"Volume serial number: 0001-0002\n");
  EXPECT_EQ(sim.err(), L"");
}

TEST(PrintVolumeDetails, DevicePathLeavesTheVolumeLineEmpty) {
  SimApp sim(machineWithMounts(json::array({"R:\\"})));
  PrintVolumeDetails(sim.app, L"\\\\.\\VelmoRdDevPort0Target4\\", true);
  EXPECT_EQ(sim.out().substr(0, 23), L"Volume: \nFile system: F");
}

TEST(PrintVolumeDetails, UnreadableVolumePrintsOnlyItsLine) {
  SimApp sim(machineWithMounts(json::array({"R:\\"})));
  PrintVolumeDetails(sim.app, L"Q:\\", true);
  EXPECT_EQ(sim.out(), L"Volume: Q:\\\n");
}

TEST(PrintVolumeDetails, ZeroClusterFigureLeavesTheClusterLineOut) {
  json m = machineWithMounts(json::array({"R:\\"}));
  m["volumes"][0]["bytesPerSector"] = 0;
  SimApp sim(m);
  PrintVolumeDetails(sim.app, fromUtf8(kGuid), false);
  EXPECT_EQ(sim.out().find(L"Cluster size"), std::wstring::npos);
}

}  // namespace view_command_test
}  // namespace vmd
