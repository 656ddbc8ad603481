// Volumes, mount points and drive letters.
#include <algorithm>
#include <new>
#include <vector>

#include "platform/win32/win32.h"
#include "platform/win32/win32_platform.h"

namespace vmd::win32 {

namespace {

constexpr DWORD kLabelChars = MAX_PATH + 1;  // 260 with the terminator
constexpr DWORD kFileSystemChars = 25;

SysStatus status(BOOL ok) { return ok ? SysStatus::success() : SysStatus::failure(lastError()); }

class Win32Volumes : public VolumeService {
 public:
  SysResult<std::uint32_t> logicalDrives() override {
    const DWORD drives = ::GetLogicalDrives();
    if (drives == 0) return SysResult<std::uint32_t>::failure(lastError());
    return SysResult<std::uint32_t>::success(drives);
  }

  SysResult<std::uint32_t> driveType(const std::wstring& root) override {
    return SysResult<std::uint32_t>::success(::GetDriveTypeW(root.c_str()));
  }

  SysResult<VolumeInfo> volumeInformation(const std::wstring& root) override {
    wchar_t label[kLabelChars] = {};
    wchar_t fileSystem[kFileSystemChars] = {};
    DWORD serial = 0, maxComponent = 0, flags = 0;
    if (!::GetVolumeInformationW(root.c_str(), label, kLabelChars, &serial, &maxComponent, &flags, fileSystem,
                                 kFileSystemChars))
      return SysResult<VolumeInfo>::failure(lastError());
    return SysResult<VolumeInfo>::success({label, serial, fileSystem});
  }

  SysResult<FreeSpace> diskFreeSpace(const std::wstring& root) override {
    DWORD spc = 0, bps = 0, freeClusters = 0, totalClusters = 0;
    if (!::GetDiskFreeSpaceW(root.c_str(), &spc, &bps, &freeClusters, &totalClusters))
      return SysResult<FreeSpace>::failure(lastError());
    return SysResult<FreeSpace>::success({spc, bps, freeClusters, totalClusters});
  }

  SysResult<FreeSpaceEx> diskFreeSpaceEx(const std::wstring& path) override {
    ULARGE_INTEGER caller{}, total{}, free{};
    if (!::GetDiskFreeSpaceExW(path.c_str(), &caller, &total, &free))
      return SysResult<FreeSpaceEx>::failure(lastError());
    return SysResult<FreeSpaceEx>::success({caller.QuadPart, total.QuadPart, free.QuadPart});
  }

  SysResult<std::wstring> volumeNameForMountPoint(const std::wstring& mountPoint, std::uint32_t chars) override {
    std::vector<wchar_t> buffer;
    if (!allocate(buffer, chars)) return SysResult<std::wstring>::failure(ERROR_NOT_ENOUGH_MEMORY);
    if (!::GetVolumeNameForVolumeMountPointW(mountPoint.c_str(), buffer.data(), chars))
      return SysResult<std::wstring>::failure(lastError());
    buffer.back() = L'\0';
    return SysResult<std::wstring>::success(buffer.data());
  }

  SysResult<PathNames> volumePathNames(const std::wstring& volumeName, std::uint32_t chars) override {
    std::vector<wchar_t> buffer;
    if (!allocate(buffer, chars)) return SysResult<PathNames>::failure(ERROR_NOT_ENOUGH_MEMORY);
    DWORD needed = 0;
    if (!::GetVolumePathNamesForVolumeNameW(volumeName.c_str(), buffer.data(), chars, &needed)) {
      const std::uint32_t error = lastError();
      return SysResult<PathNames>::failure(error, {{}, error == ERROR_MORE_DATA ? needed : 0});
    }
    // Keep the names and the empty name that ends them (two terminators at least).
    std::size_t end = 0;
    while (end < buffer.size() && buffer[end] != L'\0') {
      while (end < buffer.size() && buffer[end] != L'\0') ++end;
      ++end;
    }
    std::vector<wchar_t> multi(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(std::min(end, buffer.size())));
    multi.push_back(L'\0');
    if (multi.size() == 1) multi.push_back(L'\0');
    return SysResult<PathNames>::success({std::move(multi), needed});
  }

  SysStatus setVolumeMountPoint(const std::wstring& mountPoint, const std::wstring& volumeName) override {
    return status(::SetVolumeMountPointW(mountPoint.c_str(), volumeName.c_str()));
  }

  SysStatus deleteVolumeMountPoint(const std::wstring& mountPoint) override {
    return status(::DeleteVolumeMountPointW(mountPoint.c_str()));
  }

  // No label goes down as the empty one: Windows treats the two alike (the
  // label's length is 0 either way), and Wine's SetVolumeLabelW faults on null.
  SysStatus setVolumeLabel(const std::wstring& root, const std::wstring* label) override {
    return status(::SetVolumeLabelW(root.c_str(), label ? label->c_str() : L""));
  }

 private:
  // A buffer of `chars` characters (one at least); false when the memory
  // cannot be had, which a length the system asked for may well exceed.
  static bool allocate(std::vector<wchar_t>& buffer, std::uint32_t chars) {
    try {
      buffer.assign(chars ? chars : 1, L'\0');
    } catch (const std::bad_alloc&) {
      return false;
    }
    return true;
  }
};

}  // namespace

std::unique_ptr<VolumeService> makeVolumeService() { return std::make_unique<Win32Volumes>(); }

}  // namespace vmd::win32
