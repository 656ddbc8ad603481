// The fault layer: a rule fails a call before the wrapped service sees it,
// not ok with the rule's error in the call's own result, and every call is
// counted.
#include <gtest/gtest.h>

#include "sim/fault_layer.h"
#include "sim/sim_devices.h"
#include "sim_rig.h"

namespace vmd::sim {
namespace fault_layer_test {

using test::Rig;

FaultRule rule(const char* api, std::optional<std::string> path = std::nullopt, std::uint32_t error = 31) {
  FaultRule r;
  r.api = api;
  r.path = std::move(path);
  r.error = error;
  return r;
}

// A file service of its own: the layer wraps any implementation.
class CountingFiles : public FileService {
 public:
  SysResult<std::uint32_t> attributes(const std::wstring&) override {
    ++calls;
    return SysResult<std::uint32_t>::success(0x20);
  }
  SysResult<std::uint64_t> fileSize(const std::wstring&) override {
    ++calls;
    return SysResult<std::uint64_t>::success(42);
  }
  SysResult<Bytes> readHead(const std::wstring&, std::uint32_t count) override {
    ++calls;
    return SysResult<Bytes>::success(Bytes(count, 7));
  }
  SysStatus writeWhole(const std::wstring&, const Bytes& data) override {
    ++calls;
    written = data;
    return SysStatus::success();
  }
  SysResult<bool> pathIsDirectory(const std::wstring&) override {
    ++calls;
    return SysResult<bool>::success(true);
  }
  int calls = 0;
  Bytes written{1};
};

TEST(FaultLayer, WrapsAnyImplementationAndCountsItsCalls) {
  CountingFiles files;
  RuleLog log({rule(calls::kReadFile, "C:\\a.img", 5)});
  FaultInjectingFiles wrapped(files, log);
  const SysResult<Bytes> refused = wrapped.readHead(L"C:\\a.img", 16);
  EXPECT_FALSE(refused.ok);
  EXPECT_EQ(refused.error, 5u);
  EXPECT_EQ(files.calls, 0);
  EXPECT_EQ(wrapped.readHead(L"C:\\b.img", 16).value.size(), 16u);
  EXPECT_EQ(files.calls, 1);
  EXPECT_EQ(log.counts["api"]["ReadFile"], 2u);
}

TEST(FaultLayer, FileCallsFailWithTheRulesError) {
  CountingFiles files;
  RuleLog log({rule(calls::kGetFileAttributesW), rule(calls::kGetFileSize, std::nullopt, 5),
               rule(calls::kCreateFileW, "C:\\new.img", 5)});
  FaultInjectingFiles wrapped(files, log);
  const SysResult<std::uint32_t> attributes = wrapped.attributes(L"C:\\x");
  EXPECT_FALSE(attributes.ok);
  EXPECT_EQ(attributes.error, 31u);
  EXPECT_EQ(attributes.value, InvalidFileAttributes);
  // pathIsDirectory asks what GetFileAttributesW asks.
  EXPECT_EQ(wrapped.pathIsDirectory(L"C:\\x").error, 31u);
  const SysResult<std::uint64_t> size = wrapped.fileSize(L"C:\\x");
  EXPECT_FALSE(size.ok);
  EXPECT_EQ(size.error, 5u);
  // writeWhole answers its own two errors, whatever the rule's.
  EXPECT_EQ(wrapped.writeWhole(L"C:\\new.img", Bytes{1, 2}).error, syserr::OpenFailed);
  EXPECT_EQ(files.calls, 0);
}

TEST(FaultLayer, FailedWriteLeavesTheFileCreatedEmpty) {
  CountingFiles files;
  RuleLog log({rule(calls::kWriteFile)});
  FaultInjectingFiles wrapped(files, log);
  EXPECT_EQ(wrapped.writeWhole(L"C:\\x.img", Bytes{1, 2, 3}).error, syserr::WriteFault);
  EXPECT_EQ(files.written, Bytes{});
}

TEST(FaultLayer, SimulatedCallsFailWithTheRulesError) {
  Rig rig(json::object({{"faults",
            {{{"api", "GetLogicalDrives"}, {"error", 6}},
             {{"api", "GetDriveTypeW"}, {"error", 7}},
             {{"api", "GetVolumeInformationW"}, {"error", 21}},
             {{"api", "SetVolumeMountPointW"}, {"error", 5}},
             {{"api", "RegQueryValueExW"}, {"error", 9}},
             {{"api", "RegOpenKeyExW"}, {"error", 5}},
             {{"api", "GlobalMemoryStatusEx"}, {"error", 10}},
             {{"api", "WmiQuery"}, {"error", 11}},
             {{"api", "BroadcastSystemMessageW"}, {"error", 12}},
             {{"api", "CoInitialize"}, {"error", 5}},
             {{"api", "CreateMutexW"}, {"error", 5}},
             {{"api", "SetupDiGetClassDevsW"}, {"error", 13}},
             {{"api", "InitFramework"}, {"error", 14}},
             {{"api", "GetTokenInformation"}, {"error", 15}},
             {{"api", "GetSystemWindowsDirectoryW"}, {"error", 16}}}}}));
  SimPlatform& sim = rig.sim;
  const SysResult<std::uint32_t> drives = sim.volumes.logicalDrives();
  EXPECT_FALSE(drives.ok);
  EXPECT_EQ(drives.error, 6u);
  const SysResult<std::uint32_t> type = sim.volumes.driveType(L"C:\\");
  EXPECT_FALSE(type.ok);
  EXPECT_EQ(type.error, 7u);
  EXPECT_EQ(type.value, drivetype::Unknown);
  const SysResult<VolumeService::VolumeInfo> info = sim.volumes.volumeInformation(L"C:\\");
  EXPECT_FALSE(info.ok);
  EXPECT_EQ(info.error, 21u);
  EXPECT_EQ(sim.volumes.setVolumeMountPoint(L"M:\\", L"\\\\?\\Volume{x}\\").error, 5u);
  EXPECT_EQ(sim.registry.readDword(L"SYSTEM\\MountedDevices", L"x").error, 9u);
  const SysResult<std::unique_ptr<Registry::Key>> key = sim.registry.openForWrite(L"SYSTEM\\MountedDevices");
  EXPECT_FALSE(key.ok);
  EXPECT_EQ(key.error, 5u);
  EXPECT_EQ(key.value, nullptr);
  EXPECT_EQ(sim.system.memoryStatus().error, 10u);
  EXPECT_EQ(sim.system.diskDriveSignatures().error, 11u);
  const SysResult<std::int32_t> broadcast = sim.broadcast.broadcast(0x122, 0x219, 0x8000, Bytes(12));
  EXPECT_FALSE(broadcast.ok);
  EXPECT_EQ(broadcast.error, 12u);
  EXPECT_EQ(broadcast.value, -1);
  const SysStatus com = sim.process.comInitialize();
  EXPECT_FALSE(com.ok);
  EXPECT_EQ(com.error, 0x80070005u);  // the HRESULT of the system error
  EXPECT_EQ(sim.process.createInstanceMutex(L"m").error, 5u);
  EXPECT_EQ(sim.setup.presentInterfaces(kControllerInterface, DeviceSetup::Scope::All).error, 13u);
  EXPECT_EQ(sim.process.initFramework().error, 14u);
  EXPECT_EQ(sim.process.tokenHasAdministrators().error, 15u);
  EXPECT_EQ(sim.system.windowsDirectory().error, 16u);
  EXPECT_EQ(rig.machine.stats["api"]["GetLogicalDrives"], 1);
  // What was not failed is still answered.
  EXPECT_TRUE(sim.volumes.diskFreeSpaceEx(L"C:\\").ok);
}

TEST(FaultLayer, DeviceCallsFailWithTheRulesError) {
  Rig rig(json::object({{"faults",
            {{{"api", "CreateFileW"}, {"path", "\\\\.\\D:"}, {"error", 5}},
             {{"api", "FlushFileBuffers"}, {"error", 29}},
             {{"api", "DeviceIoControl"}, {"code", "FSCTL_LOCK_VOLUME"}, {"error", 0}}}}}));
  const SysResult<DeviceIo::Handle> refused = rig.sim.io.open(L"\\\\.\\D:", 0xC0000000u, 3, 3, 0);
  EXPECT_FALSE(refused.ok);
  EXPECT_EQ(refused.value, DeviceIo::Invalid);
  EXPECT_EQ(refused.error, 5u);
  const SysResult<DeviceIo::Handle> c = rig.sim.io.open(L"\\\\.\\C:", 0xC0000000u, 3, 3, 0);
  ASSERT_TRUE(c.ok);
  const SysResult<std::uint32_t> lock = rig.sim.io.control(c.value, ioctl::FsctlLockVolume, nullptr, 0, nullptr, 0);
  EXPECT_FALSE(lock.ok);  // failed, with error 0
  EXPECT_EQ(lock.error, 0u);
  EXPECT_EQ(rig.sim.io.flush(c.value).error, 29u);
  rig.sim.io.close(c.value);
  EXPECT_EQ(rig.sim.io.openHandles(), 0u);
  EXPECT_EQ(rig.machine.stats["opens"]["\\\\.\\D:"], 1);
  EXPECT_EQ(rig.machine.stats["closes"]["\\\\.\\C:"], 1);
  EXPECT_EQ(rig.machine.stats["requests"]["FSCTL_LOCK_VOLUME"], 1);
}

TEST(FaultLayer, RegistryKeyCallsAreMatchedByKeyAndValue) {
  Rig rig(json::object({{"faults", {{{"api", "RegDeleteValueW"}, {"path", "system\\mounteddevices\\\\DosDevices\\K:"}, {"error", 5}}}}}));
  std::unique_ptr<Registry::Key> key = rig.sim.registry.openForWrite(L"SYSTEM\\MountedDevices").value;
  ASSERT_NE(key, nullptr);
  EXPECT_TRUE(key->setBinary(L"\\DosDevices\\K:", Bytes(12)).ok);
  EXPECT_EQ(key->deleteValue(L"\\DosDevices\\K:").error, 5u);
  EXPECT_TRUE(key->setBinary(L"\\DosDevices\\L:", Bytes(12)).ok);
  EXPECT_TRUE(key->deleteValue(L"\\DosDevices\\L:").ok);
}

TEST(FaultLayer, NthCountsEachRuleOnItsOwn) {
  CountingFiles files;
  RuleLog log({rule(calls::kReadFile, "C:\\a", 5), rule(calls::kReadFile, "C:\\b", 6)});
  log.rules[0].nth = 2;
  log.rules[1].nth = 1;
  FaultInjectingFiles wrapped(files, log);
  EXPECT_TRUE(wrapped.readHead(L"C:\\a", 1).ok);           // a: 1st
  EXPECT_EQ(wrapped.readHead(L"C:\\b", 1).error, 6u);      // b: 1st, fails
  EXPECT_EQ(wrapped.readHead(L"C:\\a", 1).error, 5u);      // a: 2nd, fails
  EXPECT_TRUE(wrapped.readHead(L"C:\\a", 1).ok);           // a: 3rd
  EXPECT_TRUE(wrapped.readHead(L"C:\\b", 1).ok);           // b: 2nd
}

TEST(FaultLayer, NthCountsOnlyTheCallsTheRuleMatches) {
  Rig rig(json::object({{"faults", {{{"api", "GetVolumeInformationW"}, {"path", "C:\\"}, {"nth", 2}, {"error", 21}}}}}));
  EXPECT_TRUE(rig.sim.volumes.volumeInformation(L"C:\\").ok);
  EXPECT_FALSE(rig.sim.volumes.volumeInformation(L"Q:\\").ok);  // no such drive, not this rule's
  EXPECT_EQ(rig.sim.volumes.volumeInformation(L"C:\\").error, 21u);
  EXPECT_TRUE(rig.sim.volumes.volumeInformation(L"C:\\").ok);
}

TEST(FaultLayer, PathRuleMatchesWhateverTheCase) {
  Rig rig(json::object({{"faults", {{{"api", "GetVolumeInformationW"}, {"path", "c:\\"}, {"error", 21}}}}}));
  EXPECT_EQ(rig.sim.volumes.volumeInformation(L"C:\\").error, 21u);
  CountingFiles files;
  RuleLog log({rule(calls::kGetFileSize, "C:\\Images\\Disk.IMG", 2)});
  FaultInjectingFiles wrapped(files, log);
  EXPECT_EQ(wrapped.fileSize(L"c:\\images\\DISK.img").error, 2u);
  EXPECT_TRUE(wrapped.fileSize(L"c:\\images\\other.img").ok);
}

TEST(FaultLayer, OneRuleFailsAControlCodeThroughThePlatformAndAtTheControllerEntry) {
  Rig rig(json::object({{"faults", {{{"api", "DeviceIoControl"}, {"code", "QueryDiskInfo"}, {"error", 1117}}}},
           {"controller", {{"disks", {{{"index", 1}}}}}}}));
  const Rig::Result through = rig.controller(ioctl::QueryDiskInfo, Rig::head(1), 32);
  EXPECT_FALSE(through.ok);
  EXPECT_EQ(through.error, 1117u);
  EXPECT_TRUE(rig.controller(ioctl::QueryDiskBitmap, {}, 16).ok);
  ControllerFaults entry(rig.machine, rig.machine.controller());
  std::vector<std::uint8_t> out(32), in = Rig::head(1);
  const ControllerModel::Reply atEntry = entry.handle(ioctl::QueryDiskInfo, in.data(), 12, out.data(), 32);
  EXPECT_FALSE(atEntry.ok());
  EXPECT_EQ(atEntry.error, 1117u);
  // Each request is checked once: at the layer in front of it.
  EXPECT_EQ(rig.machine.stats["api"]["DeviceIoControl"], 2);
}

TEST(FaultLayer, OldFailureFlagsBecomeRules) {
  Machine m(json::parse(R"({"host": {"frameworkFails": true, "comFails": true, "memory": {"fails": true}},
                            "files": [{"path": "C:\\x.img", "readFails": true}], "wmi": {"fails": true}})"));
  const json faults = m.toJson()["faults"];
  ASSERT_EQ(faults.size(), 5u);
  EXPECT_EQ(faults[0], json::parse(R"({"api": "InitFramework", "error": 31})"));
  EXPECT_EQ(faults[1], json::parse(R"({"api": "CoInitialize", "error": 2147500037})"));
  EXPECT_EQ(faults[2], json::parse(R"({"api": "GlobalMemoryStatusEx", "error": 31})"));
  EXPECT_EQ(faults[3], json::parse(R"({"api": "ReadFile", "path": "C:\\x.img", "error": 31})"));
  EXPECT_EQ(faults[4], json::parse(R"({"api": "WmiQuery", "error": 31})"));
  EXPECT_FALSE(m.toJson()["host"].contains("frameworkFails"));
}

TEST(FaultLayer, ComFlagFailsWithTheHresultItAlwaysHad) {
  Rig rig(json::parse(R"({"schema": 1, "host": {"comFails": true}})"));
  EXPECT_EQ(rig.sim.process.comInitialize().error, 0x80004005u);
}

std::string loadError(const json& state) {
  try {
    Machine m(state);
  } catch (const LoadError& e) {
    return e.what();
  }
  return "loaded";
}

TEST(FaultLayer, VersionTwoRefusesTheOldFlagsAndNamesTheRule) {
  EXPECT_EQ(loadError(json::parse(R"({"schema": 2, "host": {"frameworkFails": true}})")),
            "host.frameworkFails: is not read in schema 2; write the rule {\"api\": \"InitFramework\"} in faults[] instead");
  EXPECT_EQ(loadError(json::parse(R"({"schema": 2, "files": [{"path": "C:\\x", "readFails": true}]})")),
            "files[0].readFails: is not read in schema 2; write the rule {\"api\": \"ReadFile\", \"path\": \"C:\\\\x\"} in "
            "faults[] instead");
  EXPECT_EQ(loadError(json::parse(R"({"schema": 2, "host": {"comFails": false}})")),
            "host.comFails: is not read in schema 2; write the rule {\"api\": \"CoInitialize\", \"error\": \"0x80004005\"} in "
            "faults[] instead");
}

TEST(FaultLayer, RuleOnACallNotInTheTableIsRefused) {
  EXPECT_EQ(loadError(json::parse(R"({"faults": [{"api": "ReadFileEx"}]})")),
            "faults[0].api: \"ReadFileEx\" is not a call a rule can fail (docs/simulator.md)");
}

}  // namespace fault_layer_test
}  // namespace vmd::sim
