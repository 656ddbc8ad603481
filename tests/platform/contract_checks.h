// What the platform interfaces promise, as checks over any implementation of
// them: run from GoogleTest against the simulated machine and from
// vmdctl-contract.exe against the Win32 services under Wine, so that the
// simulated Windows is held to what Wine answers. A check that only one side
// can answer says which, and why.
#pragma once

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "base/text_codec.h"
#include "platform/message_text.h"
#include "platform/platform.h"
#include "resources/catalogue_data.h"

namespace vmd::contract {

enum class Side { Sim, Wine };

// What a side offers besides the services: scratch places, and looks
// around the services at what they did.
class Fixture {
 public:
  virtual ~Fixture() = default;
  virtual std::wstring scratchFolder() = 0;  // an existing folder for files
  virtual wchar_t scratchDrive() = 0;        // a drive of its own, a folder behind it; 0 when none
  virtual void removeFile(const std::wstring& path) = 0;
  // The file's bytes as they lie, read without the file service; nothing when missing.
  virtual std::optional<Bytes> storedBytes(const std::wstring& path) = 0;
  virtual bool handleIsOpen(DeviceIo::Handle h) = 0;
  // A new empty key under HKEY_LOCAL_MACHINE\SOFTWARE, and its removal.
  virtual std::optional<std::wstring> createScratchKey() = 0;
  virtual void deleteScratchKey(const std::wstring& path) = 0;
  // Keys of a console that has no input.
  virtual std::unique_ptr<KeyReader> keysWithoutInput() = 0;
};

struct Subject {
  Side side;
  MessageCatalog& catalog;
  ProcessEnvironment& process;
  DeviceSetup& setup;
  DeviceIo& io;
  VolumeService& volumes;
  FileService& files;
  Registry& registry;
  SystemInfo& system;
  Clock& clock;
  DeviceBroadcast& broadcast;
  Fixture& fixture;
};

// The failures of one check, each with its line, and what it noted.
struct Report {
  std::vector<std::string> failures;
  std::vector<std::string> notes;
  void fail(int line, const std::string& what) { failures.push_back("line " + std::to_string(line) + ": " + what); }
  void note(const std::string& what) { notes.push_back(what); }
};

inline std::string show(const std::wstring& s) { return "\"" + toUtf8(s) + "\""; }
inline std::string show(const std::string& s) { return "\"" + s + "\""; }
template <class T>
std::string show(const T& v) {
  return std::to_string(v);
}

#define VERIFY(cond)                              \
  do {                                            \
    if (!(cond)) r.fail(__LINE__, "not " #cond); \
  } while (0)
#define VERIFY_EQ(a, b)                                                                                   \
  do {                                                                                                    \
    const auto& a_ = (a);                                                                                 \
    const auto& b_ = (b);                                                                                 \
    if (!(a_ == b_))                                                                                      \
      r.fail(__LINE__, #a " == " #b ": " + ::vmd::contract::show(a_) + " against " + ::vmd::contract::show(b_)); \
  } while (0)

inline std::string hexText(std::uint32_t v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%08X", v);
  return buf;
}

inline std::wstring uniqueName(const wchar_t* stem) {
  static std::mt19937 random(static_cast<unsigned>(std::time(nullptr)));
  return std::wstring(stem) + std::to_wstring(static_cast<unsigned long long>(std::time(nullptr))) + L"-" +
         std::to_wstring(random() % 1000000);
}

inline Bytes pattern(std::size_t n) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<std::uint8_t>(i * 7 + 3);
  return b;
}

inline std::wstring scratchFile(Subject& s, const wchar_t* stem, const wchar_t* ext) {
  return s.fixture.scratchFolder() + L"\\" + uniqueName(stem) + ext;
}

// --- Message and string tables: the resources say what the catalogue says.

inline void everyMessageFormatsAsTheCatalogueSays(Subject& s, Report& r) {
  const std::vector<const wchar_t*> inserts{L"vmdctl.exe", L"edit"};
  int n = 0;
  for (const catalogue::Entry* e = catalogue::kMessages; e->text; ++e, ++n) {
    const std::optional<std::wstring> got = s.catalog.formatMessage(e->id, inserts);
    VERIFY(got.has_value());
    if (got) VERIFY_EQ(*got, expandMessageInserts(e->text, inserts));
  }
  VERIFY(n > 0);
}

inline void bannerInsertIsFilled(Subject& s, Report& r) {
  VERIFY_EQ(s.catalog.formatMessage(0x1000, {L"5.7.0"}).value_or(L"?"),
            std::wstring(L"Tarnby Ramdisk Commander  Version 5.7.0\r\n"));
}

inline void insertsNotGivenReadAsEmpty(Subject& s, Report& r) {
  VERIFY_EQ(s.catalog.formatMessage(0x1002, {L"vmdctl"}).value_or(L"?"),
            std::wstring(L"vmdctl: Invalid use of command ''.\r\nFor more information, type: vmdctl ?\x20\r\n"));
}

inline void missingMessageIsNothing(Subject& s, Report& r) { VERIFY(!s.catalog.formatMessage(0x7777, {L"x"}).has_value()); }

inline void everyStringLoadsAsTheCatalogueSays(Subject& s, Report& r) {
  for (const catalogue::Entry* e = catalogue::kStrings; e->text; ++e) VERIFY_EQ(s.catalog.loadString(e->id), std::wstring(e->text));
  VERIFY_EQ(s.catalog.loadString(103), std::wstring(L"Tarnby Ramdisk"));
}

inline void missingStringIsEmpty(Subject& s, Report& r) { VERIFY_EQ(s.catalog.loadString(9999), std::wstring()); }

inline void keyWithoutConsoleInputIsNone(Subject& s, Report& r) {
  std::unique_ptr<KeyReader> keys = s.fixture.keysWithoutInput();
  const int key = keys->readKey();
  r.note("key " + std::to_string(key));
  VERIFY_EQ(key, -1);
}

// --- Process start-up services.

inline void frameworkStarts(Subject& s, Report& r) { VERIFY(s.process.initFramework().ok); }

inline void secondMutexOfTheSameNameReportsAlreadyExists(Subject& s, Report& r) {
  const std::wstring name = uniqueName(L"vmdctl-contract-");
  const SysResult<bool> first = s.process.createInstanceMutex(name);
  VERIFY(first.ok);
  VERIFY(!first.value);
  const SysResult<bool> second = s.process.createInstanceMutex(name);
  VERIFY(second.ok);
  VERIFY(second.value);
}

inline void tokenHoldsAdministrators(Subject& s, Report& r) {
  const SysResult<bool> admin = s.process.tokenHasAdministrators();
  VERIFY(admin.ok);
  VERIFY(admin.value);
}

inline void comStartsAndStops(Subject& s, Report& r) {
  VERIFY(s.process.comInitialize().ok);
  s.process.comUninitialize();
}

// --- Device interfaces and device handles.

constexpr std::uint32_t kGetPartitionInfo = 0x00074004;  // IOCTL_DISK_GET_PARTITION_INFO, 32 bytes out
constexpr std::uint32_t kQueryAutoMount = 0x006D003C;    // IOCTL_MOUNTMGR_QUERY_AUTO_MOUNT, 4 bytes out
constexpr std::uint32_t kSetAutoMount = 0x006DC040;      // IOCTL_MOUNTMGR_SET_AUTO_MOUNT, 4 bytes in
constexpr std::uint32_t kLockVolume = 0x00090018;
constexpr std::uint32_t kUnlockVolume = 0x0009001C;
constexpr std::uint32_t kDismountVolume = 0x00090020;
constexpr std::uint32_t kReadWrite = DeviceIo::GenericRead | DeviceIo::GenericWrite;
constexpr std::uint32_t kShareReadWrite = DeviceIo::ShareRead | DeviceIo::ShareWrite;

constexpr InterfaceClass kControllerClass{0x48FA1FE0, 0x7189, 0x432A, {0x9F, 0xD4, 0x9D, 0xB7, 0x66, 0xB6, 0x4B, 0x31}};
constexpr InterfaceClass kVolumeClass{0x53F5630D, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};

inline void noControllerMeansAnEmptySet(Subject& s, Report& r) {
  const SysResult<std::vector<DeviceSetup::Interface>> found =
      s.setup.presentInterfaces(kControllerClass, DeviceSetup::Scope::FirstOnly);
  VERIFY(found.ok);
  VERIFY_EQ(found.value.size(), std::size_t{0});
}

inline void volumeInterfacesComeInIndexOrderWithPaths(Subject& s, Report& r) {
  const SysResult<std::vector<DeviceSetup::Interface>> found =
      s.setup.presentInterfaces(kVolumeClass, DeviceSetup::Scope::All);
  VERIFY(found.ok);
  if (!found.ok) return;
  const std::vector<DeviceSetup::Interface>& list = found.value;
  r.note(std::to_string(list.size()) + " volume interface(s)");
  for (std::size_t i = 0; i < list.size(); ++i) {
    VERIFY(!list[i].path.empty());
    if (i > 0) VERIFY(list[i].index > list[i - 1].index);
  }
}

inline void openingAMissingDeviceGivesTheError(Subject& s, Report& r) {
  const SysResult<DeviceIo::Handle> o =
      s.io.open(L"\\\\.\\VelmoRdDevPort0Target0", kReadWrite, kShareReadWrite, DeviceIo::OpenExisting, 0);
  VERIFY(!o.ok);
  VERIFY_EQ(o.value, DeviceIo::Invalid);
  VERIFY(o.error == syserr::FileNotFound || o.error == syserr::PathNotFound);
}

inline void aFileOpensFlushesAndRefusesDiskRequests(Subject& s, Report& r) {
  const std::wstring path = scratchFile(s, L"io-", L".bin");
  VERIFY(s.files.writeWhole(path, pattern(100)).ok);
  const SysResult<DeviceIo::Handle> o =
      s.io.open(path, kReadWrite, kShareReadWrite, DeviceIo::OpenExisting, DeviceIo::AttributeNormal);
  VERIFY(o.ok);
  VERIFY_EQ(o.error, 0u);
  if (!o.ok) return;
  VERIFY(o.value != DeviceIo::Invalid);
  VERIFY(s.io.flush(o.value).ok);
  std::uint8_t out[32] = {};
  const SysResult<std::uint32_t> ctl = s.io.control(o.value, kGetPartitionInfo, nullptr, 0, out, sizeof(out));
  VERIFY(!ctl.ok);
  VERIFY(ctl.error != 0);
  s.io.close(o.value);
  s.fixture.removeFile(path);
}

// Counts the closes that reach the service, and whether each handle was still open.
class CountingIo : public DeviceIo {
 public:
  CountingIo(DeviceIo& inner, Fixture& fixture) : inner_(inner), fixture_(fixture) {}
  SysResult<Handle> open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                         std::uint32_t disposition, std::uint32_t flags) override {
    return inner_.open(path, access, share, disposition, flags);
  }
  SysResult<std::uint32_t> control(Handle h, std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                                   std::uint32_t outSize) override {
    return inner_.control(h, code, in, inSize, out, outSize);
  }
  SysStatus flush(Handle h) override { return inner_.flush(h); }
  void close(Handle h) override {
    if (fixture_.handleIsOpen(h)) ++closedOpen;
    ++closes;
    inner_.close(h);
  }
  int closes = 0;
  int closedOpen = 0;

 private:
  DeviceIo& inner_;
  Fixture& fixture_;
};

inline void deviceHandleClosesOnceAfterMoves(Subject& s, Report& r) {
  const std::wstring path = scratchFile(s, L"handle-", L".bin");
  VERIFY(s.files.writeWhole(path, pattern(8)).ok);
  CountingIo io(s.io, s.fixture);
  {
    SysResult<DeviceHandle> opened =
        DeviceHandle::open(io, path, kReadWrite, kShareReadWrite, DeviceIo::AttributeNormal);
    VERIFY(opened.ok);
    VERIFY_EQ(opened.error, 0u);
    DeviceHandle first = std::move(opened.value);
    VERIFY(first.valid());
    DeviceHandle second(std::move(first));
    VERIFY(!first.valid());
    VERIFY(second.valid());
    DeviceHandle third;
    third = std::move(second);
    VERIFY(!second.valid());
    VERIFY(third.valid());
    VERIFY(third.flush().ok);
    DeviceHandle& same = third;
    third = std::move(same);  // moving onto itself keeps it
    VERIFY(third.valid());
    VERIFY_EQ(io.closes, 0);
    // The moved-to handle still reaches the file: a file refuses disk requests.
    std::uint8_t out[32] = {};
    const SysResult<std::uint32_t> c = third.control(kGetPartitionInfo, nullptr, 0, out, sizeof(out));
    VERIFY(!c.ok);
    VERIFY(c.error != syserr::InvalidHandle);
  }
  VERIFY_EQ(io.closes, 1);
  VERIFY_EQ(io.closedOpen, 1);
  s.fixture.removeFile(path);
}

inline void deviceHandleCloseIsExplicitAndFinal(Subject& s, Report& r) {
  const std::wstring path = scratchFile(s, L"handle-", L".bin");
  VERIFY(s.files.writeWhole(path, pattern(8)).ok);
  CountingIo io(s.io, s.fixture);
  const SysResult<DeviceIo::Handle> o = io.open(path, kReadWrite, kShareReadWrite, DeviceIo::OpenExisting, 0);
  VERIFY(o.ok);
  {
    DeviceHandle h(io, o.value);
    h.close();
    VERIFY(!h.valid());
    VERIFY(!s.fixture.handleIsOpen(o.value));
    VERIFY_EQ(h.control(kGetPartitionInfo).error, syserr::InvalidHandle);
    VERIFY_EQ(h.flush().error, syserr::InvalidHandle);
  }
  VERIFY_EQ(io.closes, 1);
  s.fixture.removeFile(path);
}

inline void deviceHandleThatDidNotOpenClosesNothing(Subject& s, Report& r) {
  CountingIo io(s.io, s.fixture);
  std::uint32_t error = 0;
  {
    SysResult<DeviceHandle> h = DeviceHandle::open(io, L"\\\\.\\VelmoRdDevPort0Target0", DeviceIo::GenericRead,
                                                   DeviceIo::ShareRead, DeviceIo::AttributeNormal);
    VERIFY(!h.ok);
    VERIFY(!h.value.valid());
    error = h.error;
  }
  VERIFY(error == syserr::FileNotFound || error == syserr::PathNotFound);
  VERIFY_EQ(io.closes, 0);
}

// --- Volumes.

inline void driveCIsThere(Subject& s, Report& r) {
  const SysResult<std::uint32_t> drives = s.volumes.logicalDrives();
  VERIFY(drives.ok);
  VERIFY(drives.value & (1u << 2));
}

inline void driveZMapsTheUnixRoot(Subject& s, Report& r) { VERIFY(s.volumes.logicalDrives().value & (1u << 25)); }

inline void driveTypes(Subject& s, Report& r) {
  const SysResult<std::uint32_t> c = s.volumes.driveType(L"C:\\");
  VERIFY(c.ok);
  VERIFY_EQ(c.value, drivetype::Fixed);
  // A root that is not there is an answer, not a failure.
  const SysResult<std::uint32_t> q = s.volumes.driveType(L"Q:\\");
  VERIFY(q.ok);
  VERIFY_EQ(q.value, drivetype::NoRootDir);
}

inline void volumeInformationOfC(Subject& s, Report& r) {
  const SysResult<VolumeService::VolumeInfo> read = s.volumes.volumeInformation(L"C:\\");
  VERIFY(read.ok);
  VERIFY_EQ(read.error, 0u);
  const VolumeService::VolumeInfo& v = read.value;
  VERIFY(!v.fileSystem.empty());
  VERIFY(v.fileSystem.size() <= 24);
  VERIFY(v.label.size() <= 259);
  r.note("C:\\ label " + show(v.label) + ", file system " + show(v.fileSystem) + ", serial " + hexText(v.serial));
}

inline void volumeInformationOfAMissingDriveFails(Subject& s, Report& r) {
  const SysResult<VolumeService::VolumeInfo> v = s.volumes.volumeInformation(L"Q:\\");
  VERIFY(!v.ok);
  VERIFY(v.error != 0);
}

inline void freeSpaceOfC(Subject& s, Report& r) {
  const SysResult<VolumeService::FreeSpace> f = s.volumes.diskFreeSpace(L"C:\\");
  VERIFY(f.ok);
  VERIFY(f.value.bytesPerSector > 0);
  VERIFY(f.value.sectorsPerCluster > 0);
  VERIFY(f.value.freeClusters <= f.value.totalClusters);
  const SysResult<VolumeService::FreeSpaceEx> e = s.volumes.diskFreeSpaceEx(L"C:\\");
  VERIFY(e.ok);
  VERIFY(e.value.totalBytes > 0);
  VERIFY(e.value.totalFree <= e.value.totalBytes);
  const SysResult<VolumeService::FreeSpace> missing = s.volumes.diskFreeSpace(L"Q:\\");
  VERIFY(!missing.ok);
  VERIFY(missing.error != 0);
}

inline void mountPointOfAMissingDriveIsRefused(Subject& s, Report& r) {
  const SysResult<std::wstring> t = s.volumes.volumeNameForMountPoint(L"Q:\\", 50);
  VERIFY(!t.ok);
  VERIFY(t.error != 0);
}

inline void volumeNameAndPathNamesOfC(Subject& s, Report& r) {
  const SysResult<std::wstring> name = s.volumes.volumeNameForMountPoint(L"C:\\", 50);
  if (!name.ok) {
    r.note("no volume name for C:\\ (error " + std::to_string(name.error) + ")");
    VERIFY(name.error != 0);
    return;
  }
  VERIFY_EQ(name.value.rfind(L"\\\\?\\Volume{", 0), std::size_t{0});
  const SysResult<VolumeService::PathNames> small = s.volumes.volumePathNames(name.value, 2);
  VERIFY(!small.ok);
  VERIFY_EQ(small.error, syserr::MoreData);
  VERIFY(small.value.needed > 2);
  const SysResult<VolumeService::PathNames> all = s.volumes.volumePathNames(name.value, small.value.needed);
  VERIFY(all.ok);
  const std::vector<wchar_t>& multi = all.value.multiString;
  VERIFY(multi.size() >= 2);
  VERIFY(multi.size() >= 2 && multi.back() == 0 && multi[multi.size() - 2] == 0);
  VERIFY(!multi.empty() && equalsNoCase(std::wstring(multi.data()), L"C:\\"));
}

inline void deletingAMountPointThatIsNoneFails(Subject& s, Report& r) {
  const SysStatus d = s.volumes.deleteVolumeMountPoint(s.fixture.scratchFolder() + L"\\" + uniqueName(L"nomount-") + L"\\");
  VERIFY(!d.ok);
  // Wine fails without setting a last error, so only the failure itself is checked.
  r.note("error " + std::to_string(d.error));
}

// --- Files.

inline void wholeWriteThenSizeAttributesAndHead(Subject& s, Report& r) {
  const std::wstring path = scratchFile(s, L"file-", L".img");
  const Bytes data = pattern(3000);
  VERIFY(s.files.writeWhole(path, data).ok);
  const SysResult<std::uint32_t> attrs = s.files.attributes(path);
  VERIFY(attrs.ok);
  VERIFY(attrs.value != InvalidFileAttributes);
  VERIFY((attrs.value & 0x10) == 0);
  const SysResult<bool> directory = s.files.pathIsDirectory(path);
  VERIFY(directory.ok);
  VERIFY(!directory.value);
  const SysResult<std::uint64_t> size = s.files.fileSize(path);
  VERIFY(size.ok);
  VERIFY_EQ(size.value, std::uint64_t{3000});
  const SysResult<Bytes> head = s.files.readHead(path, 512);
  VERIFY(head.ok);
  VERIFY(head.value == Bytes(data.begin(), data.begin() + 512));
  const SysResult<Bytes> all = s.files.readHead(path, 5000);
  VERIFY(all.ok);
  VERIFY(all.value == data);
  // A second write replaces the whole file.
  VERIFY(s.files.writeWhole(path, pattern(10)).ok);
  VERIFY_EQ(s.files.fileSize(path).value, std::uint64_t{10});
  s.fixture.removeFile(path);
}

inline void missingFileAnswers(Subject& s, Report& r) {
  const std::wstring path = s.fixture.scratchFolder() + L"\\" + uniqueName(L"missing-");
  const SysResult<std::uint32_t> attrs = s.files.attributes(path);
  VERIFY(!attrs.ok);
  VERIFY_EQ(attrs.error, syserr::FileNotFound);
  const SysResult<std::uint64_t> size = s.files.fileSize(path);
  VERIFY(!size.ok);
  VERIFY_EQ(size.error, syserr::FileNotFound);
  const SysResult<Bytes> head = s.files.readHead(path, 16);
  VERIFY(!head.ok);
  VERIFY_EQ(head.error, syserr::FileNotFound);
  const SysResult<bool> directory = s.files.pathIsDirectory(path);
  VERIFY(directory.ok);  // an answer: no folder there
  VERIFY(!directory.value);
}

inline void wholeWriteLeavesExactlyTheBytes(Subject& s, Report& r) {
  const std::wstring path = scratchFile(s, L"bytes-", L".bin");
  const Bytes data = pattern(70000);
  VERIFY(s.files.writeWhole(path, data).ok);
  const std::optional<Bytes> stored = s.fixture.storedBytes(path);
  VERIFY(stored.has_value());
  if (stored) VERIFY(*stored == data);
  VERIFY(s.files.writeWhole(path, Bytes{}).ok);
  const SysResult<std::uint64_t> size = s.files.fileSize(path);
  VERIFY(size.ok);
  VERIFY_EQ(size.value, std::uint64_t{0});
  s.fixture.removeFile(path);
}

inline void writeOverAFolderIsOpenFailed(Subject& s, Report& r) {
  const SysStatus w = s.files.writeWhole(s.fixture.scratchFolder(), pattern(4));
  VERIFY(!w.ok);
  VERIFY_EQ(w.error, syserr::OpenFailed);
}

inline void writeIntoAMissingFolderIsOpenFailed(Subject& s, Report& r) {
  const SysStatus w = s.files.writeWhole(s.fixture.scratchFolder() + L"\\no-such-folder\\x\\f.bin", pattern(4));
  VERIFY(!w.ok);
  VERIFY_EQ(w.error, syserr::OpenFailed);
}

inline void foldersAreDirectories(Subject& s, Report& r) {
  VERIFY(s.files.pathIsDirectory(s.fixture.scratchFolder()).value);
  VERIFY(s.files.pathIsDirectory(L"C:\\").value);
  const SysResult<std::uint32_t> attrs = s.files.attributes(s.fixture.scratchFolder());
  VERIFY(attrs.ok);
  VERIFY(attrs.value & 0x10);
}

// --- Registry (HKEY_LOCAL_MACHINE).

inline void missingKeyReadsNothing(Subject& s, Report& r) {
  const SysResult<std::uint32_t> noKey =
      s.registry.readDword(L"SYSTEM\\CurrentControlSet\\services\\kelvdrv\\Parameters", L"EnableIM");
  VERIFY(!noKey.ok);
  VERIFY_EQ(noKey.error, syserr::FileNotFound);
  const SysResult<std::uint32_t> noValue = s.registry.readDword(L"SOFTWARE", uniqueName(L"no-value-"));
  VERIFY(!noValue.ok);
  VERIFY_EQ(noValue.error, syserr::FileNotFound);
  const SysResult<std::unique_ptr<Registry::Key>> opened =
      s.registry.openForWrite(L"SOFTWARE\\" + uniqueName(L"no-key-"));
  VERIFY(!opened.ok);
  VERIFY(opened.value == nullptr);
  VERIFY_EQ(opened.error, syserr::FileNotFound);
}

inline void valuesAreWrittenEnumeratedReadAndDeleted(Subject& s, Report& r) {
  const SysResult<std::unique_ptr<Registry::Key>> opened = s.registry.openForWrite(L"SOFTWARE");
  VERIFY(opened.ok);
  VERIFY_EQ(opened.error, 0u);
  if (!opened.ok || !opened.value) return;
  Registry::Key& key = *opened.value;
  const std::wstring four = uniqueName(L"vmdctl-contract-4-");
  const std::wstring twelve = uniqueName(L"vmdctl-contract-12-");
  const std::wstring two = uniqueName(L"vmdctl-contract-2-");
  VERIFY(key.setBinary(four, Bytes{0x01, 0x02, 0x03, 0x04}).ok);
  VERIFY(key.setBinary(twelve, pattern(12)).ok);
  VERIFY(key.setBinary(two, pattern(2)).ok);

  // Four bytes read as a DWORD whatever their type; twelve do not fit, two are too few.
  VERIFY_EQ(s.registry.readDword(L"SOFTWARE", four).valueOr(0), 0x04030201u);
  const SysResult<std::uint32_t> long12 = s.registry.readDword(L"SOFTWARE", twelve);
  VERIFY(!long12.ok);
  VERIFY_EQ(long12.error, syserr::MoreData);
  const SysResult<std::uint32_t> short2 = s.registry.readDword(L"SOFTWARE", two);
  VERIFY(!short2.ok);
  VERIFY_EQ(short2.error, syserr::InvalidData);

  bool seen = false, sawTooLong = false;
  std::uint32_t index = 0, rc = 0;
  for (; index < 10000; ++index) {
    const SysResult<Registry::Value> read = key.enumValue(index, 64, 16);
    rc = read.error;
    if (!read.ok && rc == syserr::NoMoreItems) break;
    if (!read.ok) continue;
    const Registry::Value& v = read.value;
    if (v.name == twelve) {
      seen = true;
      VERIFY_EQ(v.type, 3u);  // REG_BINARY
      VERIFY(v.data == pattern(12));
      sawTooLong = key.enumValue(index, 4, 16).error == syserr::MoreData;
      VERIFY_EQ(key.enumValue(index, 64, 8).error, syserr::MoreData);
    }
  }
  VERIFY_EQ(rc, syserr::NoMoreItems);
  VERIFY(seen);
  VERIFY(sawTooLong);

  VERIFY(key.deleteValue(four).ok);
  VERIFY(key.deleteValue(twelve).ok);
  VERIFY(key.deleteValue(two).ok);
  const SysStatus again = key.deleteValue(twelve);
  VERIFY(!again.ok);
  VERIFY_EQ(again.error, syserr::FileNotFound);
  VERIFY_EQ(s.registry.readDword(L"SOFTWARE", four).error, syserr::FileNotFound);
}

inline void mountedDevicesOpensForWrite(Subject& s, Report& r) {
  const SysResult<std::unique_ptr<Registry::Key>> key = s.registry.openForWrite(L"SYSTEM\\MountedDevices");
  if (!key.ok) r.note("SYSTEM\\MountedDevices: error " + std::to_string(key.error));
  VERIFY(key.ok);
  VERIFY(key.value != nullptr);
}

inline std::vector<std::wstring> valueNames(Registry::Key& key) {
  std::vector<std::wstring> names;
  for (std::uint32_t i = 0; i < 1000; ++i) {
    const SysResult<Registry::Value> read = key.enumValue(i, 260, 4096);
    if (!read.ok && read.error == syserr::NoMoreItems) break;
    if (read.ok) names.push_back(read.value.name);
  }
  return names;
}

// The mounted-devices form of registry work, in a key of its own.
inline void driveLetterValuesAreWalkedWithSmallBuffers(Subject& s, Report& r) {
  const std::optional<std::wstring> scratch = s.fixture.createScratchKey();
  VERIFY(scratch.has_value());
  if (!scratch) return;
  SysResult<std::unique_ptr<Registry::Key>> opened = s.registry.openForWrite(*scratch);
  VERIFY(opened.ok);
  if (opened.ok && opened.value) {
    Registry::Key& key = *opened.value;
    const Bytes disk{0x78, 0x56, 0x34, 0x12, 0x00, 0x7E, 0, 0, 0, 0, 0, 0};
    VERIFY(key.setBinary(L"\\DosDevices\\R:", disk).ok);
    VERIFY(key.setBinary(L"\\DosDevices\\S:", pattern(12)).ok);
    VERIFY(key.setBinary(L"\\DosDevices\\T:", pattern(24)).ok);        // data too long
    VERIFY(key.setBinary(L"\\??\\Volume{3f1d6c52-0000}", disk).ok);  // name too long
    VERIFY_EQ(valueNames(key).size(), std::size_t{4});

    // The walk's own buffers: 16 name characters (terminator included), 12 bytes;
    // 234 for what does not fit, 259 past the end.
    int fitted = 0, tooLong = 0;
    std::uint32_t rc = 0;
    for (std::uint32_t index = 0; index < 100; ++index) {
      const SysResult<Registry::Value> read = key.enumValue(index, 16, 12);
      rc = read.error;
      if (!read.ok && rc == syserr::NoMoreItems) break;
      if (!read.ok && rc == syserr::MoreData) {
        ++tooLong;
        continue;
      }
      VERIFY(read.ok);
      VERIFY_EQ(rc, 0u);
      ++fitted;
      VERIFY_EQ(read.value.name.size(), std::size_t{14});
      VERIFY_EQ(read.value.type, 3u);  // REG_BINARY
      VERIFY_EQ(read.value.data.size(), std::size_t{12});
    }
    VERIFY_EQ(rc, syserr::NoMoreItems);
    VERIFY_EQ(fitted, 2);
    VERIFY_EQ(tooLong, 2);

    // A removal moves the later values down one index.
    const std::vector<std::wstring> before = valueNames(key);
    VERIFY(before.size() >= 2);
    if (before.size() >= 2) {
      VERIFY(key.deleteValue(before[0]).ok);
      const SysResult<Registry::Value> first = key.enumValue(0, 260, 4096);
      VERIFY(first.ok);
      VERIFY_EQ(first.value.name, before[1]);
      VERIFY_EQ(valueNames(key).size(), std::size_t{3});
    }

    // Writing over a value replaces its data.
    VERIFY(key.setBinary(L"\\DosDevices\\S:", disk).ok);
    for (std::uint32_t i = 0; i < 10; ++i) {
      const SysResult<Registry::Value> v = key.enumValue(i, 16, 12);
      if (v.ok && v.value.name == L"\\DosDevices\\S:") VERIFY(v.value.data == disk);
    }
    for (const std::wstring& name : valueNames(key)) VERIFY(key.deleteValue(name).ok);
    VERIFY(valueNames(key).empty());
  }
  opened.value.reset();
  s.fixture.deleteScratchKey(*scratch);
}

// Values read back whole through the read-only walk, in the order the key
// enumerates them (written in name order, which both sides keep).
inline void valuesAreReadWithReadAccessAlone(Subject& s, Report& r) {
  const SysResult<std::vector<Registry::Value>> missing = s.registry.readValues(L"SOFTWARE\\" + uniqueName(L"no-key-"));
  VERIFY(!missing.ok);
  VERIFY_EQ(missing.error, syserr::FileNotFound);
  const std::optional<std::wstring> scratch = s.fixture.createScratchKey();
  VERIFY(scratch.has_value());
  if (!scratch) return;
  const SysResult<std::vector<Registry::Value>> empty = s.registry.readValues(*scratch);
  VERIFY(empty.ok);
  VERIFY(empty.value.empty());
  SysResult<std::unique_ptr<Registry::Key>> opened = s.registry.openForWrite(*scratch);
  VERIFY(opened.ok && opened.value != nullptr);
  if (opened.ok && opened.value) {
    Registry::Key* key = opened.value.get();
    const std::wstring longName = L"\\??\\Volume{" + std::wstring(200, L'7') + L"}";
    VERIFY(key->setBinary(longName, pattern(5000)).ok);  // more than any first guess of room
    VERIFY(key->setBinary(L"\\DosDevices\\R:", pattern(12)).ok);
    VERIFY(key->setBinary(L"\\DosDevices\\\u0416:", pattern(3)).ok);
    const SysResult<std::vector<Registry::Value>> read = s.registry.readValues(*scratch);
    VERIFY(read.ok);
    VERIFY_EQ(read.value.size(), std::size_t{3});
    if (read.value.size() == 3) {
      VERIFY(read.value[0].name == longName);
      VERIFY(read.value[0].data == pattern(5000));
      VERIFY(read.value[1].name == L"\\DosDevices\\R:");
      VERIFY(read.value[1].data == pattern(12));
      VERIFY_EQ(read.value[1].type, 3u);  // REG_BINARY
      VERIFY(read.value[2].name == L"\\DosDevices\\\u0416:");
      VERIFY(read.value[2].data == pattern(3));
    }
    for (const std::wstring& name : valueNames(*key)) VERIFY(key->deleteValue(name).ok);
  }
  opened.value.reset();
  s.fixture.deleteScratchKey(*scratch);
  VERIFY(s.registry.readValues(L"SYSTEM\\MountedDevices").ok);
}

inline void mountedDevicesHoldsTheDrives(Subject& s, Report& r) {
  const SysResult<std::unique_ptr<Registry::Key>> opened = s.registry.openForWrite(L"SYSTEM\\MountedDevices");
  VERIFY(opened.ok);
  if (!opened.ok || !opened.value) return;
  for (std::uint32_t i = 0; i < 200; ++i) {
    const SysResult<Registry::Value> read = opened.value->enumValue(i, 260, 4096);
    if (!read.ok && read.error == syserr::NoMoreItems) break;
    if (!read.ok) continue;
    const Registry::Value& v = read.value;
    std::string data;
    for (std::size_t k = 0; k < v.data.size() && k < 48; ++k)
      data += (v.data[k] >= 32 && v.data[k] < 127) ? char(v.data[k]) : '.';
    r.note(toUtf8(v.name) + " type " + std::to_string(v.type) + ", " + std::to_string(v.data.size()) + " bytes: " + data);
  }
}

// --- System information and the clock.

inline void memoryIsReported(Subject& s, Report& r) {
  const SysResult<SystemInfo::Memory> m = s.system.memoryStatus();
  VERIFY(m.ok);
  VERIFY(m.value.totalPhys > 0);
  VERIFY(m.value.availPhys <= m.value.totalPhys);
}

inline void windowsDirectoryIsCWindows(Subject& s, Report& r) {
  const SysResult<std::wstring> dir = s.system.windowsDirectory();
  VERIFY(dir.ok);
  VERIFY(equalsNoCase(dir.value, L"C:\\windows"));
}

inline void clockAgreesWithItselfAndSleepWaits(Subject& s, Report& r) {
  const std::uint64_t before = s.clock.systemTimeAsFileTime();
  const SystemTime t = s.clock.systemTime();
  VERIFY(t.year >= 2024);
  VERIFY(t.month >= 1 && t.month <= 12);
  VERIFY(t.day >= 1 && t.day <= 31);
  VERIFY(t.dayOfWeek <= 6);
  VERIFY(t.hour <= 23 && t.minute <= 59 && t.second <= 60 && t.milliseconds <= 999);
  s.clock.sleep(50);
  const std::uint64_t after = s.clock.systemTimeAsFileTime();
  VERIFY(after >= before + 40 * 10000ull);  // 100 ns units
  VERIFY(before > 133485408000000000ull);   // after 2024-01-01
}

inline void diskSignaturesComeFromWmi(Subject& s, Report& r) {
  VERIFY(s.process.comInitialize().ok);
  const SysResult<std::vector<std::uint32_t>> signatures = s.system.diskDriveSignatures();
  VERIFY(signatures.ok);
  if (signatures.ok) r.note(std::to_string(signatures.value.size()) + " signature(s)");
  else r.note("error " + hexText(signatures.error));
  s.process.comUninitialize();
}

// --- The mount-point manager.

inline void mountPointManagerOpensAndAnswersTheAutoMountQuery(Subject& s, Report& r) {
  SysResult<DeviceHandle> opened =
      DeviceHandle::open(s.io, L"\\\\.\\MountPointManager", kReadWrite, kShareReadWrite, DeviceIo::AttributeNormal);
  VERIFY(opened.ok);
  if (!opened.ok) {
    r.note("open error " + std::to_string(opened.error));
    return;
  }
  DeviceHandle& mgr = opened.value;
  std::uint32_t state = 0xAAAAAAAA;
  const SysResult<std::uint32_t> q = mgr.control(kQueryAutoMount, nullptr, 0, &state, sizeof(state));
  r.note("query: ok " + std::to_string(q.ok) + ", error " + std::to_string(q.error) + ", returned " +
         std::to_string(q.value) + ", state " + std::to_string(state));
  if (q.ok) {
    VERIFY_EQ(q.value, 4u);
  } else {
    // Wine's mount manager does not know the request (error 50).
    VERIFY_EQ(q.error, syserr::NotSupported);
  }
  // Set what is already in effect (enabled when the query cannot tell), so a
  // real machine keeps its setting.
  const std::uint32_t keep = q.ok ? (state ? 1u : 0u) : 1u;
  const SysResult<std::uint32_t> set = mgr.control(kSetAutoMount, &keep, sizeof(keep));
  r.note("set " + std::to_string(keep) + ": ok " + std::to_string(set.ok) + ", error " + std::to_string(set.error));
  if (!q.ok) VERIFY_EQ(set.error, syserr::NotSupported);
  else VERIFY(set.ok);
}

// --- A volume of its own: the scratch drive.

inline std::wstring driveRoot(Subject& s) { return std::wstring(1, s.fixture.scratchDrive()) + L":\\"; }
inline std::wstring driveDevice(Subject& s) { return L"\\\\.\\" + std::wstring(1, s.fixture.scratchDrive()) + L":"; }
inline std::uint32_t driveBit(Subject& s) { return 1u << (s.fixture.scratchDrive() - L'A'); }

inline bool haveDrive(Subject& s, Report& r) {
  if (s.fixture.scratchDrive()) return true;
  r.note("no scratch drive (VMDCTL_CONTRACT_DRIVE): skipped");
  return false;
}

inline void scratchDriveIsPresent(Subject& s, Report& r) {
  if (!haveDrive(s, r)) return;
  VERIFY(s.volumes.logicalDrives().value & driveBit(s));
  VERIFY_EQ(s.volumes.driveType(driveRoot(s)).value, drivetype::Fixed);
  VERIFY(s.volumes.volumeInformation(driveRoot(s)).ok);
}

inline void volumeLocksDismountsAndUnlocks(Subject& s, Report& r) {
  if (!haveDrive(s, r)) return;
  SysResult<DeviceHandle> opened =
      DeviceHandle::open(s.io, driveDevice(s), DeviceIo::GenericRead, kShareReadWrite, DeviceIo::AttributeNormal);
  VERIFY(opened.ok);
  VERIFY_EQ(opened.error, 0u);
  DeviceHandle& volume = opened.value;
  if (!volume.valid()) return;
  const SysResult<std::uint32_t> lock = volume.control(kLockVolume);
  const SysResult<std::uint32_t> dismount = volume.control(kDismountVolume);
  const SysResult<std::uint32_t> unlock = volume.control(kUnlockVolume);
  r.note("lock " + std::to_string(lock.ok) + "/" + std::to_string(lock.error) + ", dismount " +
         std::to_string(dismount.ok) + "/" + std::to_string(dismount.error) + ", unlock " + std::to_string(unlock.ok) +
         "/" + std::to_string(unlock.error));
  VERIFY(lock.ok);
  VERIFY(unlock.ok);
  // A folder is no block device: Wine refuses to dismount it (50) and leaves
  // the drive as it was. Windows dismounts a locked volume.
  VERIFY(dismount.ok || dismount.error == syserr::NotSupported);
  VERIFY(s.volumes.volumeInformation(driveRoot(s)).ok);
}

inline void volumeAnswersThePartitionQueryOrRefusesIt(Subject& s, Report& r) {
  if (!haveDrive(s, r)) return;
  DeviceHandle volume =
      DeviceHandle::open(s.io, driveDevice(s), DeviceIo::GenericRead, kShareReadWrite, DeviceIo::AttributeNormal).value;
  VERIFY(volume.valid());
  std::uint8_t info[32] = {};
  const SysResult<std::uint32_t> c = volume.control(kGetPartitionInfo, nullptr, 0, info, sizeof(info));
  // Wine has no partitions behind a mapped folder (50); on Windows a volume
  // answers with its PARTITION_INFORMATION, starting offset first.
  if (c.ok) VERIFY_EQ(c.value, 32u);
  else VERIFY_EQ(c.error, syserr::NotSupported);
}

inline void volumeFlushNeedsWriteAccess(Subject& s, Report& r) {
  if (!haveDrive(s, r)) return;
  DeviceHandle readOnly =
      DeviceHandle::open(s.io, driveDevice(s), DeviceIo::GenericRead, kShareReadWrite, DeviceIo::AttributeNormal).value;
  const SysStatus refused = readOnly.flush();
  DeviceHandle readWrite =
      DeviceHandle::open(s.io, driveDevice(s), kReadWrite, kShareReadWrite, DeviceIo::AttributeNormal).value;
  VERIFY(readWrite.valid());
  const SysStatus flushed = readWrite.flush();
  r.note("read only " + std::to_string(refused.ok) + "/" + std::to_string(refused.error) + ", read and write " +
         std::to_string(flushed.ok) + "/" + std::to_string(flushed.error));
  // Windows answers 5 for a volume opened for reading; Wine cannot flush a
  // folder's handle at all and answers 1 (invalid function) either way.
  VERIFY(!refused.ok);
  VERIFY(refused.error == syserr::AccessDenied || refused.error == syserr::InvalidFunction);
  VERIFY(flushed.ok || flushed.error == syserr::InvalidFunction);
}

inline void volumeMountPointsAreNotMovedByWine(Subject& s, Report& r) {
  if (!haveDrive(s, r)) return;
  const SysResult<std::wstring> name = s.volumes.volumeNameForMountPoint(driveRoot(s), 260);
  VERIFY(name.ok);
  if (!name.ok) return;
  VERIFY_EQ(name.value.rfind(L"\\\\?\\Volume{", 0), std::size_t{0});
  VERIFY_EQ(name.value.back(), L'\\');
  // Wine implements neither call (120, ERROR_CALL_NOT_IMPLEMENTED), so a
  // letter moved through the mount-point manager stays where it was; the
  // program then puts the volume back and reports the move as failed.
  const SysStatus set = s.volumes.setVolumeMountPoint(L"S:\\", name.value);
  const SysStatus del = s.volumes.deleteVolumeMountPoint(driveRoot(s));
  r.note("set S:\\ " + std::to_string(set.ok) + "/" + std::to_string(set.error) + ", delete " + toUtf8(driveRoot(s)) +
         " " + std::to_string(del.ok) + "/" + std::to_string(del.error));
  VERIFY(!set.ok);
  VERIFY_EQ(set.error, 120u);
  VERIFY(!del.ok);
  VERIFY_EQ(del.error, 120u);
  VERIFY(s.volumes.logicalDrives().value & driveBit(s));
  VERIFY(!(s.volumes.logicalDrives().value & (1u << (L'S' - L'A'))));
}

inline void volumeMountPointMovesAndComesBack(Subject& s, Report& r) {
  if (!haveDrive(s, r)) return;
  const SysResult<std::wstring> name = s.volumes.volumeNameForMountPoint(driveRoot(s), 260);
  VERIFY(name.ok);
  if (!name.ok) return;
  VERIFY_EQ(name.value.back(), L'\\');
  const std::uint32_t sBit = 1u << (L'S' - L'A');
  VERIFY(s.volumes.deleteVolumeMountPoint(driveRoot(s)).ok);
  VERIFY(!(s.volumes.logicalDrives().value & driveBit(s)));
  VERIFY(s.volumes.setVolumeMountPoint(L"S:\\", name.value).ok);
  VERIFY(s.volumes.logicalDrives().value & sBit);
  VERIFY_EQ(s.volumes.volumeNameForMountPoint(L"S:\\", 260).value, name.value);
  // A letter that is taken refuses the volume (145); nothing mounted there: 2.
  VERIFY_EQ(s.volumes.setVolumeMountPoint(L"C:\\", name.value).error, 145u);
  VERIFY_EQ(s.volumes.deleteVolumeMountPoint(L"Q:\\").error, syserr::FileNotFound);
  VERIFY(s.volumes.deleteVolumeMountPoint(L"S:\\").ok);
  VERIFY(s.volumes.setVolumeMountPoint(driveRoot(s), name.value).ok);
  VERIFY(s.volumes.logicalDrives().value & driveBit(s));
  VERIFY(!(s.volumes.logicalDrives().value & sBit));
}

inline void volumeLabelIsSetAndRemoved(Subject& s, Report& r) {
  if (!haveDrive(s, r)) return;
  const std::wstring label = L"VMDCTL";
  const std::wstring labelFile = driveRoot(s) + L".windows-label";
  VERIFY(s.volumes.setVolumeLabel(driveRoot(s), &label).ok);
  const SysResult<VolumeService::VolumeInfo> after = s.volumes.volumeInformation(driveRoot(s));
  VERIFY(after.ok);
  if (after.value.label != label) {
    // Wine keeps the label of a mapped folder in a file at its root, and
    // GetVolumeInformationW goes on answering the mount manager's label.
    const SysResult<Bytes> kept = s.files.readHead(labelFile, 64);
    VERIFY(kept.ok);
    VERIFY_EQ(std::string(kept.value.begin(), kept.value.end()), std::string("VMDCTL\n"));
  }
  VERIFY(s.volumes.setVolumeLabel(driveRoot(s), nullptr).ok);
  VERIFY_EQ(s.volumes.volumeInformation(driveRoot(s)).value.label, std::wstring());
  const SysResult<Bytes> removed = s.files.readHead(labelFile, 64);
  VERIFY(!removed.ok || removed.value.size() <= 1);
  const SysStatus missing = s.volumes.setVolumeLabel(L"Q:\\", &label);
  VERIFY(!missing.ok);
  VERIFY(missing.error != 0);
  r.note("Q: error " + std::to_string(missing.error));
}

// --- Broadcasts.

inline void broadcastOfAVolumeArrival(Subject& s, Report& r) {
  // DEV_BROADCAST_VOLUME for Q: (unit mask bit 16), 20 bytes with its padding.
  const Bytes record{20, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0};
  const SysResult<std::int32_t> arrival = s.broadcast.broadcast(0x122, 0x219, 0x8000, record);
  r.note("result " + std::to_string(arrival.value));
  VERIFY(arrival.ok);
  VERIFY(arrival.value > 0);
  const SysResult<std::int32_t> removal = s.broadcast.broadcast(0x122, 0x219, 0x8004, record);
  VERIFY(removal.ok);
  VERIFY(removal.value > 0);
  // Flags the system does not know: Windows refuses with -1 (not ok), Wine
  // answers 0, a broadcast that reached nobody; neither answers a success.
  const SysResult<std::int32_t> bad = s.broadcast.broadcast(0x80000000u | 0x122, 0x219, 0x8000, record);
  r.note("unknown flags: ok " + std::to_string(bad.ok) + ", result " + std::to_string(bad.value));
  VERIFY(bad.value <= 0);
  VERIFY(!bad.ok || bad.value == 0);
}

#undef VERIFY
#undef VERIFY_EQ

// Which side a check runs on; a one-sided check says why.
enum class Runs { Both, WineOnly, SimOnly };

struct Check {
  const char* name;
  void (*body)(Subject&, Report&);
  Runs runs = Runs::Both;
  const char* why = "";
};

inline const std::vector<Check>& checks() {
  static const std::vector<Check> all = {
      {"catalog.every_message_formats_as_the_catalogue_says", everyMessageFormatsAsTheCatalogueSays},
      {"catalog.banner_insert_is_filled", bannerInsertIsFilled},
      {"catalog.inserts_not_given_read_as_empty", insertsNotGivenReadAsEmpty},
      {"catalog.missing_message_is_nothing", missingMessageIsNothing},
      {"catalog.every_string_loads_as_the_catalogue_says", everyStringLoadsAsTheCatalogueSays},
      {"catalog.missing_string_is_empty", missingStringIsEmpty},
      {"keys.key_without_console_input_is_none", keyWithoutConsoleInputIsNone},
      {"process.framework_starts", frameworkStarts},
      {"process.second_mutex_of_the_same_name_reports_already_exists", secondMutexOfTheSameNameReportsAlreadyExists},
      {"process.token_holds_administrators", tokenHoldsAdministrators},
      {"process.com_starts_and_stops", comStartsAndStops},
      {"setup.no_controller_means_an_empty_set", noControllerMeansAnEmptySet},
      {"setup.volume_interfaces_come_in_index_order_with_paths", volumeInterfacesComeInIndexOrderWithPaths},
      {"io.opening_a_missing_device_gives_the_error", openingAMissingDeviceGivesTheError},
      {"io.a_file_opens_flushes_and_refuses_disk_requests", aFileOpensFlushesAndRefusesDiskRequests},
      {"volumes.drive_c_is_there", driveCIsThere},
      {"volumes.drive_z_maps_the_unix_root", driveZMapsTheUnixRoot, Runs::WineOnly,
       "Z: is Wine's own drive for the Unix file system"},
      {"volumes.drive_types", driveTypes},
      {"volumes.volume_information_of_c", volumeInformationOfC},
      {"volumes.volume_information_of_a_missing_drive_fails", volumeInformationOfAMissingDriveFails},
      {"volumes.free_space_of_c", freeSpaceOfC},
      {"volumes.mount_point_of_a_missing_drive_is_refused", mountPointOfAMissingDriveIsRefused},
      {"volumes.volume_name_and_path_names_of_c", volumeNameAndPathNamesOfC},
      {"volumes.deleting_a_mount_point_that_is_none_fails", deletingAMountPointThatIsNoneFails},
      {"files.whole_write_then_size_attributes_and_head", wholeWriteThenSizeAttributesAndHead},
      {"files.missing_file_answers", missingFileAnswers},
      {"files.whole_write_leaves_exactly_the_bytes", wholeWriteLeavesExactlyTheBytes},
      {"files.write_over_a_folder_is_open_failed", writeOverAFolderIsOpenFailed},
      {"files.write_into_a_missing_folder_is_open_failed", writeIntoAMissingFolderIsOpenFailed, Runs::WineOnly,
       "the simulated machine keeps files without their folders: any path can be created"},
      {"files.folders_are_directories", foldersAreDirectories},
      {"registry.missing_key_reads_nothing", missingKeyReadsNothing},
      {"registry.values_are_written_enumerated_read_and_deleted", valuesAreWrittenEnumeratedReadAndDeleted},
      {"registry.mounted_devices_opens_for_write", mountedDevicesOpensForWrite},
      {"system.memory_is_reported", memoryIsReported},
      {"system.windows_directory_is_c_windows", windowsDirectoryIsCWindows},
      {"system.clock_agrees_with_itself_and_sleep_waits", clockAgreesWithItselfAndSleepWaits},
      {"system.disk_signatures_come_from_wmi", diskSignaturesComeFromWmi},
      {"handle.closes_once_after_moves", deviceHandleClosesOnceAfterMoves},
      {"handle.close_is_explicit_and_final", deviceHandleCloseIsExplicitAndFinal},
      {"handle.that_did_not_open_closes_nothing", deviceHandleThatDidNotOpenClosesNothing},
      {"mountmgr.opens_and_answers_the_auto_mount_query", mountPointManagerOpensAndAnswersTheAutoMountQuery},
      {"drive.scratch_drive_is_present", scratchDriveIsPresent},
      {"drive.volume_locks_dismounts_and_unlocks", volumeLocksDismountsAndUnlocks},
      {"drive.volume_answers_the_partition_query_or_refuses_it", volumeAnswersThePartitionQueryOrRefusesIt},
      {"drive.volume_flush_needs_write_access", volumeFlushNeedsWriteAccess},
      {"drive.volume_mount_points_are_not_moved_by_wine", volumeMountPointsAreNotMovedByWine, Runs::WineOnly,
       "Wine implements neither SetVolumeMountPointW nor DeleteVolumeMountPointW (120)"},
      {"drive.volume_mount_point_moves_and_comes_back", volumeMountPointMovesAndComesBack, Runs::SimOnly,
       "Wine cannot move a letter (120); Windows and the simulated machine do"},
      {"drive.volume_label_is_set_and_removed", volumeLabelIsSetAndRemoved},
      {"registry.drive_letter_values_are_walked_with_small_buffers", driveLetterValuesAreWalkedWithSmallBuffers},
      {"registry.mounted_devices_holds_the_drives", mountedDevicesHoldsTheDrives},
      {"registry.values_are_read_with_read_access_alone", valuesAreReadWithReadAccessAlone},
      {"broadcast.of_a_volume_arrival", broadcastOfAVolumeArrival},
  };
  return all;
}

inline bool runsOn(const Check& c, Side side) {
  return c.runs == Runs::Both || (c.runs == Runs::WineOnly) == (side == Side::Wine);
}

}  // namespace vmd::contract
