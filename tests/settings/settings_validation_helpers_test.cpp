// The small checks validation is built from: path shapes, disk space, the
// system's file system, FAT volumes and memory.
#include "settings/settings_validation.h"

#include <gtest/gtest.h>

#include <string>

#include "settings/settings_validation_support.h"

namespace vmd::test {
namespace settings_validation_helpers_test {

// ---- Helpers ----

TEST(IsValidFilePath, Shapes) {
  EXPECT_TRUE(IsValidFilePath(L"C:\\a", 248));
  EXPECT_TRUE(IsValidFilePath(L"z:\\dir\\file.img", 248));
  EXPECT_TRUE(IsValidFilePath(L"C:\\dir with blanks\\f", 248));
  EXPECT_FALSE(IsValidFilePath(L"C:", 248));
  EXPECT_FALSE(IsValidFilePath(L"C:\\", 248));
  EXPECT_FALSE(IsValidFilePath(L"C:\\a\\", 248));
  EXPECT_FALSE(IsValidFilePath(L"1:\\a", 248));
  EXPECT_FALSE(IsValidFilePath(L"C;\\a", 248));
  EXPECT_FALSE(IsValidFilePath(L"C:a\\b", 248));
  EXPECT_FALSE(IsValidFilePath(L"C:\\a\\\\b", 248));
  EXPECT_FALSE(IsValidFilePath(L"\\\\server\\share\\f", 248));
  for (wchar_t c : std::wstring(L"/:*?\"<>|"))
    EXPECT_FALSE(IsValidFilePath(std::wstring(L"C:\\a") + c + L"b", 248)) << static_cast<int>(c);
}

TEST(IsValidFilePath, LengthLimitLeavesRoomForTheTerminator) {
  const std::wstring longest = L"C:\\" + std::wstring(244, L'f');  // 247 characters
  EXPECT_TRUE(IsValidFilePath(longest, 248));
  EXPECT_FALSE(IsValidFilePath(longest + L"f", 248));
}

TEST(HasDiskSpace, ComparesTheNeedWithTheVolumesFreeBytes) {
  SimApp sim(withFiles(machine(), json::array({{{"path", "E:\\old.img"}, {"size", 536870912}}})));
  EXPECT_TRUE(HasDiskSpace(sim.app, L"E:\\x", 0));
  EXPECT_TRUE(HasDiskSpace(sim.app, L"E:\\new.img", 1073741824));
  EXPECT_FALSE(HasDiskSpace(sim.app, L"E:\\new.img", 1073741825));
  // The existing file's bytes count: only the growth must fit.
  EXPECT_TRUE(HasDiskSpace(sim.app, L"E:\\old.img", 1610612736));
  EXPECT_FALSE(HasDiskSpace(sim.app, L"E:\\old.img", 1610612737));
  EXPECT_TRUE(HasDiskSpace(sim.app, L"E:\\old.img", 100));
  EXPECT_FALSE(HasDiskSpace(sim.app, L"Q:\\x", 1));  // no such volume
}

TEST(HasDiskSpace, FailedQueryFails) {
  json m = machine();
  m["faults"] = json::array({{{"api", "GetDiskFreeSpaceExW"}}});
  SimApp sim(m);
  EXPECT_FALSE(HasDiskSpace(sim.app, L"C:\\x", 1));
}

TEST(IsOnSystemFileSystem, SameLetterOrSameFileSystem) {
  SimApp sim(machine());
  EXPECT_TRUE(IsOnSystemFileSystem(sim.app, L'C'));
  EXPECT_TRUE(IsOnSystemFileSystem(sim.app, L'E'));
  EXPECT_TRUE(IsOnSystemFileSystem(sim.app, L'c'));  // another letter, but NTFS as well
  EXPECT_FALSE(IsOnSystemFileSystem(sim.app, L'D'));
  EXPECT_FALSE(IsOnSystemFileSystem(sim.app, L'Q'));
}

TEST(IsOnSystemFileSystem, SameLetterNeedsNoVolumeQuery) {
  SimApp sim(machine());
  EXPECT_TRUE(IsOnSystemFileSystem(sim.app, L'C'));
  EXPECT_EQ(sim.apiCalls("GetVolumeInformationW"), 0u);
}

TEST(IsOnSystemFileSystem, WithoutTheWindowsDirectoryItIsNot) {
  json m = machine();
  m["host"]["windowsDirectory"] = "";
  SimApp sim(m);
  EXPECT_FALSE(IsOnSystemFileSystem(sim.app, L'C'));
}

TEST(IsFatVolume, FileSystemNameBeginsWithFat) {
  json m = machine();
  m["drives"].push_back({{"letter", "F"}, {"type", "removable"}, {"fileSystem", "fat"}});
  m["drives"].push_back({{"letter", "G"}, {"type", "removable"}, {"fileSystem", "exFAT"}});
  m["drives"].push_back({{"letter", "H"}, {"type", "removable"}});
  SimApp sim(m);
  EXPECT_TRUE(IsFatVolume(sim.app, L'D'));
  EXPECT_TRUE(IsFatVolume(sim.app, L'F'));
  EXPECT_FALSE(IsFatVolume(sim.app, L'C'));
  EXPECT_FALSE(IsFatVolume(sim.app, L'G'));
  EXPECT_FALSE(IsFatVolume(sim.app, L'H'));  // unreadable
}

TEST(MemoryFits, KeepsTwoHundredFiftySixMegabytesFree) {
  SimApp sim(machine());
  EXPECT_TRUE(MemoryFits(sim.app, 0, false));
  EXPECT_TRUE(MemoryFits(sim.app, 12032, false));
  EXPECT_FALSE(MemoryFits(sim.app, 12033, false));
}

TEST(MemoryFits, FailedMemoryStatusFits) {
  json m = machine();
  m["host"]["memory"]["fails"] = true;
  SimApp sim(m);
  EXPECT_TRUE(MemoryFits(sim.app, 900000, false));
}

bool fits(const json& m, std::uint32_t neededMb, bool allowIm) {
  SimApp sim(m);
  return MemoryFits(sim.app, neededMb, allowIm);
}

TEST(MemoryFits, InvisibleMemoryCountsOnlyWhenRunningAndEnabled) {
  json m = machine();
  m["controller"]["im"] = {{"state", 0}, {"localState", 1}, {"unitSize", 1048576}, {"freeUnits", 100000}};
  EXPECT_TRUE(fits(m, 100000, true));
  EXPECT_TRUE(fits(m, 112032, true));
  EXPECT_FALSE(fits(m, 112033, true));
  m["controller"]["im"]["localState"] = 2;
  EXPECT_FALSE(fits(m, 100000, true));
  m["controller"]["im"]["localState"] = 1;
  m["controller"]["im"]["state"] = 5;
  EXPECT_FALSE(fits(m, 100000, true));
  m["controller"]["im"]["state"] = 0;
  m["controller"]["im"]["recordSize"] = 64;
  EXPECT_FALSE(fits(m, 100000, true));
}

}  // namespace settings_validation_helpers_test
}  // namespace vmd::test
