// The disk inventory against the simulated machine: index resolution, the
// disk records, and the drive letters and volume paths of both kinds of disk.
#include "controller/inventory.h"

#include <gtest/gtest.h>

#include "base/decimal.h"
#include "base/text_codec.h"
#include "sim/sim_platform.h"
#include "support/fakes.h"

namespace vmd {
namespace {

using sim::json;

const char* kController = "\\\\?\\root#scsiadapter#0000#{48fa1fe0-7189-432a-9fd4-9db766b64b31}";

// A machine, the program's view of it, and one inventory.
struct Rig {
  explicit Rig(const json& state)
      : machine(state),
        sim(machine, streams, catalog),
        io(streams, catalog, sim.keys),
        options(io),
        controller(sim.setup, sim.io),
        app{sim.platform, io, options, controller},
        inventory(app) {
    controller.discover();
  }

  int stat(const std::string& group, const std::string& key) {
    const json& stats = machine.stats;
    if (!stats.contains(group) || !stats[group].contains(key)) return 0;
    return stats[group][key].get<int>();
  }

  CommandResult resolve(const wchar_t* text, DiskInfo& info) {
    std::wstring arg = text;
    wchar_t* argv[] = {arg.data(), nullptr};
    return inventory.resolveDiskIndex(argv, info);
  }

  sim::Machine machine;
  test::CapturingStreams streams;
  test::MapCatalog catalog;
  sim::SimPlatform sim;
  Output io;
  OptionScanner options;
  CVmDevControl controller;
  App app;
  DiskInventory inventory;
};

// Disk 7 (SCSI, system disk 2, volumes at E and G), disk 9 (Direct-IO at S),
// disk 12 (SCSI without volumes).
json sampleMachine() {
  return json::parse(R"({
    "controller": {"disks": [
      {"index": 7, "size": 5368709120, "image": true, "systemDiskNumber": 2},
      {"index": 9, "size": 33554432, "good": false, "directIo": true, "letter": "S"},
      {"index": 12, "size": 1048576, "systemDiskNumber": 4}]},
    "drives": [
      {"letter": "C", "type": "fixed", "volume": "\\\\?\\Volume{3f1d6c52-0000-0000-0000-100000000000}\\"},
      {"letter": "G", "type": "removable", "volume": "\\\\?\\Volume{00000002-0000-0000-0000-000000000000}\\"},
      {"letter": "E", "type": "fixed", "volume": "\\\\?\\Volume{00000001-0000-0000-0000-000000000000}\\"}],
    "volumes": [
      {"name": "\\\\?\\Volume{3f1d6c52-0000-0000-0000-100000000000}\\",
       "interfacePath": "\\\\?\\STORAGE#Volume#{3f1d6c52-0000-0000-0000-100000000000}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}",
       "extents": [{"disk": 0, "offset": 1048576, "length": 255999344640}]},
      {"name": "\\\\?\\Volume{00000002-0000-0000-0000-000000000000}\\",
       "interfacePath": "\\\\?\\STORAGE#Volume#{00000002}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}",
       "extents": [{"disk": 2, "offset": 65536, "length": 1048576}]},
      {"name": "\\\\?\\Volume{00000001-0000-0000-0000-000000000000}\\",
       "interfacePath": "\\\\?\\STORAGE#Volume#{00000001}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}",
       "extents": [{"disk": 2, "offset": 2097152, "length": 1048576}]}]
  })");
}

// --- index resolution ---

TEST(ResolveDiskIndex, LeadingZerosNameTheSameDisk) {
  Rig rig(sampleMachine());
  DiskInfo info;
  EXPECT_EQ(rig.resolve(L"007", info), Success);
  EXPECT_EQ(info.number, 7);
  EXPECT_EQ(rig.streams.all, L"");
}

TEST(ResolveDiskIndex, TextAfterTheDigitsIsIgnored) {
  Rig rig(sampleMachine());
  DiskInfo info;
  EXPECT_EQ(rig.resolve(L"7x", info), Success);
  EXPECT_EQ(info.number, 7);
  EXPECT_EQ(rig.resolve(L"9abc", info), Success);
  EXPECT_EQ(info.number, 9);
}

TEST(ResolveDiskIndex, TextThatDoesNotStartWithADigitAsksForTheIndex) {
  for (const wchar_t* text : {L"x7", L"", L"-1", L"+7", L" 7"}) {
    Rig rig(sampleMachine());
    DiskInfo info;
    EXPECT_EQ(rig.resolve(text, info), Failed) << toUtf8(text);
    EXPECT_EQ(rig.streams.err, L"Error: please specify the disk index!\n") << toUtf8(text);
    EXPECT_EQ(rig.streams.out, L"");
    EXPECT_EQ(rig.stat("requests", "QueryDiskInfo"), 0);
  }
}

TEST(ResolveDiskIndex, IndexOf128OrMoreIsInvalid) {
  for (const wchar_t* text : {L"128", L"300", L"4294967296", L"2147483648", L"99999999999999999999"}) {
    Rig rig(sampleMachine());
    DiskInfo info;
    EXPECT_EQ(rig.resolve(text, info), Failed) << toUtf8(text);
    EXPECT_EQ(rig.streams.err, L"Error: invalid disk index!\n") << toUtf8(text);
    EXPECT_EQ(rig.stat("requests", "QueryDiskInfo"), 0);
  }
}

TEST(ResolveDiskIndex, Index127IsAskedFor) {
  Rig rig(sampleMachine());
  DiskInfo info;
  EXPECT_EQ(rig.resolve(L"127", info), Failed);
  EXPECT_EQ(rig.streams.err, L"Error: cannot find the disk #127\n");
  EXPECT_EQ(rig.stat("requests", "QueryDiskInfo"), 1);
}

TEST(ResolveDiskIndex, MissingDiskCannotBeFoundAndTheMessageHasNoExclamationMark) {
  Rig rig(sampleMachine());
  DiskInfo info;
  EXPECT_EQ(rig.resolve(L"5", info), Failed);
  EXPECT_EQ(rig.streams.err, L"Error: cannot find the disk #5\n");
  EXPECT_EQ(rig.streams.out, L"");
}

TEST(ResolveDiskIndex, UnreachableControllerCannotFindTheDisk) {
  json state = sampleMachine();
  state["faults"] = json::array({{{"api", "CreateFileW"}, {"error", 5}}});
  Rig rig(state);
  DiskInfo info;
  EXPECT_EQ(rig.resolve(L"7", info), Failed);
  EXPECT_EQ(rig.streams.err, L"Error: cannot find the disk #7\n");
}

TEST(ResolveDiskIndex, FailedInfoRequestCannotFindTheDisk) {
  json state = sampleMachine();
  state["faults"] = json::array({{{"api", "DeviceIoControl"}, {"code", "0x46024"}, {"error", 31}}});
  Rig rig(state);
  DiskInfo info;
  EXPECT_EQ(rig.resolve(L"9", info), Failed);
  EXPECT_EQ(rig.streams.err, L"Error: cannot find the disk #9\n");
  EXPECT_EQ(rig.stat("opens", kController), 1);
  EXPECT_EQ(rig.stat("closes", kController), 1);
}

TEST(ResolveDiskIndex, FillsTheDiskRecord) {
  Rig rig(sampleMachine());
  DiskInfo info;
  ASSERT_EQ(rig.resolve(L"9", info), Success);
  EXPECT_EQ(info.number, 9);
  EXPECT_TRUE(info.directIo);
  EXPECT_FALSE(info.good);
  EXPECT_FALSE(info.hasImage);
  EXPECT_EQ(info.letter, L'S');
  EXPECT_EQ(info.sizeBytes, 33554432);
  EXPECT_EQ(info.raw[10], 9);
  // One request on a handle of its own.
  EXPECT_EQ(rig.stat("opens", kController), 1);
  EXPECT_EQ(rig.stat("closes", kController), 1);
}

// --- disk records ---

TEST(QueryDiskInfo, SizeIsSixtyFourBits) {
  Rig rig(sampleMachine());
  const auto info = rig.inventory.queryDiskInfo(7);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->sizeBytes, 5368709120);
  EXPECT_TRUE(info->hasImage);
  EXPECT_TRUE(info->good);
  EXPECT_FALSE(info->directIo);
  EXPECT_EQ(info->letter, 0);
}

TEST(QueryDiskBitmap, SetsTheBitOfEveryDisk) {
  Rig rig(sampleMachine());
  const auto bitmap = rig.inventory.queryDiskBitmap();
  ASSERT_TRUE(bitmap);
  EXPECT_EQ((*bitmap)[0], 0x80);
  EXPECT_EQ((*bitmap)[1], 0x12);
  EXPECT_EQ(disksInBitmap(*bitmap), (std::vector<std::uint8_t>{7, 9, 12}));
}

TEST(QueryDiskBitmap, FailureGivesTheSystemError) {
  json state = sampleMachine();
  state["faults"] = json::array({{{"api", "DeviceIoControl"}, {"code", "0x46028"}, {"error", 1117}}});
  Rig rig(state);
  std::uint32_t error = 0;
  EXPECT_FALSE(rig.inventory.queryDiskBitmap(&error));
  EXPECT_EQ(error, 1117u);
}

TEST(DisksInBitmap, WalksBytesUpAndBitsFromTheLeastSignificant) {
  std::array<std::uint8_t, 16> bitmap{};
  bitmap[0] = 0x01;
  bitmap[1] = 0x02;
  bitmap[15] = 0x80;
  EXPECT_EQ(disksInBitmap(bitmap), (std::vector<std::uint8_t>{0, 9, 127}));
  EXPECT_TRUE(disksInBitmap({}).empty());
}

TEST(ExtentDiskNumbers, ReadsOneDiskNumberAnExtentWithinTheBuffer) {
  std::vector<std::uint8_t> b(8 + 24 * 2, 0);
  b[0] = 3;  // says three, holds two
  b[8] = 5;
  b[8 + 24] = 6;
  b[8 + 24 + 1] = 1;
  EXPECT_EQ(extentDiskNumbers(b.data(), b.size()), (std::vector<std::uint32_t>{5, 0x106}));
  EXPECT_TRUE(extentDiskNumbers(b.data(), 4).empty());
}

TEST(DecimalToLong, ReadsLikeTheRuntimeWithA32BitLong) {
  EXPECT_EQ(decimalToLong(L"007"), 7);
  EXPECT_EQ(decimalToLong(L"7abc"), 7);
  EXPECT_EQ(decimalToLong(L"abc"), 0);
  EXPECT_EQ(decimalToLong(L"  -12"), -12);
  EXPECT_EQ(decimalToLong(L"+5"), 5);
  EXPECT_EQ(decimalToLong(L"2147483647"), 2147483647);
  EXPECT_EQ(decimalToLong(L"2147483648"), 2147483647);
  EXPECT_EQ(decimalToLong(L"4294967296"), 2147483647);
  EXPECT_EQ(decimalToLong(L"-2147483648"), INT32_MIN);
  EXPECT_EQ(decimalToLong(L"-99999999999"), INT32_MIN);
  EXPECT_EQ(decimalToLong(nullptr), 0);
}

TEST(DecimalToLong, ReadsTheOtherDigitBlocksTheRuntimeKnows) {
  EXPECT_EQ(decimalToLong(L"\xFF17"), 7);          // full-width 7
  EXPECT_EQ(decimalToLong(L"\x0661\x0662"), 12);  // Arabic-Indic 1 2
  EXPECT_EQ(decimalToLong(L"1\x0967x"), 11);       // ASCII 1, Devanagari 1
  EXPECT_TRUE(isDecimalDigit(L'\x0E59'));
  EXPECT_FALSE(isDecimalDigit(L'\xFF1A'));         // full-width colon follows full-width 9
  EXPECT_FALSE(isDecimalDigit(L'\x00B2'));         // superscript two is no decimal digit
}

// --- drive letters ---

TEST(DiskDriveLetters, DirectIoDiskHasTheLetterTheControllerOwns) {
  Rig rig(sampleMachine());
  const auto info = rig.inventory.queryDiskInfo(9);
  ASSERT_TRUE(info);
  EXPECT_EQ(rig.inventory.diskDriveLetters(9, *info), (std::vector<wchar_t>{L'S'}));
  EXPECT_EQ(rig.stat("requests", "QueryDosNameTarget"), 1);
  EXPECT_EQ(rig.stat("api", "GetLogicalDrives"), 0);  // no map for a Direct-IO disk
}

TEST(DiskDriveLetters, DirectIoDiskWhoseLetterAnotherDeviceTookHasNone) {
  json state = sampleMachine();
  state["controller"]["dosNameOwners"] = {{"S", 3}};
  Rig rig(state);
  const auto info = rig.inventory.queryDiskInfo(9);
  ASSERT_TRUE(info);
  EXPECT_TRUE(rig.inventory.diskDriveLetters(9, *info).empty());
}

TEST(DiskDriveLetters, DirectIoDiskWhoseLetterNobodyOwnsHasNone) {
  json state = sampleMachine();
  state["controller"]["dosNameOwners"] = {{"S", nullptr}};
  Rig rig(state);
  const auto info = rig.inventory.queryDiskInfo(9);
  ASSERT_TRUE(info);
  EXPECT_TRUE(rig.inventory.diskDriveLetters(9, *info).empty());
}

TEST(DiskDriveLetters, ScsiDiskHasTheLettersOfItsVolumesInAscendingOrder) {
  Rig rig(sampleMachine());
  const auto info = rig.inventory.queryDiskInfo(7);
  ASSERT_TRUE(info);
  EXPECT_EQ(rig.inventory.diskDriveLetters(7, *info), (std::vector<wchar_t>{L'E', L'G'}));
}

TEST(DiskDriveLetters, ScsiDiskWithoutVolumesHasNone) {
  Rig rig(sampleMachine());
  const auto info = rig.inventory.queryDiskInfo(12);
  ASSERT_TRUE(info);
  EXPECT_TRUE(rig.inventory.diskDriveLetters(12, *info).empty());
}

TEST(DiskDriveLetters, ScsiDiskWhoseVolumeIsOfflineHasNone) {
  json state = sampleMachine();
  for (auto& v : state["volumes"]) v["offline"] = true;
  Rig rig(state);
  const auto info = rig.inventory.queryDiskInfo(7);
  ASSERT_TRUE(info);
  EXPECT_TRUE(rig.inventory.diskDriveLetters(7, *info).empty());
}

TEST(DiskDriveLetters, FailedDeviceNumberGivesNone) {
  json state = sampleMachine();
  state["faults"] = json::array({{{"api", "DeviceIoControl"}, {"code", "0x46078"}, {"error", 31}}});
  Rig rig(state);
  const auto info = rig.inventory.queryDiskInfo(7);
  ASSERT_TRUE(info);
  EXPECT_TRUE(rig.inventory.diskDriveLetters(7, *info).empty());
}

TEST(DiskDriveLetters, LetterMapIsBuiltOnceAndShared) {
  Rig rig(sampleMachine());
  for (std::uint8_t n : {7, 12, 7}) {
    const auto info = rig.inventory.queryDiskInfo(n);
    ASSERT_TRUE(info);
    rig.inventory.diskDriveLetters(n, *info);
  }
  EXPECT_EQ(rig.stat("api", "GetLogicalDrives"), 1);
  EXPECT_EQ(rig.stat("api", "GetDriveTypeW"), 3);
  EXPECT_EQ(rig.stat("requests", "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS"), 3);
  EXPECT_EQ(rig.stat("requests", "QueryDeviceNumber"), 3);
  // Every volume opened for its extents is closed again.
  for (const char* drive : {"\\\\.\\C:", "\\\\.\\E:", "\\\\.\\G:"}) {
    EXPECT_EQ(rig.stat("opens", drive), 1) << drive;
    EXPECT_EQ(rig.stat("closes", drive), 1) << drive;
  }
  EXPECT_EQ(rig.sim.io.openHandles(), 0u);
}

TEST(BuildLetterMap, AsksTheDriveTypeOfTheDevicePathAndOpensTheDrive) {
  Rig rig(sampleMachine());
  const DiskInventory::LetterMap map = rig.inventory.buildLetterMap();
  ASSERT_EQ(map.size(), 2u);
  EXPECT_EQ(map.at(0), (std::vector<wchar_t>{L'C'}));
  EXPECT_EQ(map.at(2), (std::vector<wchar_t>{L'E', L'G'}));
}

TEST(BuildLetterMap, SpannedVolumeIsInTheListsOfBothDisks) {
  json state = sampleMachine();
  state["volumes"][1]["extents"] = json::array({{{"disk", 2}}, {{"disk", 4}}});
  Rig rig(state);
  const DiskInventory::LetterMap map = rig.inventory.buildLetterMap();
  EXPECT_EQ(map.at(2), (std::vector<wchar_t>{L'E', L'G'}));
  EXPECT_EQ(map.at(4), (std::vector<wchar_t>{L'G'}));
}

TEST(BuildLetterMap, OnlyFixedAndRemovableDrivesCount) {
  json state = sampleMachine();
  state["drives"][1]["type"] = "cdrom";
  state["drives"][2]["type"] = "remote";
  Rig rig(state);
  const DiskInventory::LetterMap map = rig.inventory.buildLetterMap();
  EXPECT_EQ(map.count(2), 0u);
  EXPECT_EQ(rig.stat("requests", "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS"), 1);
}

// --- volume paths ---

TEST(DiskVolumePaths, DirectIoDiskHasItsOwnDevicePath) {
  Rig rig(sampleMachine());
  EXPECT_EQ(rig.inventory.diskVolumePaths(9, true), (std::vector<std::wstring>{L"\\\\.\\VelmoRdDevPort0Target9"}));
  EXPECT_EQ(rig.stat("api", "SetupDiGetClassDevsW"), 1);  // the discovery only
}

TEST(DiskVolumePaths, ScsiDiskHasItsVolumeInterfacesInEnumerationOrder) {
  Rig rig(sampleMachine());
  EXPECT_EQ(rig.inventory.diskVolumePaths(7, false),
            (std::vector<std::wstring>{L"\\\\?\\STORAGE#Volume#{00000002}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}",
                                       L"\\\\?\\STORAGE#Volume#{00000001}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}"}));
  EXPECT_EQ(rig.sim.io.openHandles(), 0u);
}

TEST(DiskVolumePaths, ScsiDiskWithoutVolumesHasNone) {
  Rig rig(sampleMachine());
  EXPECT_TRUE(rig.inventory.diskVolumePaths(12, false).empty());
}

TEST(DiskVolumePaths, OfflineAbsentAndCdVolumesAreLeftOut) {
  json state = sampleMachine();
  state["volumes"][1]["offline"] = true;
  state["volumes"][2]["present"] = false;
  Rig rig(state);
  EXPECT_TRUE(rig.inventory.diskVolumePaths(7, false).empty());

  json cd = sampleMachine();
  cd["volumes"][1]["type"] = "cdrom";
  Rig cdRig(cd);
  EXPECT_EQ(cdRig.inventory.diskVolumePaths(7, false),
            (std::vector<std::wstring>{L"\\\\?\\STORAGE#Volume#{00000001}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}"}));
}

TEST(DiskVolumePaths, SpannedVolumeIsInTheListsOfBothDisks) {
  json state = sampleMachine();
  state["volumes"][2]["extents"] = json::array({{{"disk", 2}}, {{"disk", 4}}});
  Rig rig(state);
  const std::wstring spanned = L"\\\\?\\STORAGE#Volume#{00000001}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}";
  EXPECT_EQ(rig.inventory.diskVolumePaths(12, false), (std::vector<std::wstring>{spanned}));
  EXPECT_EQ(rig.inventory.diskVolumePaths(7, false).back(), spanned);
}

TEST(DiskVolumePaths, FailedDeviceNumberOrDeviceSetGivesNone) {
  json state = sampleMachine();
  state["faults"] = json::array({{{"api", "DeviceIoControl"}, {"code", "0x46078"}, {"error", 31}}});
  Rig rig(state);
  EXPECT_TRUE(rig.inventory.diskVolumePaths(7, false).empty());

  json noSet = sampleMachine();
  noSet["faults"] = json::array({{{"api", "SetupDiGetClassDevsW"}, {"nth", 2}, {"error", 13}}});
  Rig noSetRig(noSet);
  EXPECT_TRUE(noSetRig.inventory.diskVolumePaths(7, false).empty());
}

TEST(DiskVolumePaths, VolumeMapIsBuiltAfreshForEachCall) {
  Rig rig(sampleMachine());
  rig.inventory.diskVolumePaths(7, false);
  rig.machine.world.volumes[1].present = false;
  EXPECT_EQ(rig.inventory.diskVolumePaths(7, false).size(), 1u);
  EXPECT_EQ(rig.stat("api", "SetupDiGetClassDevsW"), 3);
}

}  // namespace
}  // namespace vmd
