// edit <index> [<option>...]: changes the settings named by options and keeps
// the others. The letter and label change at once, the image settings at
// once if the user agrees and the disk allows it, the rest at the next start
// of the computer.
#include <memory>
#include <new>

#include "base/bytes.h"
#include "base/format.h"
#include "base/ignore_result.h"
#include "commands/commands.h"
#include "commands/disk_commands.h"
#include "settings/creation_record.h"
#include "settings/disk_options.h"
#include "settings/image_file.h"
#include "settings/record_changes.h"
#include "settings/settings_record.h"
#include "settings/settings_report.h"
#include "settings/settings_validation.h"

namespace vmd {

namespace {

// 63 sectors of 512 bytes: where the first partition of a disk with a master
// boot record starts when the disk cannot tell.
constexpr std::uint64_t kDefaultPartitionOffset = 32256;

std::uint64_t partitionOffset(App& app, std::uint8_t index) {
  SysResult<DeviceHandle> disk =
      DeviceHandle::open(app.sys.io, diskDevicePath(index), DeviceIo::GenericRead,
                         DeviceIo::ShareRead | DeviceIo::ShareWrite, DeviceIo::AttributeNormal);
  std::uint8_t info[32] = {};
  if (!disk.ok || !disk.value.control(ioctl::DiskGetPartitionInfo, nullptr, 0, info, sizeof info).ok)
    return kDefaultPartitionOffset;
  return getLE(info, sizeof info, 0, 8);
}

// Asks (unless silent) and sends the new image settings when the disk can
// take them now; otherwise they wait for the restart.
void applyImageSettingsNow(App& app, std::uint8_t index, const Bytes& newRecord, bool silent) {
  const std::optional<DiskStatus> status = QueryDiskStatus(app.controller, index);
  if (!status || !canApplyImageNow(ParseImageFileStatus(*status), newRecord)) return;
  if (!silent) {
    app.io.out(L"The image file settings have been changed. Do you want to apply these changes now?\n");
    if (!app.io.confirm(L"Press 'Y' or 'y' to apply now, any other keys to keep current settings until you "
                        L"restart this computer: "))
      return;
  }
  const Bytes request = applyImageRequest(index, newRecord);
  ignoreResult(app.controller.request(ioctl::ApplyImageSettings, request.data(),
                                      static_cast<std::uint32_t>(request.size()), nullptr, 0),
               "the new image settings are stored and take effect at the next restart anyway");
}

}  // namespace

CommandResult editCommand(App& app, const CommandArgs& args) {
  const DiskInfo& info = args.disk->info;
  const std::uint8_t index = info.number;

  std::optional<Bytes> oldRecord = ReadDiskSettingsRecord(app, index);
  if (!oldRecord) {
    app.io.errStr(strid::SettingsFailed);
    return Failed;
  }
  std::unique_ptr<DiskSettings> settings(new (std::nothrow) DiskSettings());
  if (!settings) {
    app.io.errStr(strid::NoMemory);
    return Failed;
  }
  // The record is made to describe the letter the disk really has.
  const std::vector<wchar_t> letters = args.disk->volumes.diskDriveLetters(index, info);
  const wchar_t present = letters.empty() ? 0 : letters[0];
  if (present != 0 && present != recordDriveLetter(*oldRecord))
    setRecordDriveLetter(*oldRecord, static_cast<std::uint16_t>(present));

  DiskSettingsFromRecord(*oldRecord, *settings);
  std::uint32_t silent = 0;
  ParseDiskOptions(app, args.argc, args.argv, *settings, silent);
  if (!ValidateDiskSettings(app, *settings, false, static_cast<std::uint16_t>(present))) return Failed;
  const std::optional<Bytes> newRecord =
      BuildCreationRecord(*settings, &*oldRecord, app.sys.clock, app.sys.system);
  if (!newRecord) {
    app.io.errStr(strid::NoMemory);
    return Failed;
  }
  const bool changed = recordsDiffer(*oldRecord, *newRecord);
  if (!silent) {
    app.io.out(L"\nDisk #%d %sSettings\n", static_cast<int>(index), changed ? L"New " : L"");
    PrintDiskSettings(app.io, *settings, reportmode::Settings);
    if (!changed) {
      app.io.out(L"No settings have changed.\n");
      return Success;
    }
    if (!app.io.confirm(L"Press 'Y' or 'y' to save new settings, any other key to cancel: ")) return Cancelled;
  } else if (!changed) {
    return Success;
  }

  if (!app.controller
           .request(ioctl::ChangeDiskSettings, newRecord->data(), creationTotalLength(*newRecord), nullptr, 0)
           .ok) {
    app.io.err(L"Error: updating disk settings failed!\n");
    return Failed;
  }
  if (!silent)
    app.io.err(L"Success: disk settings have been updated!\nSome new settings will take effect after you restart "
               L"this computer.\n");

  if (imageSettingsDiffer(*oldRecord, *newRecord)) applyImageSettingsNow(app, index, *newRecord, silent != 0);

  // Letter and label act at once; their failures leave the stored settings
  // for the next start of the computer.
  const wchar_t oldLetter = static_cast<wchar_t>(recordDriveLetter(*oldRecord));
  const wchar_t newLetter = static_cast<wchar_t>(recordDriveLetter(*newRecord));
  const bool letterChanged = oldLetter != newLetter;
  VolumeContext ctx = makeVolumeContext(app);
  if (present != 0) {
    if (labelDiffers(*oldRecord, *newRecord)) {
      const std::optional<std::wstring> label = recordLabel(*newRecord);
      ignoreResult(app.sys.volumes.setVolumeLabel(format(L"%c:\\", present), label ? &*label : nullptr),
                   "the new label is stored and taken at the next restart");
    }
    if (letterChanged)
      ignoreResult(ChangeDriveLetter(ctx, index, info.directIo, oldLetter, newLetter),
                   "the new letter is stored and taken at the next restart");
  }
  // A disk that leaves the controller's letter for the system's gets its
  // letter recorded where the mount-point manager will look for it.
  if (info.directIo && !controllerAssignsLetter(*newRecord) &&
      (controllerAssignsLetter(*oldRecord) || letterChanged)) {
    std::array<std::uint8_t, 12> data{};
    putLE(data.data(), data.size(), 0, 4, recordSignature(*newRecord));
    putLE(data.data(), data.size(), 4, 8, partitionOffset(app, index));
    ignoreResult(RewriteMountedDevice(ctx, newLetter, data),
                 "without the record the system gives the disk a free letter at its next arrival");
  }
  return Success;
}

}  // namespace vmd
