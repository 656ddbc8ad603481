// The fault layer: a rule fails a call before the wrapped service sees it,
// with the failure the interface describes, and every call is counted.
#include <gtest/gtest.h>

#include "sim/fault_layer.h"
#include "sim/sim_devices.h"
#include "sim_rig.h"

namespace vmd::sim {
namespace {

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
  std::uint32_t attributes(const std::wstring&) override { return ++calls, 0x20; }
  Size fileSize(const std::wstring&) override { return ++calls, Size{true, 0, 42}; }
  std::optional<Bytes> readHead(const std::wstring&, std::uint32_t count) override {
    ++calls;
    return Bytes(count, 7);
  }
  std::uint32_t writeWhole(const std::wstring&, const Bytes& data) override {
    ++calls;
    written = data;
    return 0;
  }
  bool pathIsDirectory(const std::wstring&) override { return ++calls, true; }
  int calls = 0;
  Bytes written{1};
};

TEST(FaultLayer, WrapsAnyImplementationAndCountsItsCalls) {
  CountingFiles files;
  RuleLog log({rule(calls::kReadFile, "C:\\a.img", 5)});
  FaultInjectingFiles wrapped(files, log);
  EXPECT_FALSE(wrapped.readHead(L"C:\\a.img", 16).has_value());
  EXPECT_EQ(files.calls, 0);
  EXPECT_EQ(wrapped.readHead(L"C:\\b.img", 16)->size(), 16u);
  EXPECT_EQ(files.calls, 1);
  EXPECT_EQ(log.counts["api"]["ReadFile"], 2u);
}

TEST(FaultLayer, FileCallsFailInTheirOwnShape) {
  CountingFiles files;
  RuleLog log({rule(calls::kGetFileAttributesW), rule(calls::kGetFileSize, std::nullopt, 5),
               rule(calls::kCreateFileW, "C:\\new.img", 5)});
  FaultInjectingFiles wrapped(files, log);
  EXPECT_EQ(wrapped.attributes(L"C:\\x"), InvalidFileAttributes);
  EXPECT_FALSE(wrapped.pathIsDirectory(L"C:\\x"));  // asks what GetFileAttributesW asks
  const FileService::Size size = wrapped.fileSize(L"C:\\x");
  EXPECT_FALSE(size.ok);
  EXPECT_EQ(size.error, 5u);
  EXPECT_EQ(wrapped.writeWhole(L"C:\\new.img", Bytes{1, 2}), syserr::OpenFailed);
  EXPECT_EQ(files.calls, 0);
}

TEST(FaultLayer, FailedWriteLeavesTheFileCreatedEmpty) {
  CountingFiles files;
  RuleLog log({rule(calls::kWriteFile)});
  FaultInjectingFiles wrapped(files, log);
  EXPECT_EQ(wrapped.writeWhole(L"C:\\x.img", Bytes{1, 2, 3}), syserr::WriteFault);
  EXPECT_EQ(files.written, Bytes{});
}

TEST(FaultLayer, SimulatedCallsFailInTheirOwnShape) {
  Rig rig(json::object({{"faults",
            {{{"api", "GetLogicalDrives"}},
             {{"api", "GetDriveTypeW"}},
             {{"api", "GetVolumeInformationW"}, {"error", 21}},
             {{"api", "SetVolumeMountPointW"}, {"error", 5}},
             {{"api", "RegQueryValueExW"}},
             {{"api", "RegOpenKeyExW"}, {"error", 5}},
             {{"api", "GlobalMemoryStatusEx"}},
             {{"api", "WmiQuery"}},
             {{"api", "BroadcastSystemMessageW"}},
             {{"api", "CoInitialize"}, {"error", 5}},
             {{"api", "CreateMutexW"}, {"error", 5}},
             {{"api", "SetupDiGetClassDevsW"}}}}}));
  SimPlatform& sim = rig.sim;
  EXPECT_EQ(sim.volumes.logicalDrives(), 0u);
  EXPECT_EQ(sim.volumes.driveType(L"C:\\"), drivetype::Unknown);
  const VolumeService::VolumeInfo info = sim.volumes.volumeInformation(L"C:\\");
  EXPECT_FALSE(info.ok);
  EXPECT_EQ(info.error, 21u);
  EXPECT_EQ(sim.volumes.setVolumeMountPoint(L"M:\\", L"\\\\?\\Volume{x}\\").error, 5u);
  EXPECT_FALSE(sim.registry.readDword(L"SYSTEM\\MountedDevices", L"x").has_value());
  std::uint32_t error = 0;
  EXPECT_EQ(sim.registry.openForWrite(L"SYSTEM\\MountedDevices", error), nullptr);
  EXPECT_EQ(error, 5u);
  EXPECT_FALSE(sim.system.memoryStatus().has_value());
  EXPECT_FALSE(sim.system.diskDriveSignatures().has_value());
  EXPECT_EQ(sim.broadcast.broadcast(0x122, 0x219, 0x8000, Bytes(12)), -1);
  EXPECT_EQ(static_cast<std::uint32_t>(sim.process.comInitialize()), 0x80070005u);
  const ProcessEnvironment::MutexResult mutex = sim.process.createInstanceMutex(L"m");
  EXPECT_FALSE(mutex.created);
  EXPECT_EQ(mutex.error, 5u);
  EXPECT_FALSE(sim.setup.presentInterfaces(kControllerInterface, DeviceSetup::Scope::All).has_value());
  EXPECT_EQ(rig.machine.stats["api"]["GetLogicalDrives"], 1);
  // What was not failed is still answered.
  EXPECT_TRUE(sim.volumes.diskFreeSpaceEx(L"C:\\").ok);
}

TEST(FaultLayer, DeviceCallsFailInTheirOwnShape) {
  Rig rig(json::object({{"faults",
            {{{"api", "CreateFileW"}, {"path", "\\\\.\\D:"}, {"error", 5}},
             {{"api", "FlushFileBuffers"}, {"error", 29}},
             {{"api", "DeviceIoControl"}, {"code", "FSCTL_LOCK_VOLUME"}, {"error", 0}}}}}));
  const DeviceIo::OpenResult refused = rig.sim.io.open(L"\\\\.\\D:", 0xC0000000u, 3, 3, 0);
  EXPECT_EQ(refused.handle, DeviceIo::Invalid);
  EXPECT_EQ(refused.error, 5u);
  const DeviceIo::OpenResult c = rig.sim.io.open(L"\\\\.\\C:", 0xC0000000u, 3, 3, 0);
  ASSERT_NE(c.handle, DeviceIo::Invalid);
  const DeviceIo::ControlResult lock = rig.sim.io.control(c.handle, ioctl::FsctlLockVolume, nullptr, 0, nullptr, 0);
  EXPECT_FALSE(lock.ok);  // failed, with error 0
  EXPECT_EQ(lock.error, 0u);
  EXPECT_EQ(rig.sim.io.flush(c.handle).error, 29u);
  rig.sim.io.close(c.handle);
  EXPECT_EQ(rig.sim.io.openHandles(), 0u);
  EXPECT_EQ(rig.machine.stats["opens"]["\\\\.\\D:"], 1);
  EXPECT_EQ(rig.machine.stats["closes"]["\\\\.\\C:"], 1);
  EXPECT_EQ(rig.machine.stats["requests"]["FSCTL_LOCK_VOLUME"], 1);
}

TEST(FaultLayer, RegistryKeyCallsAreMatchedByKeyAndValue) {
  Rig rig(json::object({{"faults", {{{"api", "RegDeleteValueW"}, {"path", "system\\mounteddevices\\\\DosDevices\\K:"}, {"error", 5}}}}}));
  std::uint32_t error = 1;
  std::unique_ptr<Registry::Key> key = rig.sim.registry.openForWrite(L"SYSTEM\\MountedDevices", error);
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(key->setBinary(L"\\DosDevices\\K:", Bytes(12)), 0u);
  EXPECT_EQ(key->deleteValue(L"\\DosDevices\\K:"), 5u);
  EXPECT_EQ(key->setBinary(L"\\DosDevices\\L:", Bytes(12)), 0u);
  EXPECT_EQ(key->deleteValue(L"\\DosDevices\\L:"), 0u);
}

TEST(FaultLayer, NthCountsEachRuleOnItsOwn) {
  CountingFiles files;
  RuleLog log({rule(calls::kReadFile, "C:\\a", 5), rule(calls::kReadFile, "C:\\b", 6)});
  log.rules[0].nth = 2;
  log.rules[1].nth = 1;
  FaultInjectingFiles wrapped(files, log);
  EXPECT_TRUE(wrapped.readHead(L"C:\\a", 1).has_value());   // a: 1st
  EXPECT_FALSE(wrapped.readHead(L"C:\\b", 1).has_value());  // b: 1st, fails
  EXPECT_FALSE(wrapped.readHead(L"C:\\a", 1).has_value());  // a: 2nd, fails
  EXPECT_TRUE(wrapped.readHead(L"C:\\a", 1).has_value());   // a: 3rd
  EXPECT_TRUE(wrapped.readHead(L"C:\\b", 1).has_value());   // b: 2nd
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
  EXPECT_EQ(static_cast<std::uint32_t>(rig.sim.process.comInitialize()), 0x80004005u);
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

}  // namespace
}  // namespace vmd::sim
