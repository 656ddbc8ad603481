// add [<option>...]: creates a disk from the settings given as options, waits
// until its volume is there with its letter, and names the new disk.
#include <memory>
#include <new>

#include "commands/commands.h"
#include "commands/disk_commands.h"
#include "controller/controller.h"
#include "settings/creation_record.h"
#include "settings/disk_options.h"
#include "settings/settings_report.h"
#include "settings/settings_validation.h"

namespace vmd {

CommandResult addCommand(App& app, const CommandArgs& args) {
  std::unique_ptr<DiskSettings> settings(new (std::nothrow) DiskSettings());
  if (!settings) {
    app.io.errStr(strid::NoMemory);
    return Failed;
  }
  std::uint32_t silent = 0;
  ParseDiskOptions(app, args.argc, args.argv, *settings, silent);
  if (!ValidateDiskSettings(app, *settings, true, 0)) return Failed;
  if (!silent) {
    app.io.out(L"\nSettings for New Disk\n");
    PrintDiskSettings(app.io, *settings, reportmode::Settings);
    if (!app.io.confirm(L"Press 'Y' or 'y' to create a disk, any other key to cancel: ")) return Cancelled;
  }
  const std::optional<Bytes> record = BuildCreationRecord(*settings, nullptr, app.sys.clock, app.sys.system);
  if (!record) {
    app.io.errStr(strid::NoMemory);
    return Failed;
  }
  if (!silent) app.io.out(L"Creating, please wait...\n");

  VolumeContext ctx = makeVolumeContext(app);
  MountRequest mount;
  mount.createRequest = &*record;
  CreateAndMountDisk(ctx, mount);
  if (mount.error != 0) {
    if (mount.error == syserr::DiskFull)
      app.io.err(L"Error: creating disk failed (exceeding maximum memory consumption)!\n");
    else
      app.io.err(L"Error: creating disk failed (0x%08x)!\n", mount.error);
    return Failed;
  }
  if (mount.mountStatus != mountstatus::Ready) {
    app.io.err(L"Warning: mounting volume failed (0x%08x)!\n", mount.mountStatus);
  } else if (controllerAssignsLetter(*record) && mount.driveLetter != 0) {
    if (!BroadcastVolumeChange(ctx, dbt::DeviceArrival, static_cast<wchar_t>(mount.driveLetter)).ok)
      app.io.err(L"Warning: updating system variables failed!\n");
  }
  if (!silent)
    app.io.err(L"Success: new disk (#%d) has been created.\n", static_cast<int>(addressTarget(mount.address)));
  return Success;
}

}  // namespace vmd
