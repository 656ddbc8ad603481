// init <index> [-s]: has the controller wipe the disk's single volume and lay
// down a fresh file system, the one stored with the disk or, failing that,
// the one the volume carries now. The volume is locked and dismounted around
// the request.
#include "commands/commands.h"
#include "commands/disk_commands.h"
#include "settings/format_spec.h"
#include "settings/settings_record.h"

namespace vmd {

namespace {

bool parseSilent(App& app, int argc, wchar_t** argv) {
  static const LongOption kLong[] = {
      {L"silent", 0, nullptr, L's'},
      {nullptr, 0, nullptr, 0},
  };
  bool silent = false;
  OptionScanner& scan = app.options;
  for (;;) {
    const int c = scan.next(argc, argv, L"s", kLong);
    if (c == -1) break;
    if (c == L's') silent = true;
  }
  scan.reportLeftovers(argc, argv);
  return silent;
}

bool ReinitializeDisk(CQnIoCtrl& controller, std::uint8_t index, const Bytes& spec) {
  const Bytes request = wrapSubRecord(index, spec);
  return controller
      .request(ioctl::ReinitializeDisk, request.data(), static_cast<std::uint32_t>(request.size()), nullptr, 0)
      .ok;
}

}  // namespace

CommandResult initCommand(App& app, const CommandArgs& args) {
  const DiskInfo& info = args.disk->info;
  const int index = static_cast<int>(info.number);

  VolumeContext ctx = makeVolumeContext(app);
  // Asked before the options are read: a refusal holds in silent mode too.
  if (!CanRemoveDisk(ctx, diskAddress(info.number))) {
    app.io.err(L"Error: disk #%d cannot be reintialized now!\n", index);
    app.io.err(L"%s\n", app.io.str(strid::PagingPath));
    return Failed;
  }
  const bool silent = parseSilent(app, args.argc, args.argv);
  if (!silent) {
    app.io.err(L"Warning: all data on this disk will be lost!\nAre you sure to reinitialize disk #%d?\n", index);
    if (!app.io.confirm(L"Press 'Y' or 'y' to continue, any other key to cancel: ")) return Cancelled;
  }

  const std::vector<std::wstring> volumes = args.disk->volumes.diskVolumePaths(info.number, info.directIo);
  if (volumes.size() != 1) {
    app.io.err(L"Error: this command only supports the disk which has exactly one volume!\n");
    return Failed;
  }
  const std::wstring& volume = volumes.front();

  std::optional<Bytes> spec;
  if (const std::optional<Bytes> record = ReadDiskSettingsRecord(app, info.number)) spec = StoredFormatSpec(*record);
  if (!spec) spec = BuildFormatSpecFromVolume(app.sys.volumes, app.sys.files, volume + L"\\");
  if (!spec) {
    app.io.err(L"Error: command cannot find an appropriate file system for the volume!\n");
    return Failed;
  }

  // In silent mode a volume others hold open is dismounted without a question.
  bool forceAll = silent;
  VolumeLock lock;
  if (!DismountVolume(ctx, volume, lock, forceAll)) return Failed;
  const bool reinitialized = ReinitializeDisk(app.controller, info.number, *spec);
  ReleaseVolume(lock);

  if (!reinitialized) {
    app.io.err(L"Error: disk #%d reinitialization failed!\n", index);
    return Failed;
  }
  if (!silent) app.io.err(L"Success: disk #%d has been reinitialized!\n", index);
  return Success;
}

}  // namespace vmd
