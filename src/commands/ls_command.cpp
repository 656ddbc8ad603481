// `ls`: one row per disk the controller reports, in ascending number.
#include "commands/commands.h"
#include "controller/inventory.h"

namespace vmd {

CommandResult lsCommand(App& app, const wchar_t*, int, wchar_t**) {
  if (!checkSession(app)) return Failed;
  app.io.out(L"\nIndex   Size(MB)    Type        Image   Status  Volumes\n");
  app.io.out(kRule);
  // One inventory for the whole listing: SCSI disks share one letter map.
  DiskInventory inventory(app);
  std::uint32_t error = 0;
  const auto bitmap = inventory.queryDiskBitmap(&error);
  if (!bitmap) {
    app.io.err(L"Error: failed to retrieve disk information: 0x%08x!\n", error);
    return Failed;
  }
  for (std::uint8_t number : disksInBitmap(*bitmap)) {
    const std::optional<DiskInfo> info = inventory.queryDiskInfo(number);
    if (!info) continue;  // a disk that cannot be queried is left out
    const std::vector<wchar_t> letters = inventory.diskDriveLetters(number, *info);
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
