// The Win32 side of the OS boundary against the system it runs on (Wine in
// the test run): the contract checks shared with the simulated machine
// (tests/platform/contract_checks.h), wherever the system can answer without
// a controller. Prints one line per check and ends with "N passed, N failed";
// exit code 0 only when all passed. A check for the simulated machine alone
// is listed as skipped, with its reason.
//
//   vmdctl-contract.exe [name-substring]
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "../platform/contract_checks.h"
#include "base/text_codec.h"
#include "platform/host.h"
#include "platform/win32/win32.h"
#include "platform/win32/win32_platform.h"

namespace {

using namespace vmd;
using contract::Check;
using contract::Report;
using contract::Side;

class Win32Fixture : public contract::Fixture {
 public:
  Win32Fixture(std::wstring scratch, wchar_t drive) : scratch_(std::move(scratch)), drive_(drive) {}
  std::wstring scratchFolder() override { return scratch_; }
  wchar_t scratchDrive() override { return drive_; }
  void removeFile(const std::wstring& path) override { _wremove(path.c_str()); }
  std::optional<Bytes> storedBytes(const std::wstring& path) override {
    win32::FileHandle file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                         FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return std::nullopt;
    Bytes all;
    std::uint8_t buf[65536];
    DWORD got = 0;
    while (::ReadFile(file.get(), buf, sizeof buf, &got, nullptr) && got > 0) all.insert(all.end(), buf, buf + got);
    return all;
  }
  bool handleIsOpen(DeviceIo::Handle h) override {
    DWORD flags = 0;
    return ::GetHandleInformation(win32::fromHandleValue(h), &flags) != FALSE;
  }
  std::optional<std::wstring> createScratchKey() override {
    const std::wstring path = L"SOFTWARE\\" + contract::uniqueName(L"vmdctl-contract-");
    win32::RegKey key;
    if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.receive(),
                          nullptr) != ERROR_SUCCESS)
      return std::nullopt;
    return path;
  }
  void deleteScratchKey(const std::wstring& path) override { ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, path.c_str()); }
  std::unique_ptr<KeyReader> keysWithoutInput() override { return win32::makeKeyReader(); }

 private:
  std::wstring scratch_;
  wchar_t drive_;
};

}  // namespace

int wmain(int argc, wchar_t** argv) {
  const std::string filter = argc > 1 ? toUtf8(argv[1]) : std::string();
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

  // A drive that check_contract.py maps to a scratch folder of its own
  // (VMDCTL_CONTRACT_DRIVE, e.g. "T"); 0 when there is none.
  wchar_t drive = 0;
  if (const wchar_t* d = _wgetenv(L"VMDCTL_CONTRACT_DRIVE"); d && d[0] >= L'A' && d[0] <= L'Z') drive = d[0];
  Win32Fixture fixture(system->windowsDirectory().valueOr(L"C:\\windows") + L"\\temp", drive);
  contract::Subject subject{Side::Wine, *catalog, *process, *setup,     *io,        *volumes,
                            *files,     *registry, *system, *clock,    *broadcast, fixture};

  int passed = 0, failed = 0;
  for (const Check& check : contract::checks()) {
    if (!filter.empty() && std::strstr(check.name, filter.c_str()) == nullptr) continue;
    if (!contract::runsOn(check, Side::Wine)) {
      std::printf("[ SKIP ] %s (simulated machine only: %s)\n", check.name, check.why);
      continue;
    }
    std::printf("[ RUN  ] %s\n", check.name);
    std::fflush(stdout);
    Report report;
    check.body(subject, report);
    for (const std::string& note : report.notes) std::printf("    %s\n", note.c_str());
    for (const std::string& failure : report.failures) std::printf("    %s\n", failure.c_str());
    std::printf("[ %s ] %s\n", report.failures.empty() ? " OK " : "FAIL", check.name);
    std::fflush(stdout);
    (report.failures.empty() ? passed : failed) += 1;
  }
  std::printf("%d passed, %d failed\n", passed, failed);
  return failed ? 1 : 0;
}
