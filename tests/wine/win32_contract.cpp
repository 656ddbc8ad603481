// The Win32 side of the OS boundary against the system it runs on (Wine in
// the test run): what the interface comments promise, checked wherever the
// system can answer without a controller. Prints one line per test and ends
// with "N passed, N failed"; exit code 0 only when all passed.
//
//   vmdctl-contract.exe [name-substring]
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <string>
#include <vector>

#include "platform/host.h"
#include "platform/message_text.h"
#include "platform/win32/win32.h"
#include "platform/win32/win32_platform.h"
#include "resources/catalogue_data.h"
#include "base/text_codec.h"

namespace {

using namespace vmd;

struct Context {
  std::unique_ptr<MessageCatalog> catalog = makeHostCatalog();
  std::unique_ptr<ProcessEnvironment> process = win32::makeProcessEnvironment();
  std::unique_ptr<DeviceSetup> setup = win32::makeDeviceSetup();
  std::unique_ptr<DeviceIo> io = win32::makeDeviceIo();
  std::unique_ptr<VolumeService> volumes = win32::makeVolumeService();
  std::unique_ptr<FileService> files = win32::makeFileService();
  std::unique_ptr<Registry> registry = win32::makeRegistry();
  std::unique_ptr<SystemInfo> system = win32::makeSystemInfo();
  std::unique_ptr<Clock> clock = win32::makeClock();
  std::unique_ptr<DeviceBroadcast> broadcast = win32::makeDeviceBroadcast();
  std::wstring scratch;  // a folder for files, C:\windows\temp
  // A drive that check_contract.py maps to a scratch folder of its own
  // (VMDCTL_CONTRACT_DRIVE, e.g. "T"); 0 when there is none.
  wchar_t drive = 0;
};

int failuresInTest = 0;

std::string show(const std::wstring& s) { return "\"" + toUtf8(s) + "\""; }
std::string show(const std::string& s) { return "\"" + s + "\""; }
template <class T>
std::string show(const T& v) {
  return std::to_string(v);
}

void report(int line, const std::string& what) {
  ++failuresInTest;
  std::printf("    line %d: %s\n", line, what.c_str());
}

#define CHECK(cond)                               \
  do {                                            \
    if (!(cond)) report(__LINE__, "not " #cond); \
  } while (0)
#define CHECK_EQ(a, b)                                                                          \
  do {                                                                                          \
    const auto& a_ = (a);                                                                       \
    const auto& b_ = (b);                                                                       \
    if (!(a_ == b_)) report(__LINE__, #a " == " #b ": " + show(a_) + " against " + show(b_)); \
  } while (0)

bool sameNoCase(const std::wstring& a, const std::wstring& b) { return equalsNoCase(a, b); }

std::wstring uniqueName(const wchar_t* stem) {
  return std::wstring(stem) + std::to_wstring(static_cast<unsigned long long>(std::time(nullptr))) + L"-" +
         std::to_wstring(std::rand());
}

Bytes pattern(std::size_t n) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<std::uint8_t>(i * 7 + 3);
  return b;
}

// --- Message and string tables: the resources say what the catalogue says.

void everyMessageFormatsAsTheCatalogueSays(Context& c) {
  const std::vector<const wchar_t*> inserts{L"vmdctl.exe", L"edit"};
  int n = 0;
  for (const catalogue::Entry* e = catalogue::kMessages; e->text; ++e, ++n) {
    const std::optional<std::wstring> got = c.catalog->formatMessage(e->id, inserts);
    CHECK(got.has_value());
    if (got) CHECK_EQ(*got, expandMessageInserts(e->text, inserts));
  }
  CHECK(n > 0);
}

void bannerInsertIsFilled(Context& c) {
  CHECK_EQ(c.catalog->formatMessage(0x1000, {L"5.7.0"}).value_or(L"?"),
           std::wstring(L"Tarnby Ramdisk Commander  Version 5.7.0\r\n"));
}

void insertsNotGivenReadAsEmpty(Context& c) {
  CHECK_EQ(c.catalog->formatMessage(0x1002, {L"vmdctl"}).value_or(L"?"),
           std::wstring(L"vmdctl: Invalid use of command ''.\r\nFor more information, type: vmdctl ?\x20\r\n"));
}

void missingMessageIsNothing(Context& c) { CHECK(!c.catalog->formatMessage(0x7777, {L"x"}).has_value()); }

void everyStringLoadsAsTheCatalogueSays(Context& c) {
  for (const catalogue::Entry* e = catalogue::kStrings; e->text; ++e) CHECK_EQ(c.catalog->loadString(e->id), std::wstring(e->text));
  CHECK_EQ(c.catalog->loadString(103), std::wstring(L"Tarnby Ramdisk"));
}

void missingStringIsEmpty(Context& c) { CHECK_EQ(c.catalog->loadString(9999), std::wstring()); }

// --- Process start-up services.

void frameworkStarts(Context& c) { CHECK(c.process->initFramework()); }

void secondMutexOfTheSameNameReportsAlreadyExists(Context& c) {
  const std::wstring name = uniqueName(L"vmdctl-contract-");
  const ProcessEnvironment::MutexResult first = c.process->createInstanceMutex(name);
  CHECK(first.created);
  CHECK_EQ(first.error, 0u);
  const ProcessEnvironment::MutexResult second = c.process->createInstanceMutex(name);
  CHECK(second.created);
  CHECK_EQ(second.error, syserr::AlreadyExists);
}

void tokenHoldsAdministrators(Context& c) { CHECK(c.process->tokenHasAdministrators()); }

void comStartsAndStops(Context& c) {
  CHECK(c.process->comInitialize() >= 0);
  c.process->comUninitialize();
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

void noControllerMeansAnEmptySet(Context& c) {
  const auto found = c.setup->presentInterfaces(kControllerClass, DeviceSetup::Scope::FirstOnly);
  CHECK(found.has_value());
  if (found) CHECK_EQ(found->size(), std::size_t{0});
}

void volumeInterfacesComeInIndexOrderWithPaths(Context& c) {
  const auto found = c.setup->presentInterfaces(kVolumeClass, DeviceSetup::Scope::All);
  CHECK(found.has_value());
  if (!found) return;
  std::printf("    %zu volume interface(s)\n", found->size());
  for (std::size_t i = 0; i < found->size(); ++i) {
    CHECK(!(*found)[i].path.empty());
    if (i > 0) CHECK((*found)[i].index > (*found)[i - 1].index);
  }
}

void openingAMissingDeviceGivesTheError(Context& c) {
  const DeviceIo::OpenResult r =
      c.io->open(L"\\\\.\\VelmoRdDevPort0Target0", DeviceIo::GenericRead | DeviceIo::GenericWrite,
                 DeviceIo::ShareRead | DeviceIo::ShareWrite, DeviceIo::OpenExisting, 0);
  CHECK_EQ(r.handle, DeviceIo::Invalid);
  CHECK(r.error == syserr::FileNotFound || r.error == syserr::PathNotFound);
}

void aFileOpensFlushesAndRefusesDiskRequests(Context& c) {
  const std::wstring path = c.scratch + L"\\" + uniqueName(L"io-") + L".bin";
  CHECK_EQ(c.files->writeWhole(path, pattern(100)), 0u);
  const DeviceIo::OpenResult r = c.io->open(path, DeviceIo::GenericRead | DeviceIo::GenericWrite,
                                            DeviceIo::ShareRead | DeviceIo::ShareWrite, DeviceIo::OpenExisting,
                                            DeviceIo::AttributeNormal);
  CHECK(r.handle != DeviceIo::Invalid);
  CHECK_EQ(r.error, 0u);
  if (r.handle == DeviceIo::Invalid) return;
  CHECK(c.io->flush(r.handle).ok);
  std::uint8_t out[32] = {};
  const DeviceIo::ControlResult ctl = c.io->control(r.handle, kGetPartitionInfo, nullptr, 0, out, sizeof(out));
  CHECK(!ctl.ok);
  CHECK(ctl.error != 0);
  c.io->close(r.handle);
  _wremove(path.c_str());
}

// --- Volumes.

void drivesCAndZAreThere(Context& c) {
  const std::uint32_t mask = c.volumes->logicalDrives();
  CHECK(mask & (1u << 2));
  CHECK(mask & (1u << 25));
}

void driveTypes(Context& c) {
  CHECK_EQ(c.volumes->driveType(L"C:\\"), drivetype::Fixed);
  CHECK_EQ(c.volumes->driveType(L"Q:\\"), drivetype::NoRootDir);
}

void volumeInformationOfC(Context& c) {
  const VolumeService::VolumeInfo v = c.volumes->volumeInformation(L"C:\\");
  CHECK(v.ok);
  CHECK_EQ(v.error, 0u);
  CHECK(!v.fileSystem.empty());
  CHECK(v.fileSystem.size() <= 24);
  CHECK(v.label.size() <= 259);
  std::printf("    C:\\ label %s, file system %s, serial %08X\n", show(v.label).c_str(), show(v.fileSystem).c_str(),
              v.serial);
}

void volumeInformationOfAMissingDriveFails(Context& c) {
  const VolumeService::VolumeInfo v = c.volumes->volumeInformation(L"Q:\\");
  CHECK(!v.ok);
  CHECK(v.error != 0);
}

void freeSpaceOfC(Context& c) {
  const VolumeService::FreeSpace f = c.volumes->diskFreeSpace(L"C:\\");
  CHECK(f.ok);
  CHECK(f.bytesPerSector > 0);
  CHECK(f.sectorsPerCluster > 0);
  CHECK(f.freeClusters <= f.totalClusters);
  const VolumeService::FreeSpaceEx e = c.volumes->diskFreeSpaceEx(L"C:\\");
  CHECK(e.ok);
  CHECK(e.totalBytes > 0);
  CHECK(e.totalFree <= e.totalBytes);
  const VolumeService::FreeSpace missing = c.volumes->diskFreeSpace(L"Q:\\");
  CHECK(!missing.ok);
  CHECK(missing.error != 0);
}

void mountPointOfAMissingDriveIsRefused(Context& c) {
  const VolumeService::Text t = c.volumes->volumeNameForMountPoint(L"Q:\\", 50);
  CHECK(!t.ok);
  CHECK(t.error != 0);
}

void volumeNameAndPathNamesOfC(Context& c) {
  const VolumeService::Text name = c.volumes->volumeNameForMountPoint(L"C:\\", 50);
  if (!name.ok) {
    std::printf("    no volume name for C:\\ (error %u)\n", name.error);
    CHECK(name.error != 0);
    return;
  }
  CHECK_EQ(name.value.rfind(L"\\\\?\\Volume{", 0), std::size_t{0});
  const VolumeService::PathNames small = c.volumes->volumePathNames(name.value, 2);
  CHECK(!small.ok);
  CHECK_EQ(small.error, syserr::MoreData);
  CHECK(small.needed > 2);
  const VolumeService::PathNames all = c.volumes->volumePathNames(name.value, small.needed);
  CHECK(all.ok);
  CHECK(all.multiString.size() >= 2);
  CHECK(all.multiString.size() >= 2 && all.multiString.back() == 0 && all.multiString[all.multiString.size() - 2] == 0);
  CHECK(sameNoCase(std::wstring(all.multiString.data()), L"C:\\"));
}

void deletingAMountPointThatIsNoneFails(Context& c) {
  const DeviceIo::Status s = c.volumes->deleteVolumeMountPoint(c.scratch + L"\\" + uniqueName(L"nomount-") + L"\\");
  CHECK(!s.ok);
  // Wine's DeleteVolumeMountPointW fails without setting a last error, so
  // only the failure itself is checked.
  std::printf("    error %u\n", s.error);
}

// --- Files.

void wholeWriteThenSizeAttributesAndHead(Context& c) {
  const std::wstring path = c.scratch + L"\\" + uniqueName(L"file-") + L".img";
  const Bytes data = pattern(3000);
  CHECK_EQ(c.files->writeWhole(path, data), 0u);
  const std::uint32_t attrs = c.files->attributes(path);
  CHECK(attrs != InvalidFileAttributes);
  CHECK((attrs & 0x10) == 0);
  CHECK(!c.files->pathIsDirectory(path));
  const FileService::Size size = c.files->fileSize(path);
  CHECK(size.ok);
  CHECK_EQ(size.bytes, std::uint64_t{3000});
  const std::optional<Bytes> head = c.files->readHead(path, 512);
  CHECK(head.has_value());
  if (head) CHECK(*head == Bytes(data.begin(), data.begin() + 512));
  const std::optional<Bytes> all = c.files->readHead(path, 5000);
  CHECK(all.has_value());
  if (all) CHECK(*all == data);
  // A second write replaces the whole file.
  CHECK_EQ(c.files->writeWhole(path, pattern(10)), 0u);
  CHECK_EQ(c.files->fileSize(path).bytes, std::uint64_t{10});
  _wremove(path.c_str());
}

void missingFileAnswers(Context& c) {
  const std::wstring path = c.scratch + L"\\" + uniqueName(L"missing-");
  CHECK_EQ(c.files->attributes(path), InvalidFileAttributes);
  const FileService::Size size = c.files->fileSize(path);
  CHECK(!size.ok);
  CHECK_EQ(size.error, syserr::FileNotFound);
  CHECK(!c.files->readHead(path, 16).has_value());
  CHECK(!c.files->pathIsDirectory(path));
}

void wholeWriteLeavesExactlyTheBytes(Context& c) {
  const std::wstring path = c.scratch + L"\\" + uniqueName(L"bytes-") + L".bin";
  const Bytes data = pattern(70000);
  CHECK_EQ(c.files->writeWhole(path, data), 0u);
  win32::FileHandle file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                       FILE_ATTRIBUTE_NORMAL, nullptr));
  CHECK(file.valid());
  if (file) {
    Bytes back(data.size() + 16);
    DWORD got = 0;
    CHECK(::ReadFile(file.get(), back.data(), static_cast<DWORD>(back.size()), &got, nullptr));
    back.resize(got);
    CHECK(back == data);
  }
  file.reset();
  CHECK_EQ(c.files->writeWhole(path, Bytes{}), 0u);
  CHECK_EQ(c.files->fileSize(path).bytes, std::uint64_t{0});
  _wremove(path.c_str());
}

void writeThatCannotCreateIsOpenFailed(Context& c) {
  CHECK_EQ(c.files->writeWhole(c.scratch + L"\\no-such-folder\\x\\f.bin", pattern(4)), syserr::OpenFailed);
  CHECK_EQ(c.files->writeWhole(c.scratch, pattern(4)), syserr::OpenFailed);
}

void foldersAreDirectories(Context& c) {
  CHECK(c.files->pathIsDirectory(c.scratch));
  CHECK(c.files->pathIsDirectory(L"C:\\"));
  CHECK(c.files->attributes(c.scratch) & 0x10);
}

// --- Registry (HKEY_LOCAL_MACHINE).

void missingKeyReadsNothing(Context& c) {
  CHECK(!c.registry->readDword(L"SYSTEM\\CurrentControlSet\\services\\kelvdrv\\Parameters", L"EnableIM").has_value());
  CHECK(!c.registry->readDword(L"SOFTWARE", uniqueName(L"no-value-")).has_value());
  std::uint32_t error = 0;
  CHECK(c.registry->openForWrite(L"SOFTWARE\\" + uniqueName(L"no-key-"), error) == nullptr);
  CHECK_EQ(error, syserr::FileNotFound);
}

void valuesAreWrittenEnumeratedReadAndDeleted(Context& c) {
  std::uint32_t error = 1;
  std::unique_ptr<Registry::Key> key = c.registry->openForWrite(L"SOFTWARE", error);
  CHECK(key != nullptr);
  CHECK_EQ(error, 0u);
  if (!key) return;
  const std::wstring four = uniqueName(L"vmdctl-contract-4-");
  const std::wstring twelve = uniqueName(L"vmdctl-contract-12-");
  CHECK_EQ(key->setBinary(four, Bytes{0x01, 0x02, 0x03, 0x04}), 0u);
  CHECK_EQ(key->setBinary(twelve, pattern(12)), 0u);

  CHECK_EQ(c.registry->readDword(L"SOFTWARE", four).value_or(0), 0x04030201u);
  CHECK(!c.registry->readDword(L"SOFTWARE", twelve).has_value());  // not 4 bytes

  bool seen = false, sawTooLong = false;
  std::uint32_t index = 0, rc = 0;
  for (; index < 10000; ++index) {
    Registry::Value v;
    rc = key->enumValue(index, 64, 16, v);
    if (rc == syserr::NoMoreItems) break;
    if (rc != 0) continue;
    if (v.name == twelve) {
      seen = true;
      CHECK_EQ(v.type, 3u);  // REG_BINARY
      CHECK(v.data == pattern(12));
      Registry::Value shortName;
      sawTooLong = key->enumValue(index, 4, 16, shortName) == syserr::MoreData;
      Registry::Value shortData;
      CHECK_EQ(key->enumValue(index, 64, 8, shortData), syserr::MoreData);
    }
  }
  CHECK_EQ(rc, syserr::NoMoreItems);
  CHECK(seen);
  CHECK(sawTooLong);

  CHECK_EQ(key->deleteValue(four), 0u);
  CHECK_EQ(key->deleteValue(twelve), 0u);
  CHECK_EQ(key->deleteValue(twelve), syserr::FileNotFound);
  CHECK(!c.registry->readDword(L"SOFTWARE", four).has_value());
}

void mountedDevicesOpensForWrite(Context& c) {
  std::uint32_t error = 1;
  std::unique_ptr<Registry::Key> key = c.registry->openForWrite(L"SYSTEM\\MountedDevices", error);
  if (!key) std::printf("    SYSTEM\\MountedDevices: error %u\n", error);
  CHECK(key != nullptr);
}

// --- System information.

void memoryIsReported(Context& c) {
  const std::optional<SystemInfo::Memory> m = c.system->memoryStatus();
  CHECK(m.has_value());
  if (m) {
    CHECK(m->totalPhys > 0);
    CHECK(m->availPhys <= m->totalPhys);
  }
}

void windowsDirectoryIsCWindows(Context& c) {
  const std::optional<std::wstring> dir = c.system->windowsDirectory();
  CHECK(dir.has_value());
  if (dir) CHECK(sameNoCase(*dir, L"C:\\windows"));
}

void clockAgreesWithItselfAndSleepWaits(Context& c) {
  const std::uint64_t before = c.clock->systemTimeAsFileTime();
  const SystemTime t = c.clock->systemTime();
  CHECK(t.year >= 2024);
  CHECK(t.month >= 1 && t.month <= 12);
  CHECK(t.day >= 1 && t.day <= 31);
  CHECK(t.dayOfWeek <= 6);
  CHECK(t.hour <= 23 && t.minute <= 59 && t.second <= 60 && t.milliseconds <= 999);
  c.clock->sleep(50);
  const std::uint64_t after = c.clock->systemTimeAsFileTime();
  CHECK(after >= before + 40 * 10000ull);  // 100 ns units
  CHECK(before > 133485408000000000ull);   // after 2024-01-01
}

void diskSignaturesComeFromWmi(Context& c) {
  CHECK(c.process->comInitialize() >= 0);
  const auto signatures = c.system->diskDriveSignatures();
  CHECK(signatures.has_value());
  if (signatures) std::printf("    %zu signature(s)\n", signatures->size());
  c.process->comUninitialize();
}

void keyWithoutConsoleInputIsNone(Context& c) {
  std::unique_ptr<KeyReader> keys = win32::makeKeyReader();
  const int key = keys->readKey();
  std::printf("    key %d\n", key);
  CHECK_EQ(key, -1);
}

// --- Device handles that close themselves.

// Counts the closes that reach the system, and whether each handle was still open.
class CountingIo : public DeviceIo {
 public:
  explicit CountingIo(DeviceIo& inner) : inner_(inner) {}
  OpenResult open(const std::wstring& path, std::uint32_t access, std::uint32_t share, std::uint32_t disposition,
                  std::uint32_t flags) override {
    return inner_.open(path, access, share, disposition, flags);
  }
  ControlResult control(Handle h, std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                        std::uint32_t outSize) override {
    return inner_.control(h, code, in, inSize, out, outSize);
  }
  Status flush(Handle h) override { return inner_.flush(h); }
  void close(Handle h) override {
    DWORD flags = 0;
    if (::GetHandleInformation(win32::fromHandleValue(h), &flags)) ++closedOpen;
    ++closes;
    inner_.close(h);
  }
  int closes = 0;
  int closedOpen = 0;

 private:
  DeviceIo& inner_;
};

bool handleIsOpen(DeviceIo::Handle h) {
  DWORD flags = 0;
  return ::GetHandleInformation(win32::fromHandleValue(h), &flags) != FALSE;
}

void deviceHandleClosesOnceAfterMoves(Context& c) {
  const std::wstring path = c.scratch + L"\\" + uniqueName(L"handle-") + L".bin";
  CHECK_EQ(c.files->writeWhole(path, pattern(8)), 0u);
  CountingIo io(*c.io);
  {
    std::uint32_t error = 99;
    DeviceHandle first = DeviceHandle::open(io, path, kReadWrite, kShareReadWrite, DeviceIo::AttributeNormal, &error);
    CHECK(first.valid());
    CHECK_EQ(error, 0u);
    DeviceHandle second(std::move(first));
    CHECK(!first.valid());
    CHECK(second.valid());
    DeviceHandle third;
    third = std::move(second);
    CHECK(!second.valid());
    CHECK(third.valid());
    CHECK(third.flush().ok);
    third = std::move(third);  // moving onto itself keeps it
    CHECK(third.valid());
    CHECK_EQ(io.closes, 0);
    // The moved-to handle still reaches the file: a file refuses disk requests.
    std::uint8_t out[32] = {};
    const DeviceIo::ControlResult r = third.control(kGetPartitionInfo, nullptr, 0, out, sizeof(out));
    CHECK(!r.ok);
    CHECK(r.error != syserr::InvalidHandle);
  }
  CHECK_EQ(io.closes, 1);
  CHECK_EQ(io.closedOpen, 1);
  _wremove(path.c_str());
}

void deviceHandleCloseIsExplicitAndFinal(Context& c) {
  const std::wstring path = c.scratch + L"\\" + uniqueName(L"handle-") + L".bin";
  CHECK_EQ(c.files->writeWhole(path, pattern(8)), 0u);
  CountingIo io(*c.io);
  const DeviceIo::OpenResult r = io.open(path, kReadWrite, kShareReadWrite, DeviceIo::OpenExisting, 0);
  CHECK(r.handle != DeviceIo::Invalid);
  {
    DeviceHandle h(io, r.handle);
    h.close();
    CHECK(!h.valid());
    CHECK(!handleIsOpen(r.handle));
    CHECK_EQ(h.control(kGetPartitionInfo).error, syserr::InvalidHandle);
    CHECK_EQ(h.flush().error, syserr::InvalidHandle);
  }
  CHECK_EQ(io.closes, 1);
  _wremove(path.c_str());
}

void deviceHandleThatDidNotOpenClosesNothing(Context& c) {
  CountingIo io(*c.io);
  std::uint32_t error = 0;
  {
    DeviceHandle h = DeviceHandle::open(io, L"\\\\.\\VelmoRdDevPort0Target0", DeviceIo::GenericRead,
                                        DeviceIo::ShareRead, DeviceIo::AttributeNormal, &error);
    CHECK(!h.valid());
  }
  CHECK(error == syserr::FileNotFound || error == syserr::PathNotFound);
  CHECK_EQ(io.closes, 0);
}

// --- The mount-point manager.

void mountPointManagerOpensAndAnswersTheAutoMountQuery(Context& c) {
  std::uint32_t error = 0;
  DeviceHandle mgr = DeviceHandle::open(*c.io, L"\\\\.\\MountPointManager", kReadWrite, kShareReadWrite,
                                        DeviceIo::AttributeNormal, &error);
  CHECK(mgr.valid());
  if (!mgr.valid()) {
    std::printf("    open error %u\n", error);
    return;
  }
  std::uint32_t state = 0xAAAAAAAA;
  const DeviceIo::ControlResult q = mgr.control(kQueryAutoMount, nullptr, 0, &state, sizeof(state));
  std::printf("    query: ok %d, error %u, returned %u, state %u\n", q.ok, q.error, q.returned, state);
  if (q.ok) {
    CHECK_EQ(q.returned, 4u);
  } else {
    // Wine's mount manager does not know the request (error 50).
    CHECK_EQ(q.error, syserr::NotSupported);
  }
  // Set what is already in effect (enabled when the query cannot tell), so a
  // real machine keeps its setting.
  const std::uint32_t keep = q.ok ? (state ? 1u : 0u) : 1u;
  const DeviceIo::ControlResult s = mgr.control(kSetAutoMount, &keep, sizeof(keep));
  std::printf("    set %u: ok %d, error %u\n", keep, s.ok, s.error);
  if (!q.ok) CHECK_EQ(s.error, syserr::NotSupported);
  else CHECK(s.ok);
}

// --- A volume of its own: the drive check_contract.py maps.

std::wstring driveRoot(const Context& c) { return std::wstring(1, c.drive) + L":\\"; }
std::wstring driveDevice(const Context& c) { return L"\\\\.\\" + std::wstring(1, c.drive) + L":"; }

bool haveDrive(const Context& c) {
  if (c.drive) return true;
  std::printf("    no scratch drive (VMDCTL_CONTRACT_DRIVE): skipped\n");
  return false;
}

void scratchDriveIsPresent(Context& c) {
  if (!haveDrive(c)) return;
  CHECK(c.volumes->logicalDrives() & (1u << (c.drive - L'A')));
  CHECK_EQ(c.volumes->driveType(driveRoot(c)), drivetype::Fixed);
  CHECK(c.volumes->volumeInformation(driveRoot(c)).ok);
}

void volumeLocksDismountsAndUnlocks(Context& c) {
  if (!haveDrive(c)) return;
  std::uint32_t error = 99;
  DeviceHandle volume = DeviceHandle::open(*c.io, driveDevice(c), DeviceIo::GenericRead, kShareReadWrite,
                                           DeviceIo::AttributeNormal, &error);
  CHECK(volume.valid());
  CHECK_EQ(error, 0u);
  if (!volume.valid()) return;
  const DeviceIo::ControlResult lock = volume.control(kLockVolume);
  const DeviceIo::ControlResult dismount = volume.control(kDismountVolume);
  const DeviceIo::ControlResult unlock = volume.control(kUnlockVolume);
  std::printf("    lock %d/%u, dismount %d/%u, unlock %d/%u\n", lock.ok, lock.error, dismount.ok, dismount.error,
              unlock.ok, unlock.error);
  CHECK(lock.ok);
  CHECK(unlock.ok);
  // A folder is no block device: Wine refuses to dismount it (50) and leaves
  // the drive as it was. Windows dismounts a locked volume.
  CHECK(dismount.ok || dismount.error == syserr::NotSupported);
  CHECK(c.volumes->volumeInformation(driveRoot(c)).ok);
}

void volumeRefusesThePartitionQuery(Context& c) {
  if (!haveDrive(c)) return;
  DeviceHandle volume =
      DeviceHandle::open(*c.io, driveDevice(c), DeviceIo::GenericRead, kShareReadWrite, DeviceIo::AttributeNormal);
  CHECK(volume.valid());
  std::uint8_t info[32] = {};
  const DeviceIo::ControlResult r = volume.control(kGetPartitionInfo, nullptr, 0, info, sizeof(info));
  // Wine has no partitions behind a mapped folder (50); on Windows a volume
  // answers with its PARTITION_INFORMATION, starting offset first.
  if (r.ok) CHECK_EQ(r.returned, 32u);
  else CHECK_EQ(r.error, syserr::NotSupported);
}

void volumeFlushNeedsWriteAccess(Context& c) {
  if (!haveDrive(c)) return;
  DeviceHandle readOnly =
      DeviceHandle::open(*c.io, driveDevice(c), DeviceIo::GenericRead, kShareReadWrite, DeviceIo::AttributeNormal);
  const SysStatus refused = readOnly.flush();
  DeviceHandle readWrite =
      DeviceHandle::open(*c.io, driveDevice(c), kReadWrite, kShareReadWrite, DeviceIo::AttributeNormal);
  CHECK(readWrite.valid());
  const SysStatus flushed = readWrite.flush();
  std::printf("    read only %d/%u, read and write %d/%u\n", refused.ok, refused.error, flushed.ok, flushed.error);
  // Windows answers 5 for a volume opened for reading; Wine cannot flush a
  // folder's handle at all and answers 1 (invalid function) either way.
  CHECK(!refused.ok);
  CHECK(refused.error == syserr::AccessDenied || refused.error == syserr::InvalidFunction);
  CHECK(flushed.ok || flushed.error == syserr::InvalidFunction);
}

void volumeMountPointsAreNotMovedByWine(Context& c) {
  if (!haveDrive(c)) return;
  const VolumeService::Text name = c.volumes->volumeNameForMountPoint(driveRoot(c), 260);
  CHECK(name.ok);
  if (!name.ok) return;
  CHECK_EQ(name.value.rfind(L"\\\\?\\Volume{", 0), std::size_t{0});
  CHECK_EQ(name.value.back(), L'\\');
  // Wine implements neither call (120, ERROR_CALL_NOT_IMPLEMENTED), so a
  // letter moved through the mount-point manager stays where it was; the
  // program then puts the volume back and reports the move as failed.
  const SysStatus set = c.volumes->setVolumeMountPoint(L"S:\\", name.value);
  const SysStatus del = c.volumes->deleteVolumeMountPoint(driveRoot(c));
  std::printf("    set S:\\ %d/%u, delete %s %d/%u\n", set.ok, set.error, toUtf8(driveRoot(c)).c_str(), del.ok,
              del.error);
  CHECK(!set.ok);
  CHECK_EQ(set.error, 120u);
  CHECK(!del.ok);
  CHECK_EQ(del.error, 120u);
  CHECK(c.volumes->logicalDrives() & (1u << (c.drive - L'A')));
  CHECK(!(c.volumes->logicalDrives() & (1u << (L'S' - L'A'))));
}

void volumeLabelIsSetAndRemoved(Context& c) {
  if (!haveDrive(c)) return;
  const std::wstring label = L"VMDCTL";
  const std::wstring labelFile = driveRoot(c) + L".windows-label";
  CHECK(c.volumes->setVolumeLabel(driveRoot(c), &label).ok);
  const VolumeService::VolumeInfo after = c.volumes->volumeInformation(driveRoot(c));
  if (after.label != label) {
    // Wine keeps the label of a mapped folder in a file at its root, and
    // GetVolumeInformationW goes on answering the mount manager's label.
    const std::optional<Bytes> kept = c.files->readHead(labelFile, 64);
    CHECK(kept.has_value());
    if (kept) CHECK_EQ(std::string(kept->begin(), kept->end()), std::string("VMDCTL\n"));
  }
  CHECK(c.volumes->setVolumeLabel(driveRoot(c), nullptr).ok);
  CHECK_EQ(c.volumes->volumeInformation(driveRoot(c)).label, std::wstring());
  const std::optional<Bytes> removed = c.files->readHead(labelFile, 64);
  CHECK(!removed.has_value() || removed->size() <= 1);
  const SysStatus missing = c.volumes->setVolumeLabel(L"Q:\\", &label);
  CHECK(!missing.ok);
  CHECK(missing.error != 0);
  std::printf("    Q: error %u\n", missing.error);
}

// --- The mounted-devices form of registry work, in a key of its own.

class ScratchKey {
 public:
  ScratchKey() : path_(L"SOFTWARE\\" + uniqueName(L"vmdctl-contract-")) {
    win32::RegKey key;
    created_ = ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                 key.receive(), nullptr) == ERROR_SUCCESS;
  }
  ~ScratchKey() {
    if (created_) ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, path_.c_str());
  }
  ScratchKey(const ScratchKey&) = delete;
  ScratchKey& operator=(const ScratchKey&) = delete;
  bool created() const { return created_; }
  const std::wstring& path() const { return path_; }

 private:
  std::wstring path_;
  bool created_ = false;
};

std::vector<std::wstring> valueNames(Registry::Key& key) {
  std::vector<std::wstring> names;
  for (std::uint32_t i = 0; i < 1000; ++i) {
    Registry::Value v;
    const std::uint32_t rc = key.enumValue(i, 260, 4096, v);
    if (rc == syserr::NoMoreItems) break;
    if (rc == 0) names.push_back(v.name);
  }
  return names;
}

void driveLetterValuesAreWalkedWithSmallBuffers(Context& c) {
  ScratchKey scratch;
  CHECK(scratch.created());
  if (!scratch.created()) return;
  std::uint32_t error = 1;
  std::unique_ptr<Registry::Key> key = c.registry->openForWrite(scratch.path(), error);
  CHECK(key != nullptr);
  if (!key) return;
  const Bytes disk{0x78, 0x56, 0x34, 0x12, 0x00, 0x7E, 0, 0, 0, 0, 0, 0};
  CHECK_EQ(key->setBinary(L"\\DosDevices\\R:", disk), 0u);
  CHECK_EQ(key->setBinary(L"\\DosDevices\\S:", pattern(12)), 0u);
  CHECK_EQ(key->setBinary(L"\\DosDevices\\T:", pattern(24)), 0u);                // data too long
  CHECK_EQ(key->setBinary(L"\\??\\Volume{3f1d6c52-0000}", disk), 0u);          // name too long
  CHECK_EQ(valueNames(*key).size(), std::size_t{4});

  // The walk's own buffers: 16 name characters (terminator included), 12 bytes.
  int fitted = 0, tooLong = 0;
  std::uint32_t index = 0, rc = 0;
  for (; index < 100; ++index) {
    Registry::Value v;
    rc = key->enumValue(index, 16, 12, v);
    if (rc == syserr::NoMoreItems) break;
    if (rc == syserr::MoreData) {
      ++tooLong;
      continue;
    }
    CHECK_EQ(rc, 0u);
    ++fitted;
    CHECK_EQ(v.name.size(), std::size_t{14});
    CHECK_EQ(v.type, 3u);  // REG_BINARY
    CHECK_EQ(v.data.size(), std::size_t{12});
  }
  CHECK_EQ(rc, syserr::NoMoreItems);
  CHECK_EQ(fitted, 2);
  CHECK_EQ(tooLong, 2);

  // A removal moves the later values down one index.
  const std::vector<std::wstring> before = valueNames(*key);
  CHECK_EQ(key->deleteValue(before[0]), 0u);
  Registry::Value first;
  CHECK_EQ(key->enumValue(0, 260, 4096, first), 0u);
  CHECK_EQ(first.name, before[1]);
  CHECK_EQ(valueNames(*key).size(), std::size_t{3});

  // Writing over a value replaces its data.
  CHECK_EQ(key->setBinary(L"\\DosDevices\\S:", disk), 0u);
  for (std::uint32_t i = 0; i < 10; ++i) {
    Registry::Value v;
    if (key->enumValue(i, 16, 12, v) == 0 && v.name == L"\\DosDevices\\S:") CHECK(v.data == disk);
  }
  for (const std::wstring& name : valueNames(*key)) CHECK_EQ(key->deleteValue(name), 0u);
  CHECK(valueNames(*key).empty());
}

void mountedDevicesHoldsTheDrives(Context& c) {
  std::uint32_t error = 1;
  std::unique_ptr<Registry::Key> key = c.registry->openForWrite(L"SYSTEM\\MountedDevices", error);
  CHECK(key != nullptr);
  if (!key) return;
  bool sawC = false;
  for (std::uint32_t i = 0; i < 200; ++i) {
    Registry::Value v;
    const std::uint32_t rc = key->enumValue(i, 260, 4096, v);
    if (rc == syserr::NoMoreItems) break;
    if (rc != 0) continue;
    std::string data;
    for (std::size_t k = 0; k < v.data.size() && k < 48; ++k) data += (v.data[k] >= 32 && v.data[k] < 127) ? char(v.data[k]) : '.';
    std::printf("    %s type %u, %zu bytes: %s\n", toUtf8(v.name).c_str(), v.type, v.data.size(), data.c_str());
    if (sameNoCase(v.name, L"\\DosDevices\\C:")) sawC = true;
  }
  std::printf("    saw C: %d\n", sawC);
}

void broadcastOfAVolumeArrival(Context& c) {
  // DEV_BROADCAST_VOLUME for Q: (unit mask bit 16), 20 bytes with its padding.
  const Bytes record{20, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0};
  const std::int32_t r = c.broadcast->broadcast(0x122, 0x219, 0x8000, record);
  std::printf("    result %ld\n", static_cast<long>(r));
  CHECK(r > 0);
  const std::int32_t removal = c.broadcast->broadcast(0x122, 0x219, 0x8004, record);
  CHECK(removal > 0);
  // Flags the system does not know: Wine refuses with 0, not -1; either way
  // nothing counts it as a success.
  const std::int32_t bad = c.broadcast->broadcast(0x80000000u | 0x122, 0x219, 0x8000, record);
  std::printf("    unknown flags: result %ld\n", static_cast<long>(bad));
  CHECK(bad <= 0);
}

struct Test {
  const char* name;
  void (*body)(Context&);
};

const Test kTests[] = {
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
    {"volumes.drives_c_and_z_are_there", drivesCAndZAreThere},
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
    {"files.write_that_cannot_create_is_open_failed", writeThatCannotCreateIsOpenFailed},
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
    {"drive.volume_refuses_the_partition_query", volumeRefusesThePartitionQuery},
    {"drive.volume_flush_needs_write_access", volumeFlushNeedsWriteAccess},
    {"drive.volume_mount_points_are_not_moved_by_wine", volumeMountPointsAreNotMovedByWine},
    {"drive.volume_label_is_set_and_removed", volumeLabelIsSetAndRemoved},
    {"registry.drive_letter_values_are_walked_with_small_buffers", driveLetterValuesAreWalkedWithSmallBuffers},
    {"registry.mounted_devices_holds_the_drives", mountedDevicesHoldsTheDrives},
    {"broadcast.of_a_volume_arrival", broadcastOfAVolumeArrival},
};

}  // namespace

int wmain(int argc, wchar_t** argv) {
  const std::string filter = argc > 1 ? toUtf8(argv[1]) : std::string();
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  Context c;
  c.scratch = c.system->windowsDirectory().value_or(L"C:\\windows") + L"\\temp";
  if (const wchar_t* drive = _wgetenv(L"VMDCTL_CONTRACT_DRIVE"); drive && drive[0] >= L'A' && drive[0] <= L'Z')
    c.drive = drive[0];
  int passed = 0, failed = 0;
  for (const Test& t : kTests) {
    if (!filter.empty() && std::strstr(t.name, filter.c_str()) == nullptr) continue;
    failuresInTest = 0;
    std::printf("[ RUN  ] %s\n", t.name);
    std::fflush(stdout);
    t.body(c);
    std::printf("[ %s ] %s\n", failuresInTest ? "FAIL" : " OK ", t.name);
    std::fflush(stdout);
    (failuresInTest ? failed : passed) += 1;
  }
  std::printf("%d passed, %d failed\n", passed, failed);
  return failed ? 1 : 0;
}
