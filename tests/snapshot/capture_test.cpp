#include "snapshot/capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "base/text_codec.h"
#include "platform/host.h"
#include "shell/dispatch.h"
#include "sim/machine.h"
#include "sim/sim_platform.h"
#include "snapshot/snapshot_tool.h"
#include "snapshot/state_document.h"
#include "support/fakes.h"

namespace vmd::snapshot {
namespace capture_test {

using sim::json;

// A machine with one of everything the capture reads: SCSI and Direct-IO
// disks with letters and a folder mount point, a Direct-IO letter another
// device took, a disk still arriving, a malformed record, a status that
// differs from the settings, an image file, labels in Cyrillic and CJK,
// Invisible Memory in use, another manager's registry value and WMI disks.
json richMachine() {
  return json::parse(R"({
    "schema": 2,
    "host": {"memory": {"totalPhys": 34359738368, "availPhys": 20000000000}},
    "controller": {
      "version": {"major": 5, "minor": 7, "build": 3},
      "variantCode": 2,
      "im": {"state": 0, "localState": 1, "unitSize": 4096, "firstUnit": 256, "endUnit": 262400,
             "freeUnits": 131072, "reserveInEffect": 1024, "reserveConfigured": 2048,
             "hiberDriveInEffect": "C", "hiberDriveConfigured": "d", "hiberInEffect": 1, "hiberConfigured": 1},
      "dosNameOwners": {"R": 2, "Q": null},
      "disks": [
        {"index": 0, "size": 268435456, "signature": "0x1a2b3c4d",
         "settings": {"volumeLabel": "Данные", "fileSystem": "NTFS", "volumeSerial": "0x12345678", "clusterSize": 4096}},
        {"index": 2, "size": 134217728, "directIo": true, "letter": "R", "image": true, "signature": "0x0badf00d",
         "settings": {"volumeLabel": "日本語", "driveLetter": "R", "diskFlags": "0x01000000",
                      "imageFile": "D:\\images\\ram диск.img", "imageFlags": "0x10011", "imageFormat": 1},
         "status": {"imQuotaMb": 64}},
        {"index": 3, "size": 67108864, "directIo": true, "letter": "Q", "settings": {"driveLetter": "Q", "diskFlags": "0x01000000"}},
        {"index": 5, "size": 67108864, "phase": "arriving", "dueMs": "never"},
        {"index": 7, "size": 1048576, "settingsRecord": "40000000"}
      ]
    },
    "volumes": [{"disk": 0, "mountPoints": ["S:\\", "C:\\mnt\\データ\\"]}],
    "files": [{"path": "D:\\images\\ram диск.img", "image": {"format": "smart", "diskSize": 134217728}}],
    "registry": {"SYSTEM\\MountedDevices": {"\\DosDevices\\S:": {"type": "REG_BINARY", "data": "4d3c2b1a007e000000000000"}},
                 "SYSTEM\\CurrentControlSet\\services\\kelvdrv\\Parameters": {"EnableIM": 1}},
    "wmi": {"signatures": [305419896]}
  })");
}

struct Outcome {
  int code;
  std::wstring out, err;
};

// One run of a program (vmdctl's runProgram, vmdsnap's runSnapshot) on the
// machine, as vmdctl-sim runs one.
Outcome runOn(sim::Machine& m, int (*program)(Platform&, int, wchar_t**), const wchar_t* name,
          std::vector<std::wstring> args) {
  test::CapturingStreams streams;
  const auto catalog = makeHostCatalog();
  sim::SimPlatform p(m, streams, *catalog, nullptr);
  args.insert(args.begin(), name);
  std::vector<wchar_t*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  const int code = program(p.platform, static_cast<int>(args.size()), argv.data());
  return {code, streams.out, streams.err};
}

int snapshotProgram(Platform& sys, int argc, wchar_t** argv) { return runSnapshot(argc, argv, sys); }

Outcome runCommand(sim::Machine& m, std::vector<std::wstring> args) { return runOn(m, runProgram, L"vmdctl", std::move(args)); }
Outcome runVmdsnap(sim::Machine& m, std::vector<std::wstring> args) {
  return runOn(m, snapshotProgram, L"vmdsnap", std::move(args));
}

struct Snapped {
  Capture capture;
  json document;
};

Snapped snap(sim::Machine& m) {
  test::CapturingStreams streams;
  const auto catalog = makeHostCatalog();
  sim::SimPlatform p(m, streams, *catalog, nullptr);
  Capture c = captureMachine(p.platform);
  json doc = stateDocument(c);
  return {std::move(c), std::move(doc)};
}

std::string gapsOf(const Capture& c) {
  std::string s;
  for (const Gap& g : c.gaps) s += toUtf8(g.what) + " (" + std::to_string(g.error) + ")\n";
  return s;
}

json withoutStats(json state) {
  state.erase("stats");
  return state;
}

TEST(Capture, TheStandardMachineIsCapturedWhole) {
  sim::Machine m;
  const Snapped s = snap(m);
  EXPECT_TRUE(s.capture.complete()) << gapsOf(s.capture);
  EXPECT_TRUE(s.document["controller"]["present"].get<bool>());
  EXPECT_EQ(s.document["controller"]["disks"], json::array());
  EXPECT_EQ(s.document["drives"][0]["letter"], "C");
  EXPECT_EQ(s.document["volumes"][0]["mountPoints"], json::array({"C:\\"}));
}

TEST(Capture, TheCopyOfACopyIsTheSameDocument) {
  sim::Machine original(richMachine());
  const Snapped first = snap(original);
  EXPECT_TRUE(first.capture.complete()) << gapsOf(first.capture);
  sim::Machine copy(first.document);
  const Snapped second = snap(copy);
  EXPECT_TRUE(second.capture.complete()) << gapsOf(second.capture);
  EXPECT_EQ(first.document, second.document) << first.document.dump(1) << "\n---\n" << second.document.dump(1);
}

// Wine's way: drives with volume names, and no volume interface of their own.
TEST(Capture, VolumesListedByTheirNamesAloneAreCopiedWhole) {
  sim::Machine original(json::parse(R"({"schema": 2,
    "drives": [{"letter": "C", "type": "fixed", "volume": "\\\\?\\Volume{00000000-0000-0000-0000-000000000043}\\"},
               {"letter": "Z", "type": "fixed", "volume": "\\\\?\\Volume{00000000-0000-0000-0000-00000000005a}\\"}],
    "volumes": [{"name": "\\\\?\\Volume{00000000-0000-0000-0000-000000000043}\\", "mountPoints": ["C:\\"],
                 "fileSystem": "NTFS", "label": "", "totalBytes": 1000000, "freeBytes": 10000},
                {"name": "\\\\?\\Volume{00000000-0000-0000-0000-00000000005a}\\", "mountPoints": ["Z:\\"],
                 "fileSystem": "NTFS", "label": "", "totalBytes": 2000000, "freeBytes": 20000}]})"));
  const Snapped first = snap(original);
  EXPECT_TRUE(first.capture.complete()) << gapsOf(first.capture);
  EXPECT_FALSE(first.document["volumes"][0].contains("interfacePath"));
  sim::Machine copy(first.document);
  const Snapped second = snap(copy);
  EXPECT_TRUE(second.capture.complete()) << gapsOf(second.capture);
  EXPECT_EQ(first.document, second.document);
}

TEST(Capture, ReadCommandsPrintTheSameOnTheMachineAndOnItsCopy) {
  sim::Machine original(richMachine());
  sim::Machine copy(snap(original).document);
  const std::vector<std::vector<std::wstring>> commands = {
      {L"ls"}, {L"view", L"0"}, {L"view", L"2"}, {L"view", L"3"}, {L"view", L"5"}, {L"view", L"7"},
      {L"im"}, {L"mem"},       {L"ver"}};
  for (const auto& command : commands) {
    const Outcome a = runCommand(original, command);
    const Outcome b = runCommand(copy, command);
    EXPECT_EQ(a.code, b.code) << toUtf8(command[0]);
    EXPECT_EQ(a.out, b.out) << toUtf8(command[0]) << (command.size() > 1 ? " " + toUtf8(command[1]) : "");
    EXPECT_EQ(a.err, b.err) << toUtf8(command[0]);
  }
}

TEST(Capture, RecordsTheSimulatorRebuildsExactlyAreWrittenReadably) {
  sim::Machine m(richMachine());
  const json disks = snap(m).document["controller"]["disks"];
  ASSERT_EQ(disks.size(), 5u);
  EXPECT_EQ(disks[0]["settings"]["volumeLabel"], "Данные");
  EXPECT_FALSE(disks[0].contains("settingsRecord"));
  EXPECT_EQ(disks[1]["status"], json({{"imQuotaMb", 64}}));
  EXPECT_EQ(disks[4]["settingsRecord"], "40000000");  // malformed: its bytes, as they stand
  EXPECT_EQ(disks[3]["phase"], "arriving");
  EXPECT_EQ(disks[3]["dueMs"], "never");
}

TEST(Capture, ADirectIoLetterAnotherDeviceTookIsKeptAsItsOwner) {
  sim::Machine m(richMachine());
  const json doc = snap(m).document;
  EXPECT_EQ(doc["controller"]["dosNameOwners"], json({{"R", 2}, {"Q", nullptr}}));
}

TEST(Capture, ImageFilesTheDisksNameAreCopied) {
  sim::Machine m(richMachine());
  const json files = snap(m).document["files"];
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files[0]["path"], "D:\\images\\ram диск.img");
  EXPECT_EQ(files[0]["size"], 512);
  EXPECT_EQ(files[0]["head"].get<std::string>().substr(0, 16), "8604882749222068");
}

TEST(Capture, OtherManagersAndMountedDevicesAreCopied) {
  sim::Machine m(richMachine());
  const json reg = snap(m).document["registry"];
  EXPECT_EQ(reg["SYSTEM\\CurrentControlSet\\services\\kelvdrv\\Parameters"]["EnableIM"]["data"], 1);
  EXPECT_EQ(reg["SYSTEM\\MountedDevices"]["\\DosDevices\\S:"]["data"], "4d3c2b1a007e000000000000");
}

TEST(Capture, SendsQueriesOnlyAndChangesNothing) {
  sim::Machine m(richMachine());
  const json before = withoutStats(m.toJson());
  m.stats = json::object();
  snap(m);
  EXPECT_EQ(withoutStats(m.toJson()), before);
  const std::set<std::string> queries = {"QueryControllerVersion", "QueryImStatus",          "QueryDiskBitmap",
                                         "QueryDiskInfo",          "ReadDiskSettingsRecord", "QueryDiskStatus",
                                         "QueryDeviceNumber",      "QueryDosNameTarget",     "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS",
                                         "IOCTL_MOUNTMGR_QUERY_AUTO_MOUNT"};
  ASSERT_TRUE(m.stats.contains("requests"));
  for (auto it = m.stats["requests"].begin(); it != m.stats["requests"].end(); ++it)
    EXPECT_TRUE(queries.count(it.key())) << it.key() << " is not a query";
  const std::set<std::string> changes = {"SetVolumeMountPointW", "DeleteVolumeMountPointW", "SetVolumeLabelW",
                                         "WriteFile",            "RegSetValueExW",          "RegDeleteValueW",
                                         "BroadcastSystemMessageW", "CreateMutexW",        "FlushFileBuffers"};
  for (auto it = m.stats["api"].begin(); it != m.stats["api"].end(); ++it)
    EXPECT_FALSE(changes.count(it.key())) << it.key();
  // Nothing is opened with write access.
  for (auto it = m.stats["openModes"].begin(); it != m.stats["openModes"].end(); ++it) {
    const std::string mode = it.value().get<std::string>();
    const std::uint32_t access = static_cast<std::uint32_t>(std::stoul(mode.substr(mode.find("access=") + 7), nullptr, 0));
    EXPECT_EQ(access & 0x40000000u, 0u) << it.key() << ": " << mode;
  }
}

TEST(Capture, WhatCannotBeReadIsNamedWithItsErrorAndTheRestIsKept) {
  json state = richMachine();
  state["faults"] = json::array({{{"api", "DeviceIoControl"}, {"code", "ReadDiskSettingsRecord"}, {"error", 5}},
                                 {{"api", "RegOpenKeyExW"}, {"path", "SYSTEM\\MountedDevices"}, {"error", 5}}});
  sim::Machine m(state);
  const Snapped s = snap(m);
  std::vector<std::wstring> gaps;
  for (const Gap& g : s.capture.gaps) gaps.push_back(g.what + L" " + std::to_wstring(g.error));
  EXPECT_EQ(gaps, (std::vector<std::wstring>{L"the settings record of disk #0 5", L"the settings record of disk #2 5",
                                             L"the settings record of disk #3 5", L"the settings record of disk #5 5",
                                             L"the settings record of disk #7 5",
                                             L"the values of HKEY_LOCAL_MACHINE\\SYSTEM\\MountedDevices 5"}));
  EXPECT_EQ(s.document["controller"]["disks"].size(), 5u);
  EXPECT_EQ(s.document["volumes"].size(), 5u);
}

// Without administrator rights the controller refuses to be opened: what it
// would have answered is named, and the copy is of a machine without the rights.
TEST(Capture, WithoutAdministratorRightsWhatIsRefusedIsNamed) {
  json state = richMachine();
  state["host"]["administrator"] = false;
  state["faults"] = json::array(
      {{{"api", "CreateFileW"}, {"path", "\\\\?\\root#scsiadapter#0000#{48fa1fe0-7189-432a-9fd4-9db766b64b31}"},
        {"error", 5}}});
  sim::Machine m(state);
  const Snapped s = snap(m);
  std::vector<std::wstring> gaps;
  for (const Gap& g : s.capture.gaps) gaps.push_back(g.what + L" " + std::to_wstring(g.error));
  EXPECT_EQ(gaps, (std::vector<std::wstring>{L"the controller's version 5", L"the Invisible Memory status 5",
                                             L"the controller's list of disks 5"}));
  EXPECT_FALSE(s.document["host"]["administrator"].get<bool>());
  sim::Machine copy(s.document);
  const Outcome r = runCommand(copy, {L"ls"});
  EXPECT_EQ(r.code, 3);
  EXPECT_EQ(r.err, runCommand(m, {L"ls"}).err);
}

TEST(Capture, WithoutAControllerTheCopyHasNone) {
  sim::Machine m(json{{"schema", 2}, {"controller", {{"present", false}}}});
  const Snapped s = snap(m);
  EXPECT_TRUE(s.capture.complete()) << gapsOf(s.capture);
  EXPECT_EQ(s.document["controller"], json({{"present", false}}));
  sim::Machine copy(s.document);
  const Outcome r = runCommand(copy, {L"ls"});
  EXPECT_EQ(r.code, 3);
  EXPECT_EQ(r.err, L"Error: Tarnby Ramdisk controller initialization failed!\n");
}

TEST(Capture, AnEditedCopyThatMakesNoSenseIsRefusedWithItsPlace) {
  sim::Machine m(richMachine());
  json doc = snap(m).document;
  doc["controller"]["disks"][1]["index"] = 200;
  try {
    sim::Machine broken(doc);
    FAIL() << "the simulator read a disk index of 200";
  } catch (const sim::LoadError& e) {
    EXPECT_EQ(std::string(e.what()), "controller.disks[1].index: 200 is not a disk index (0 to 127)");
  }
  doc = snap(m).document;
  doc["volumes"][0]["mountPionts"] = json::array();
  EXPECT_THROW(sim::Machine{doc}, sim::LoadError);
}

// --- The program around the capture.

TEST(Vmdsnap, HelpSaysWhatItDoesAndItsExitCodes) {
  sim::Machine m;
  const Outcome r = runVmdsnap(m, {L"-?"});
  EXPECT_EQ(r.code, 0);
  EXPECT_NE(r.out.find(L"It only reads"), std::wstring::npos);
  EXPECT_NE(r.out.find(L"    3    something could not be read"), std::wstring::npos);
  EXPECT_EQ(r.err, L"");
}

TEST(Vmdsnap, AnUnknownOptionIsInvalidUseWithOneLine) {
  sim::Machine m;
  const Outcome r = runVmdsnap(m, {L"-x"});
  EXPECT_EQ(r.code, 2);
  EXPECT_EQ(r.out, L"");
  EXPECT_EQ(r.err, L"Error: unknown option '-x'!\nUsage: vmdsnap [-o <file>]\nFor more information, type: vmdsnap -?\n");
  EXPECT_EQ(runVmdsnap(m, {L"-o"}).code, 2);
  EXPECT_EQ(runVmdsnap(m, {L"state.json"}).code, 2);
}

TEST(Vmdsnap, StandardOutputCarriesTheDocumentInAscii) {
  sim::Machine m(richMachine());
  const Outcome r = runVmdsnap(m, {});
  EXPECT_EQ(r.code, 0) << toUtf8(r.err);
  for (wchar_t c : r.out) ASSERT_LT(static_cast<unsigned>(c), 0x80u);
  EXPECT_EQ(json::parse(toUtf8(r.out)), snap(m).document);
}

TEST(Vmdsnap, TheFileIsWrittenWholeInUtf8) {
  sim::Machine m(richMachine());
  const std::filesystem::path dir = std::filesystem::temp_directory_path() / ("vmdsnap-test-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "-" + std::to_string(reinterpret_cast<std::uintptr_t>(&m)));
  std::filesystem::create_directories(dir);
  const std::filesystem::path file = dir / "copy.json";
  const Outcome r = runVmdsnap(m, {L"-o", fromUtf8(file.string())});
  EXPECT_EQ(r.code, 0) << toUtf8(r.err);
  std::stringstream text;
  {
    std::ifstream in(file, std::ios::binary);  // closed before the folder goes: Windows keeps an open file
    text << in.rdbuf();
  }
  EXPECT_NE(text.str().find("\"Данные\""), std::string::npos);
  EXPECT_EQ(json::parse(text.str()), snap(m).document);
  std::size_t entries = 0;
  for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator(dir)) ++entries;
  EXPECT_EQ(entries, 1u);  // no temporary file left beside it
  std::filesystem::remove_all(dir);
}

TEST(Vmdsnap, AFileThatCannotBeWrittenLeavesNothingAndSaysSo) {
  sim::Machine m;
  const std::wstring path = L"/nonexistent-folder-of-vmdsnap/copy.json";
  const Outcome r = runVmdsnap(m, {L"-o", path});
  EXPECT_EQ(r.code, 3);
  EXPECT_EQ(r.out, L"");
  EXPECT_EQ(r.err.rfind(L"Error: cannot write '/nonexistent-folder-of-vmdsnap/copy.json' (0x", 0), 0u) << toUtf8(r.err);
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), L'\n'), 1);
}

TEST(Vmdsnap, AnIncompleteCaptureExitsThreeNamingEachGap) {
  json state = richMachine();
  state["faults"] = json::array({{{"api", "DeviceIoControl"}, {"code", "QueryDiskStatus"}, {"error", 31}}});
  sim::Machine m(state);
  const Outcome r = runVmdsnap(m, {});
  EXPECT_EQ(r.code, 3);
  EXPECT_EQ(r.err,
            L"Warning: could not read the status of disk #0 (0x0000001f)!\n"
            L"Warning: could not read the status of disk #2 (0x0000001f)!\n"
            L"Warning: could not read the status of disk #3 (0x0000001f)!\n"
            L"Warning: could not read the status of disk #5 (0x0000001f)!\n"
            L"Warning: could not read the status of disk #7 (0x0000001f)!\n");
  EXPECT_EQ(json::parse(toUtf8(r.out))["controller"]["disks"].size(), 5u);
}

}  // namespace capture_test
}  // namespace vmd::snapshot
