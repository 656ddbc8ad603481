// rebuild <index> [-g] [-s] [<settings option>...]: removes the disk and
// creates it again at the same index from the defaults of a new disk, keeping
// only its drive letter.
#include <memory>
#include <new>

#include "commands/commands.h"
#include "commands/disk_commands.h"
#include "settings/creation_record.h"
#include "settings/disk_options.h"
#include "settings/record_changes.h"
#include "settings/settings_record.h"
#include "settings/settings_report.h"
#include "settings/settings_validation.h"

namespace vmd {

CommandResult rebuildCommand(App& app, const CommandArgs& args) {
  const DiskInfo& info = args.disk->info;
  const std::uint8_t index = info.number;

  VolumeContext ctx = makeVolumeContext(app);
  if (!CanRemoveDisk(ctx, diskAddress(index))) {
    app.io.err(L"Error: disk #%d cannot be rebuilt now!\n", static_cast<int>(index));
    app.io.err(L"%s\n", app.io.str(strid::PagingPath));
    return Failed;
  }
  std::unique_ptr<DiskSettings> settings(new (std::nothrow) DiskSettings());
  if (!settings) {
    app.io.errStr(strid::NoMemory);
    return Failed;
  }
  const std::optional<Bytes> oldRecord = ReadDiskSettingsRecord(app, index);
  const std::vector<wchar_t> letters = args.disk->volumes.diskDriveLetters(index, info);
  const wchar_t present = letters.empty() ? 0 : letters[0];
  settings->driveLetter = oldRecord ? (recordDriveLetter(*oldRecord) & 0xFF) : static_cast<std::uint16_t>(present);

  std::uint32_t silent = 0, saveImage = 1;
  ParseDiskOptions(app, args.argc, args.argv, *settings, silent, &saveImage);
  if (!ValidateDiskSettings(app, *settings, false, static_cast<std::uint16_t>(present))) return Failed;
  const std::optional<Bytes> record =
      BuildCreationRecord(*settings, oldRecord ? &*oldRecord : nullptr, app.sys.clock, app.sys.system);
  if (!record) {
    app.io.errStr(strid::NoMemory);
    return Failed;
  }
  if (!silent) {
    app.io.out(L"\nNew Settings for Rebuilding Disk #%d\n", static_cast<int>(index));
    PrintDiskSettings(app.io, *settings, reportmode::Settings);
    if (!app.io.confirm(L"Press 'Y' or 'y' to build this disk, any other key to cancel: ")) return Cancelled;
  }
  if (!DismountDiskVolumes(ctx, args.disk->volumes.diskVolumePaths(info.number, info.directIo))) return Cancelled;
  if (!silent) app.io.out(L"Rebuilding, please wait...\n");

  RebuildRequest rebuild;
  rebuild.address = diskAddress(index);
  rebuild.createRequest = &*record;
  rebuild.saveImage = static_cast<std::uint8_t>(saveImage);
  rebuild.driveLetter = info.directIo ? static_cast<std::uint16_t>(present) : 0;
  RebuildDisk(ctx, rebuild);
  if (!rebuild.removed) {
    app.io.err(L"Error: rebuilding disk #%d failed - \n", static_cast<int>(index));
    app.io.err(L"disk cannot be removed [%d : %d]\n", static_cast<int>(rebuild.error),
               static_cast<int>(rebuild.status));
    return Failed;
  }
  // A letter change the system was not told of: the same warning as add's,
  // once, whichever of the two announcements failed.
  if (rebuild.announcementFailed) app.io.err(L"Warning: updating system variables failed!\n");
  // Removed but not created: the old disk is gone for good, and these lines
  // are all that is left of it.
  if (rebuild.error == syserr::DiskFull) {
    app.io.err(L"Error: rebuilding disk failed (exceeding maximum memory consumption)!\n");
    return Failed;
  }
  if (rebuild.error != 0) {
    app.io.err(L"Error: rebuilding disk failed (0x%08x)!\n", rebuild.error);
    return Failed;
  }
  if (rebuild.status != mountstatus::Ready)
    app.io.err(L"Warning: mounting new volume failed (0x%08x)!\n", rebuild.status);
  if (!silent) app.io.err(L"Success: disk #%d has been rebuilt.\n", static_cast<int>(index));
  return Success;
}

}  // namespace vmd
