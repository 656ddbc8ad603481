// `ls`: one row per disk the controller reports, in ascending number.
#include "commands/commands.h"

namespace vmd {

CommandResult lsCommand(App& app, const CommandArgs&) {
  app.io.out(L"\nIndex   Size(MB)    Type        Image   Status  Volumes\n");
  app.io.out(kRule);
  // One inventory for the whole listing: SCSI disks share one letter map.
  DiskInventory inventory(app.controller);
  DiskVolumes volumes(inventory, app.sys.io, app.sys.volumes, app.sys.setup);
  std::uint32_t error = 0;
  const auto bitmap = inventory.queryDiskBitmap(&error);
  if (!bitmap) {
    app.io.err(L"Error: failed to retrieve disk information: 0x%08x!\n", error);
    return Failed;
  }
  for (std::uint8_t number : disksInBitmap(*bitmap)) {
    const std::optional<DiskInfo> info = inventory.queryDiskInfo(number);
    if (!info) continue;  // a disk that cannot be queried is left out
    const std::vector<wchar_t> letters = volumes.diskDriveLetters(number, *info);
    std::wstring row = format(L"#%-7d%-12d%-12s%-8s%-8s", static_cast<int>(info->number),
                              static_cast<std::int32_t>(info->sizeBytes >> 20),
                              info->directIo ? L"Direct-IO" : L"SCSI", info->hasImage ? L"Yes" : L"No",
                              info->good ? L"Good" : L"Failed");
    for (wchar_t letter : letters) row += format(L"%c: ", letter);
    row += L"\n";
    app.io.write(Stream::Out, row);
  }
  return Success;
}

}  // namespace vmd
