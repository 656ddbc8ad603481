// del <index> [-g] [-s]: dismounts the disk's volumes, has the controller
// remove the disk (saving its image first unless -g), and waits until it is gone.
#include "commands/commands.h"
#include "commands/disk_commands.h"

namespace vmd {

namespace {

struct DelOptions {
  std::uint8_t saveImage = 1;
  bool silent = false;
};

// The options after the index; what the scanner leaves is warned about.
DelOptions parseDelOptions(App& app, int argc, wchar_t** argv) {
  static const LongOption kLong[] = {
      {L"skipsave", 0, nullptr, L'g'},
      {L"silent", 0, nullptr, L's'},
      {nullptr, 0, nullptr, 0},
  };
  DelOptions options;
  OptionScanner& scan = app.options;
  for (;;) {
    const int c = scan.next(argc, argv, L"gs", kLong);
    if (c == -1) break;
    if (c == L'g') options.saveImage = 0;
    if (c == L's') options.silent = true;
  }
  scan.reportLeftovers(argc, argv);
  return options;
}

}  // namespace

CommandResult delCommand(App& app, const CommandArgs& args) {
  const DiskInfo& info = args.disk->info;
  const int index = static_cast<int>(info.number);

  VolumeContext ctx = makeVolumeContext(app);
  const DiskAddressBytes address = diskAddress(info.number);
  // Asked before the options are read: a refusal holds in silent mode too.
  if (!CanRemoveDisk(ctx, address)) {
    app.io.err(L"Error: disk #%d cannot be removed now!\n", index);
    app.io.err(L"%s\n", app.io.str(strid::PagingPath));
    return Failed;
  }
  const DelOptions options = parseDelOptions(app, args.argc, args.argv);
  if (!options.silent) {
    app.io.out(L"Are you sure to remove disk #%d?\n", index);
    if (!app.io.confirm(L"Press 'Y' or 'y' to continue, any other key to cancel: ")) return Cancelled;
  }
  if (!DismountDiskVolumes(ctx, args.disk->volumes.diskVolumePaths(info.number, info.directIo))) return Cancelled;
  if (!options.silent) app.io.out(L"Deleting, please wait...\n");

  RemoveRequest removal;
  removal.address = address;
  removal.saveImage = options.saveImage;
  RemoveDiskAndWait(ctx, removal);
  if (removal.error != 0) {
    app.io.err(L"Error: removing disk #%d failed (0x%08x)!\n", index, removal.error);
    return Failed;
  }
  // Still there after the wait counts as removed: the controller has it in hand.
  // Unannounced, the letter may still show in running programs: as add does
  // for its arrival, the administrator is told.
  if (info.directIo && !BroadcastVolumeChange(ctx, dbt::DeviceRemoveComplete, info.letter).ok)
    app.io.err(L"Warning: updating system variables failed!\n");
  if (!options.silent) app.io.err(L"Success: disk #%d has been removed.\n", index);
  return Success;
}

}  // namespace vmd
