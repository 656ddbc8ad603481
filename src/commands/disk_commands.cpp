#include "commands/disk_commands.h"

#include "controller/controller.h"

namespace vmd {

CommandResult openDiskCommand(App& app, int argc, wchar_t** argv, DiskInventory& inventory, DiskInfo& info) {
  if (!checkSession(app)) return Failed;
  if (argc < 1) return InvalidUse;
  return inventory.resolveDiskIndex(argv, info);
}

VolumeContext makeVolumeContext(App& app) {
  Output& io = app.io;
  return VolumeContext{
      app.controller, app.sys.io, app.sys.volumes, app.sys.registry, app.sys.clock, app.sys.broadcast,
      [&io] {
        // A line that begins "Warning: " goes to standard error like every
        // warning; the prompt goes to standard output like every prompt.
        io.err(L"Warning: this volume is in use by another process. If it is dismounted, all opened handles to "
               L"this volume would then be invalid.\n");
        return io.confirm(L"Press 'Y' or 'y' to force a dismount on this volume, any other key to cancel: ");
      }};
}

bool DismountDiskVolumes(VolumeContext& ctx, DiskInventory& inventory, const DiskInfo& info) {
  bool forceAll = false;
  for (const std::wstring& path : inventory.diskVolumePaths(info.number, info.directIo)) {
    VolumeLock lock;
    if (!DismountVolume(ctx, path, lock, forceAll)) return false;
    ReleaseVolume(lock);
  }
  return true;
}

}  // namespace vmd
