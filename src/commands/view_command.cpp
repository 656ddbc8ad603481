// view <index>: the disk's settings as the controller holds them, its live
// status, and what the system reports for each of its volumes. Changes nothing.
#include "commands/view_command.h"

#include "commands/commands.h"
#include "base/ignore_result.h"
#include "commands/disk_commands.h"
#include "controller/controller.h"
#include "settings/image_file.h"
#include "settings/settings_record.h"
#include "settings/settings_report.h"

namespace vmd {

namespace {

constexpr std::uint32_t kVolumeNameChars = 260;
constexpr std::uint32_t kPathNamesChars = 261;
// Each retry asks for the length the system named; a volume whose mount
// points keep growing under us is given up after this many tries.
constexpr int kPathNamesTries = 16;

// A settings or status record as its report block under "Disk #n <title>";
// Failed after string `missing` when the controller gave none.
CommandResult printRecord(App& app, const std::optional<Bytes>& record, std::uint32_t missing, std::uint8_t number,
                          const wchar_t* title, std::uint32_t mode) {
  if (!record) {
    app.io.errStr(missing);
    return Failed;
  }
  DiskSettings settings;
  DiskSettingsFromRecord(*record, settings);
  app.io.out(L"\nDisk #%d %s\n", static_cast<int>(number), title);
  PrintDiskSettings(app.io, settings, mode);
  return Success;
}

}  // namespace

std::optional<std::vector<wchar_t>> QueryVolumePathNames(App& app, const std::wstring& volumeName) {
  std::uint32_t chars = kPathNamesChars;
  for (int tries = 0; tries < kPathNamesTries; ++tries) {
    SysResult<VolumeService::PathNames> r = app.sys.volumes.volumePathNames(volumeName, chars);
    if (r.ok) return std::move(r.value.multiString);
    if (r.error != syserr::MoreData) return std::nullopt;
    chars = r.value.needed;
  }
  return std::nullopt;
}

void PrintVolumeDetails(App& app, const std::wstring& path, bool rootPath) {
  Output& out = app.io;
  if (!rootPath) {
    const std::optional<std::vector<wchar_t>> names = QueryVolumePathNames(app, path);
    std::wstring shown = path;
    if (names && !names->empty() && (*names)[0] != 0) shown.assign(names->data());
    out.out(L"Volume: %s\n", shown);
  } else if (!path.empty() && path[0] == L'\\') {
    out.out(L"Volume: \n");  // a device path names no mount point
  } else {
    out.out(L"Volume: %s\n", path);
  }

  const SysResult<VolumeService::VolumeInfo> read = app.sys.volumes.volumeInformation(path);
  if (!read.ok) return;
  const VolumeService::VolumeInfo& info = read.value;
  out.out(L"File system: %s\n", info.fileSystem);
  const SysResult<VolumeService::FreeSpace> space = app.sys.volumes.diskFreeSpace(path);
  const std::uint32_t cluster = space.value.sectorsPerCluster * space.value.bytesPerSector;
  if (space.ok && cluster != 0) out.out(L"Cluster size: %s\n", FormatClusterSize(out, cluster));
  out.out(L"Volume label: %s\n", info.label);
  const SysResult<VolumeService::FreeSpaceEx> size = app.sys.volumes.diskFreeSpaceEx(path);
  if (size.ok) out.out(L"Volume size: %s\n", FormatByteSize(out, size.value.totalBytes));
  out.out(L"Volume serial number: %04X-%04X\n", info.serial >> 16, info.serial & 0xFFFF);
}

CommandResult PrintDiskStatus(App& app, DiskVolumes& volumes, const DiskInfo& disk) {
  if (printRecord(app, QueryDiskStatus(app.controller, disk.number), strid::StatusFailed, disk.number, L"Status",
                  reportmode::Status) != Success)
    return Failed;

  if (disk.directIo) {
    // The controller owns the letter; without it the volume is read through
    // the disk's own device.
    const std::vector<wchar_t> letters = volumes.diskDriveLetters(disk.number, disk);
    const std::wstring path =
        letters.empty() ? diskDevicePath(disk.number) + L"\\" : format(L"%c:\\", letters.front());
    PrintVolumeDetails(app, path, true);
    app.io.out(kRule);
    return Success;
  }
  for (const std::wstring& volume : volumes.diskVolumePaths(disk.number, false)) {
    const SysResult<std::wstring> name = app.sys.volumes.volumeNameForMountPoint(volume + L"\\", kVolumeNameChars);
    if (!name.ok) continue;
    PrintVolumeDetails(app, name.value, false);
    app.io.out(kRule);
  }
  return Success;
}

CommandResult viewCommand(App& app, const CommandArgs& args) {
  const DiskInfo& disk = args.disk->info;

  if (printRecord(app, ReadDiskSettingsRecord(app, disk.number), strid::SettingsFailed, disk.number, L"Settings",
                  reportmode::Settings) != Success)
    return Failed;

  ignoreResult(PrintDiskStatus(app, args.disk->volumes, disk),
               "a failed status read has printed its error; the command still succeeds");
  return Success;
}

}  // namespace vmd
