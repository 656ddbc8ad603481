// export <index> -f <file> [-s]: writes the disk's settings record, as the
// controller hands it out, to a disk descriptor file from which a disk with
// the same settings can be made again. Changes nothing on the machine.
#include "base/bytes.h"
#include "commands/commands.h"
#include "commands/disk_commands.h"
#include "settings/descriptor_file.h"
#include "settings/settings_record.h"

namespace vmd {

namespace {

struct ExportOptions {
  const wchar_t* file = nullptr;
  bool silent = false;
};

ExportOptions parseExportOptions(App& app, int argc, wchar_t** argv) {
  static const LongOption kLong[] = {
      {L"file", 1, nullptr, L'f'},
      {L"silent", 0, nullptr, L's'},
      {nullptr, 0, nullptr, 0},
  };
  ExportOptions options;
  OptionScanner& scan = app.options;
  for (;;) {
    const int c = scan.next(argc, argv, L"f:s", kLong);
    if (c == -1) break;
    if (c == L'f') options.file = scan.optarg;
    if (c == L's') options.silent = true;
  }
  scan.reportLeftovers(argc, argv);
  return options;
}

// As PathFindExtensionW finds it: the last dot of the last component, where
// a backslash or a blank after a dot means there is none.
bool hasExtension(const std::wstring& path) {
  bool dot = false;
  for (const wchar_t c : path) {
    if (c == L'\\' || c == L' ')
      dot = false;
    else if (c == L'.')
      dot = true;
  }
  return dot;
}

// The first letter the disk's volumes are mounted at; without one, the
// letter byte its settings keep, widened with its sign.
std::uint16_t descriptorLetter(DiskVolumes& volumes, const DiskInfo& info, const Bytes& record) {
  const std::vector<wchar_t> letters = volumes.diskDriveLetters(info.number, info);
  if (!letters.empty()) return static_cast<std::uint16_t>(letters.front());
  const auto byte = static_cast<std::int8_t>(get8(record, DiskSettingsRecord::Header::DriveLetter));
  return static_cast<std::uint16_t>(static_cast<std::int16_t>(byte));
}

}  // namespace

CommandResult exportCommand(App& app, const CommandArgs& args) {
  const DiskInfo& info = args.disk->info;
  const int index = static_cast<int>(info.number);

  const ExportOptions options = parseExportOptions(app, args.argc, args.argv);
  if (!options.file) {
    app.io.err(L"Error: please specify the output file!\n");
    return Failed;
  }
  std::wstring path = options.file;
  if (app.sys.files.pathIsDirectory(path).valueOr(false)) {
    app.io.err(L"Error: file '%s' is invalid!\n", path);
    return Failed;
  }
  if (!hasExtension(path)) path += L".vdd";
  if (!options.silent && app.sys.files.attributes(path).ok) {
    app.io.err(L"Warning: file '%s' already exists. Are you sure to overwrite it?\n", path);
    if (!app.io.confirm(L"Press 'Y' or 'y' to continue, any other key to cancel: ")) return Cancelled;
  }

  std::optional<Bytes> record = ReadDiskSettingsRecord(app, info.number);
  if (!record) {
    app.io.errStr(strid::SettingsFailed);
    return Failed;
  }
  const std::uint16_t letter = descriptorLetter(args.disk->volumes, info, *record);
  const SysStatus written =
      WriteDescriptorFile(app.sys.files, path, *record, descriptor::Magic,
                          static_cast<std::uint16_t>(app.controller.facts.variantCode & 0xFFFF), letter);
  if (!written.ok) {
    app.io.err(L"Error: exporting disk (#%d) settings to file '%s' failed (0x%08x)!\n", index, path, written.error);
    return Failed;
  }
  if (!options.silent) app.io.err(L"Success: disk (#%d) settings have been exported to file '%s'.\n", index, path);
  return Success;
}

}  // namespace vmd
