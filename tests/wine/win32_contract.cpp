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
};

int failuresInTest = 0;

std::string show(const std::wstring& s) { return "\"" + toUtf8(s) + "\""; }
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
  const DeviceIo::ControlResult ctl = c.io->control(r.handle, 0x0007404C /* IOCTL_DISK_GET_PARTITION_INFO */,
                                                    nullptr, 0, out, sizeof(out));
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

void broadcastReachesAllComponents(Context& c) {
  // A volume arrival for Q: (unit mask bit 16), as the program announces a new letter.
  const Bytes record{0x12, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
  const std::int32_t r = c.broadcast->broadcast(0x122, 0x219, 0x8000, record);
  std::printf("    result %ld\n", r);
  CHECK(r > 0);
}

void keyWithoutConsoleInputIsNone(Context& c) {
  std::unique_ptr<KeyReader> keys = win32::makeKeyReader();
  const int key = keys->readKey();
  std::printf("    key %d\n", key);
  CHECK_EQ(key, -1);
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
    {"files.write_that_cannot_create_is_open_failed", writeThatCannotCreateIsOpenFailed},
    {"files.folders_are_directories", foldersAreDirectories},
    {"registry.missing_key_reads_nothing", missingKeyReadsNothing},
    {"registry.values_are_written_enumerated_read_and_deleted", valuesAreWrittenEnumeratedReadAndDeleted},
    {"registry.mounted_devices_opens_for_write", mountedDevicesOpensForWrite},
    {"system.memory_is_reported", memoryIsReported},
    {"system.windows_directory_is_c_windows", windowsDirectoryIsCWindows},
    {"system.clock_agrees_with_itself_and_sleep_waits", clockAgreesWithItselfAndSleepWaits},
    {"system.disk_signatures_come_from_wmi", diskSignaturesComeFromWmi},
    {"system.broadcast_reaches_all_components", broadcastReachesAllComponents},
};

}  // namespace

int wmain(int argc, wchar_t** argv) {
  const std::string filter = argc > 1 ? toUtf8(argv[1]) : std::string();
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  Context c;
  c.scratch = c.system->windowsDirectory().value_or(L"C:\\windows") + L"\\temp";
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
