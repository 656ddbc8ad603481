// save <index> [-a <file> [-F <format>]] [-s]: has the controller write the
// disk's contents to its own image file or, with -a, to another file in a
// chosen format. The disk's volumes are flushed first; the controller does
// the writing.
#include "commands/save_command.h"

#include <algorithm>

#include "base/bytes.h"
#include "base/decimal.h"
#include "base/ignore_result.h"
#include "base/text_codec.h"
#include "commands/commands.h"
#include "commands/disk_commands.h"
#include "controller/controller.h"
#include "settings/disk_settings.h"
#include "settings/image_file.h"
#include "settings/settings_record.h"
#include "settings/settings_validation.h"

namespace vmd {

namespace {

constexpr std::int32_t kMaxLevel = 9;

struct SaveOptions {
  const wchar_t* saveAs = nullptr;
  ImageFormatChoice choice;
  bool silent = false;
};

SaveOptions parseSaveOptions(App& app, int argc, wchar_t** argv) {
  static const LongOption kLong[] = {
      {L"saveas", 1, nullptr, L'a'},
      {L"format", 1, nullptr, L'F'},
      {L"silent", 0, nullptr, L's'},
      {nullptr, 0, nullptr, 0},
  };
  SaveOptions options;
  OptionScanner& scan = app.options;
  for (;;) {
    const int c = scan.next(argc, argv, L"a:F:s", kLong);
    if (c == -1) break;
    if (c == L'a') options.saveAs = scan.optarg;
    if (c == L'F') ApplyImageFormatWord(options.choice, scan.optarg ? scan.optarg : L"");
    if (c == L's') options.silent = true;
  }
  scan.reportLeftovers(argc, argv);
  return options;
}

// Opened for reading and writing so that FlushFileBuffers may write; a
// volume that cannot be opened is not flushed.
SysStatus FlushVolume(DeviceIo& io, const std::wstring& volume) {
  SysResult<DeviceHandle> h = DeviceHandle::open(io, volume, DeviceIo::GenericRead | DeviceIo::GenericWrite,
                                                 DeviceIo::ShareRead | DeviceIo::ShareWrite, 0);
  if (!h.ok) return h.status();
  return h.value.flush();
}

}  // namespace

void ApplyImageFormatWord(ImageFormatChoice& choice, const std::wstring& word) {
  if (equalsNoCase(word, L"smart")) {
    choice.format = imageformat::Smart;
  } else if (word.size() >= 5 && equalsNoCase(word.substr(0, 5), L"compr")) {
    if (word.size() == 5) {
      choice.format = imageformat::Compr;
      choice.level = 0;
    } else if (word[5] == L'?') {
      choice.format = imageformat::Compr;
      choice.level = decimalToLong(word.c_str() + 6);
    } else {
      choice.format = imageformat::Plain;
    }
  } else {
    choice.format = imageformat::Plain;
  }
}

ImageFormatChoice ApplyFormatRule(ImageFormatChoice choice, bool smartCapable) {
  // Deliberately one-sided: a SMART-capable disk never saves COMPR, and a
  // disk that is not still saves COMPR.
  if (smartCapable && choice.format == imageformat::Compr) choice.format = imageformat::Smart;
  if (!smartCapable && choice.format == imageformat::Smart) choice.format = imageformat::Plain;
  choice.level = choice.level >= 1 ? std::min(choice.level, kMaxLevel) : 1;
  return choice;
}

CommandResult saveCommand(App& app, const CommandArgs& args) {
  const DiskInfo& info = args.disk->info;
  const int index = static_cast<int>(info.number);

  const std::optional<DiskStatus> status = QueryDiskStatus(app.controller, info.number);
  if (!status) {
    app.io.errStr(strid::StatusFailed);
    return Failed;
  }
  const ImageFileStatus image = ParseImageFileStatus(*status);
  if (!image.noFilePart) {
    app.io.err(L"Error: hybrid-disk/file-disk does not support the image file!\n");
    return Failed;
  }
  const SaveOptions options = parseSaveOptions(app, args.argc, args.argv);

  std::wstring saveAs;
  if (options.saveAs) {
    saveAs = options.saveAs;
    if (image.delayLoad) {
      app.io.err(L"Error: disk in delay load mode does not support 'Save As' request!\n");
      return Failed;
    }
    if (!IsValidFilePath(saveAs, kMaxFilePath)) {
      app.io.errStr(strid::FileInvalid, saveAs);
      return Failed;
    }
    const std::uint32_t type = app.sys.volumes.driveType(saveAs.substr(0, 1) + L":\\").valueOr(drivetype::Unknown);
    if (type != drivetype::Removable && type != drivetype::Fixed) {
      app.io.errStr(strid::FileInvalidVolume, saveAs);
      return Failed;
    }
    if (equalsNoCase(saveAs, image.imagePath)) {
      app.io.err(L"Error: the file you entered is same as the disk's associated image file!\nPlease enter another "
                 L"file, or do not specify the option 'Save As'.\n");
      return Failed;
    }
  } else {
    if (image.imagePath.empty()) {
      app.io.err(L"Error: disk #%d has no image file associated!\n", index);
      return Failed;
    }
    if (image.loadOnly && !options.silent) {
      app.io.out(L"The disk's associated image file has the load-only attribute. Are you sure to save the disk "
                 L"contents to the associated image file?\n");
      if (!app.io.confirm(L"Press 'Y' or 'y' to continue, any other key to cancel: ")) return Cancelled;
    }
  }

  const ImageFormatChoice choice = ApplyFormatRule(options.choice, image.smartCapable);
  Bytes record;
  if (options.saveAs) {
    record = BuildSaveImageRecord(&saveAs, 0, static_cast<std::uint8_t>(choice.format),
                                  static_cast<std::uint8_t>(choice.level));
  } else if (image.loadOnly && !image.delayLoad) {
    // The controller has no save settings for a load-only image: it is told
    // the file's own format.
    std::uint32_t level = 0;
    const int detected = DetectImageFormat(app.sys.files, image.imagePath, nullptr, &level);
    if (detected == kImageFormatUnknown)
      record = BuildSaveImageRecord(nullptr, imageflag::Accepted, static_cast<std::uint8_t>(choice.format),
                                    static_cast<std::uint8_t>(choice.level));
    else
      record = BuildSaveImageRecord(nullptr, imageflag::Accepted, static_cast<std::uint8_t>(detected),
                                    static_cast<std::uint8_t>(detected == static_cast<int>(imageformat::Compr)
                                                                  ? level
                                                                  : 0));
  } else {
    record = BuildSaveImageRecord(nullptr, 0, 0, 0);
  }

  const std::wstring& shownPath = options.saveAs ? saveAs : image.imagePath;
  if (!options.silent) {
    app.io.out(L"Are you sure to save disk (#%d) contents to image file '%s'?\n", index, shownPath);
    if (!app.io.confirm(L"Press 'Y' or 'y' to continue, any other key to cancel: ")) return Cancelled;
  }

  for (const std::wstring& volume : args.disk->volumes.diskVolumePaths(info.number, info.directIo))
    ignoreResult(FlushVolume(app.sys.io, volume),
                 "the controller saves the disk as it stands; what a volume still caches is the volume's");
  if (!options.silent) app.io.out(L"Saving, please wait...\n");

  const Bytes request = wrapSubRecord(info.number, record);
  const SysResult<std::uint32_t> r = app.controller.request(
      ioctl::SaveDiskImage, request.data(), static_cast<std::uint32_t>(request.size()), nullptr, 0);
  if (!r.ok) {
    app.io.err(L"Error: saving disk (#%d) contents to image file '%s' failed (0x%08x)!\n", index, shownPath,
               r.error);
    return Failed;
  }
  if (!options.silent)
    app.io.err(L"Success: disk (#%d) contents have been saved to image file '%s'.\n", index, shownPath);
  return Success;
}

}  // namespace vmd
