#include "settings/settings_validation.h"

#include "controller/controller.h"
#include "controller/im_status.h"
#include "settings/image_file.h"
#include "base/drive_letter.h"
#include "base/text_codec.h"

namespace vmd {

namespace clustertable {
namespace {
constexpr std::uint32_t kEnd = 0x7fffffff;
constexpr ClusterRow kFatSmallMin[] = {{2, 1}, {4, 2}, {8, 4}, {16, 8}, {kEnd, 0}};
constexpr ClusterRow kFatSmallMax[] = {{16, 8}, {kEnd, 0}};
constexpr ClusterRow kFatMin[] = {{32, 1}, {64, 2}, {128, 4}, {256, 8}, {512, 16}, {1024, 32}, {2048, 64}, {kEnd, 0}};
constexpr ClusterRow kFatMax[] = {{32, 8}, {64, 16}, {128, 32}, {2048, 64}, {kEnd, 0}};
constexpr ClusterRow kFat32Min[] = {{2040, 1}, {4080, 2}, {8160, 4}, {16320, 8}, {32640, 16}, {32768, 32}, {kEnd, 0}};
constexpr ClusterRow kFat32Max[] = {{68, 1},   {132, 2},   {260, 4},    {516, 8},
                                    {1028, 16}, {2052, 32}, {32768, 64}, {kEnd, 0}};
template <std::size_t N>
constexpr ClusterTable table(const ClusterRow (&rows)[N]) {
  return {rows, N};
}
}  // namespace
const ClusterTable FatSmallMin = table(kFatSmallMin), FatSmallMax = table(kFatSmallMax);
const ClusterTable FatMin = table(kFatMin), FatMax = table(kFatMax);
const ClusterTable Fat32Min = table(kFat32Min), Fat32Max = table(kFat32Max);
}  // namespace clustertable

std::uint32_t ClusterSectors(const ClusterTable& table, std::uint32_t sizeMb) {
  for (std::size_t i = 0; i < table.count; ++i)
    if (table.rows[i].limitMb >= sizeMb) return table.rows[i].sectors;
  return 0;
}

namespace {

constexpr std::uint64_t kFatFileLimit = 0x100000000ull;  // 4 GiB
constexpr std::uint32_t kSystemReserveMb = 256;

wchar_t firstLetter(const std::wstring& path) { return path.empty() ? L'\0' : path[0]; }

bool fixedOrRemovable(App& app, wchar_t letter) {
  const std::uint32_t type = app.sys.volumes.driveType(driveRoot(letter)).valueOr(drivetype::Unknown);
  return type == drivetype::Fixed || type == drivetype::Removable;
}

void warnExternal(App& app, const std::wstring& path) {
  app.io.err(L"Warning: file '%s' is located on an external (USB etc.) disk or dynamic disk, or a partition of "
             L"which file system is not same as boot file system!\n",
             path);
}

void errFatLimit(App& app, const std::wstring& path) {
  app.io.err(L"Error: file '%s' is invalid - \nfile size cannot exceed 4GB on a FAT/FAT32 partition!\n", path);
}

struct ImageCheck {
  int format = 0;
  std::uint32_t second = 0;
  bool exists = false;
};

// The header checks that an existing image file must pass once it was read.
bool headerMatches(App& app, const std::wstring& path, int format, std::uint64_t fileDiskSize,
                   std::uint64_t sizeBytes, bool smartRequired) {
  if (format == kImageFormatUnknown) return true;
  if (smartRequired && format != static_cast<int>(imageformat::Smart)) {
    app.io.err(L"Error: image file '%s' is not a Smart Image which is required for hybrid-disk!\n", path);
    return false;
  }
  if (fileDiskSize != sizeBytes) {
    app.io.err(L"Error: image file '%s' does not match the virtual disk size!\n", path);
    return false;
  }
  return true;
}

bool checkImage(App& app, const std::wstring& path, std::uint64_t sizeBytes, std::uint32_t loadOnly,
                bool smartRequired, ImageCheck& out) {
  out = ImageCheck{};
  if (!IsValidFilePath(path, kMaxFilePath) || !fixedOrRemovable(app, firstLetter(path))) {
    app.io.errStr(strid::FileInvalid, path);
    return false;
  }
  const wchar_t letter = firstLetter(path);
  if (!IsOnSystemFileSystem(app, letter)) warnExternal(app, path);
  const std::uint32_t attrs = app.sys.files.attributes(path).valueOr(InvalidFileAttributes);
  out.exists = attrs != InvalidFileAttributes;
  std::uint64_t fileDiskSize = 0;
  if (!loadOnly) {
    // The image will be written: it must be writable and fit.
    if (sizeBytes > kFatFileLimit && IsFatVolume(app, letter)) {
      errFatLimit(app, path);
      return false;
    }
    if (out.exists) {
      if (attrs & fileattr::ReadOnly) {
        app.io.err(L"Error: image file '%s' is read-only!\n", path);
        return false;
      }
      // An existing file of unknown format is accepted: it will be overwritten.
      out.format = DetectImageFormat(app.sys.files, path, &fileDiskSize, &out.second);
      if (!headerMatches(app, path, out.format, fileDiskSize, sizeBytes, smartRequired)) return false;
    }
    if (!HasDiskSpace(app, path, sizeBytes)) {
      app.io.err(L"Error: not enough disk space for image file '%s'!\n", path);
      return false;
    }
    return true;
  }
  if (out.exists) {
    out.format = DetectImageFormat(app.sys.files, path, &fileDiskSize, &out.second);
    if (out.format == kImageFormatUnknown) {
      app.io.err(L"Error: image file '%s' is either in unknown format or damaged!\n", path);
      return false;
    }
    if (!headerMatches(app, path, out.format, fileDiskSize, sizeBytes, smartRequired)) return false;
  }
  return true;
}

// Where a disk's data lives.
enum class Placement { Memory, Hybrid, File };

bool chooseDriveLetter(App& app, DiskSettings& s, std::uint16_t current) {
  std::optional<std::uint32_t> mask;
  auto drives = [&] {
    if (!mask) mask = app.sys.volumes.logicalDrives().valueOr(0);
    return *mask;
  };
  const std::uint16_t wanted = s.driveLetter;
  if (isAsciiLetter(wanted)) {
    if (wanted == current) return true;
    const std::uint32_t bit = 1u << (asciiUpper(static_cast<wchar_t>(wanted)) - L'A');
    if ((drives() & bit) == 0) return true;
  }
  if (wanted != 0)
    app.io.err(L"Warning: drive letter '%c' is not valid or has been assigned!\n", static_cast<wchar_t>(wanted));
  if (isAsciiLetter(current)) {
    s.driveLetter = current;
    return true;
  }
  s.driveLetter = 0;
  const std::uint32_t used = drives();
  if (used != 0) {
    for (int c = L'Z'; c >= L'A'; --c) {
      if ((used & (1u << (c - L'A'))) == 0) {
        s.driveLetter = static_cast<std::uint16_t>(c);
        return true;
      }
    }
  }
  app.io.err(L"Error: no available drive letter for this virtual disk!\n");
  return false;
}

std::uint8_t chooseFileSystem(std::uint8_t asked, std::uint32_t sizeMb) {
  if (sizeMb < 10) return filesystem::Fat;
  if (asked == filesystem::Ntfs || sizeMb > 32768) return filesystem::Ntfs;
  if (sizeMb > 64 && (asked == filesystem::Fat32 || sizeMb > 2048)) return filesystem::Fat32;
  return filesystem::Fat;
}

void checkClusterSize(App& app, DiskSettings& s) {
  const std::uint32_t c = s.clusterSize;
  if (c < 512 || c > 65536 || (c & (c - 1)) != 0) {
    if (c != 0) app.io.err(L"Warning: bad value for cluster size!\n");
    s.clusterSize = 0;
    return;
  }
  if (s.fileSystem == filesystem::Ntfs) return;  // 1 to 128 sectors, all allowed
  const std::uint32_t sectors = c / 512;
  const ClusterTable* lo;
  const ClusterTable* hi;
  if (s.fileSystem == filesystem::Fat32) {
    lo = &clustertable::Fat32Min;
    hi = &clustertable::Fat32Max;
  } else if (s.sizeMb <= 16) {
    lo = &clustertable::FatSmallMin;
    hi = &clustertable::FatSmallMax;
  } else {
    lo = &clustertable::FatMin;
    hi = &clustertable::FatMax;
  }
  const std::uint32_t smallest = ClusterSectors(*lo, s.sizeMb), largest = ClusterSectors(*hi, s.sizeMb);
  if (smallest == 0 || largest == 0 || sectors < smallest || sectors > largest) {
    app.io.err(L"Warning: specified cluster size is not available for this disk!\n");
    s.clusterSize = 0;
  }
}

bool validateImage(App& app, DiskSettings& s) {
  ImageCheck found;
  if (!checkImage(app, s.imageFile, std::uint64_t{s.sizeMb} << 20, s.loadOnly, false, found)) {
    s.imageFile.clear();
    return false;
  }
  s.imageFlags |= imageflag::Accepted;
  if (s.loadOnly) {
    s.timingSaveMinutes = 0;
    s.imageFlags &= ~imageflag::LoadOnlyClear;
    return true;
  }
  s.imageFlags |= imageflag::SaveAtShutdown;
  const int f = found.format;
  if (found.exists && f != kImageFormatUnknown) {
    // An existing SMART file cannot become PLAIN/COMPR and back; PLAIN and COMPR may switch.
    if ((f == static_cast<int>(imageformat::Plain) || f == static_cast<int>(imageformat::Compr)) &&
        s.imageFormat == imageformat::Smart) {
      app.io.err(L"Warning: image format option 'smart' is superseded by the existing image file format!\n");
      s.imageFormat = static_cast<std::uint32_t>(f);
    } else if (f == static_cast<int>(imageformat::Smart) && s.imageFormat == imageformat::Compr) {
      app.io.err(L"Warning: image format option 'compr' is supersede by the existing image file format!\n");
      s.imageFormat = static_cast<std::uint32_t>(f);
    }
  }
  if (s.imageFormat != imageformat::Compr) {
    s.imageFlags |= imageflag::QuickSave;
    s.compressionLevel = 1;
  } else {
    s.imageFlags &= ~imageflag::QuickSave;
    const std::int32_t level = static_cast<std::int32_t>(s.compressionLevel);
    s.compressionLevel = level < 1 ? 1 : level > 9 ? 9 : static_cast<std::uint32_t>(level);
  }
  if (s.imageFormat != imageformat::Plain) {
    // Timing and real-time save are for plain images only.
    s.imageFlags &= ~(imageflag::TimingSave | imageflag::RealTimeSave);
    s.timingSaveMinutes = 0;
    return true;
  }
  const std::int32_t minutes = static_cast<std::int32_t>(s.timingSaveMinutes);
  if (minutes == 0) s.imageFlags &= ~imageflag::TimingSave;
  if (minutes < 1 || minutes > 6000) s.timingSaveMinutes = 60;
  return true;
}

}  // namespace

bool ValidateDiskSettings(App& app, DiskSettings& s, bool checkMemory, std::uint16_t currentLetter) {
  // Disk size.
  if (static_cast<std::int32_t>(s.sizeMb) < 1) {
    app.io.err(L"Warning: disk size must be greater than 0!\n");
    s.sizeMb = 128;
  }
  if (static_cast<std::int32_t>(s.sizeMb) > 1048576) {
    app.io.err(L"Warning: disk size must be less than 1048577!\n");
    s.sizeMb = 1048576;
  }

  if (!chooseDriveLetter(app, s, currentLetter)) return false;

  // Backing file of a hybrid disk, or of a disk that lies wholly in its file.
  Placement placement = Placement::Memory;
  if (static_cast<std::int32_t>(s.physicalDriveSizeMb) > 0 && !s.physicalDriveFile.empty()) {
    if (static_cast<std::int32_t>(s.physicalDriveSizeMb) >= static_cast<std::int32_t>(s.sizeMb)) {
      s.physicalDriveSizeMb = s.sizeMb;
      placement = Placement::File;
    } else {
      placement = Placement::Hybrid;
    }
    if (!CheckBackingFilePath(app, s.physicalDriveFile, s.physicalDriveSizeMb)) return false;
    if (!HasDiskSpace(app, s.physicalDriveFile, std::uint64_t{s.physicalDriveSizeMb} << 20)) {
      app.io.err(L"Error: not enough disk space for physical file '%s'!\n", s.physicalDriveFile);
      return false;
    }
  } else {
    s.physicalDriveSizeMb = 0;
    s.physicalDriveFile.clear();
  }

  // Memory.
  const std::uint32_t needed = s.sizeMb - s.physicalDriveSizeMb;
  if (needed != 0 && checkMemory &&
      !MemoryFits(app, needed, (s.substanceFlags & substance::InvisibleMemory) != 0)) {
    if (s.substanceFlags & substance::Dmm) {
      app.io.err(L"Warning: memory request exceeds the available system memory!\n");
    } else {
      app.io.err(L"Error: memory request exceeds the available system memory!\n");
      return false;
    }
  }

  // Memory features.
  if (placement == Placement::File) {
    s.substanceFlags &= ~(substance::InvisibleMemory | substance::Dmm | substance::DmmCompact);
    s.imQuotaMb = 0;
  } else {
    if (static_cast<std::int32_t>(s.imQuotaMb) < 0) s.imQuotaMb = 0;
    if (static_cast<std::int32_t>(s.imQuotaMb) > static_cast<std::int32_t>(s.sizeMb)) s.imQuotaMb = s.sizeMb;
    if (placement == Placement::Hybrid) s.substanceFlags |= substance::Hybrid;
    else s.substanceFlags &= ~substance::Hybrid;
  }

  // File system.
  const std::uint8_t fs = chooseFileSystem(s.fileSystem, s.sizeMb);
  if (fs != s.fileSystem) app.io.err(L"Warning: specified file system is not available for this disk!\n");
  s.fileSystem = fs;

  checkClusterSize(app, s);

  // Settings that only NTFS knows.
  if (s.fileSystem != filesystem::Ntfs) {
    s.fsFlags &= static_cast<std::uint8_t>(~(fsflag::Compress | fsflag::NoIndexing));
    s.everyonePermissions = 0;
  } else if (s.clusterSize > 4096) {
    if (s.fsFlags & fsflag::Compress)
      app.io.err(L"Warning: NTFS compression is not available for cluster size greater than 4KB!\n");
    s.fsFlags &= static_cast<std::uint8_t>(~fsflag::Compress);
  }

  if (s.volumeLabel.size() > 32) s.volumeLabel.resize(32);

  s.fsExtraMask = 0;
  if (s.everyonePermissions != 0) s.fsExtraMask |= fsextra::Permissions;
  if (s.customFolderCount != 0) s.fsExtraMask |= fsextra::Folders;
  if (s.volumeSerial != 0) s.fsExtraMask |= fsextra::Serial;

  if (placement == Placement::Memory && !s.imageFile.empty()) return validateImage(app, s);
  if (!s.imageFile.empty()) app.io.err(L"Warning: %s does not support image file!\n", L"hybrid-disk or file-disk");
  s.imageFile.clear();
  s.imageFlags = 0;
  return true;
}

bool CheckBackingFilePath(App& app, const std::wstring& path, std::uint32_t sizeMb) {
  if (!IsValidFilePath(path, kMaxFilePath)) {
    app.io.errStr(strid::FileInvalid, path);
    return false;
  }
  const wchar_t letter = firstLetter(path);
  if (!fixedOrRemovable(app, letter)) {
    app.io.errStr(strid::FileInvalidVolume, path);
    return false;
  }
  if (sizeMb > 4096 && IsFatVolume(app, letter)) {
    errFatLimit(app, path);
    return false;
  }
  const std::uint32_t attrs = app.sys.files.attributes(path).valueOr(InvalidFileAttributes);
  if (attrs == InvalidFileAttributes) {
    // A new file inherits its folder's compression and encryption; an
    // unreadable folder carries those bits too and is refused.
    const std::wstring folder = path.substr(0, path.rfind(L'\\') + 1);
    if (app.sys.files.attributes(folder).valueOr(InvalidFileAttributes) & (fileattr::Compressed | fileattr::Encrypted)) {
      app.io.err(L"Error: file '%s' is invalid - \nfile or directory cannot be read-only, compressed, or encrypted\n",
                 path);
      return false;
    }
  } else if (attrs & (fileattr::ReadOnly | fileattr::Compressed | fileattr::Encrypted)) {
    app.io.err(L"Error: file '%s' is invalid - \nfile or directory cannot be read-only, compressed, or encrypted!\n",
               path);
    return false;
  }
  if (!IsOnSystemFileSystem(app, letter)) warnExternal(app, path);
  return true;
}

bool CheckImageFile(App& app, const std::wstring& path, std::uint64_t sizeBytes, std::uint32_t loadOnly,
                   bool smartRequired, int* format, std::uint32_t* second) {
  ImageCheck found;
  const bool ok = checkImage(app, path, sizeBytes, loadOnly, smartRequired, found);
  if (format) *format = found.format;
  if (second) *second = found.second;
  return ok;
}

bool HasDiskSpace(App& app, const std::wstring& path, std::uint64_t bytes) {
  if (bytes == 0) return true;
  std::uint64_t need = bytes;
  const SysResult<std::uint64_t> existing = app.sys.files.fileSize(path);
  if (existing.ok) {
    if (bytes <= existing.value) return true;
    need = bytes - existing.value;
  }
  const SysResult<VolumeService::FreeSpaceEx> space = app.sys.volumes.diskFreeSpaceEx(driveRoot(firstLetter(path)));
  if (!space.ok) return false;
  return need <= space.value.totalFree;
}

bool IsOnSystemFileSystem(App& app, wchar_t letter) {
  const SysResult<std::wstring> windows = app.sys.system.windowsDirectory();
  if (!windows.ok || windows.value.empty()) return false;
  const wchar_t system = windows.value[0];
  if (system == letter) return true;
  const SysResult<VolumeService::VolumeInfo> a = app.sys.volumes.volumeInformation(driveRoot(system));
  if (!a.ok) return false;
  const SysResult<VolumeService::VolumeInfo> b = app.sys.volumes.volumeInformation(driveRoot(letter));
  if (!b.ok) return false;
  return equalsNoCase(a.value.fileSystem, b.value.fileSystem);
}

bool IsFatVolume(App& app, wchar_t letter) {
  const SysResult<VolumeService::VolumeInfo> info = app.sys.volumes.volumeInformation(driveRoot(letter));
  if (!info.ok || info.value.fileSystem.size() < 3) return false;
  return equalsNoCase(std::wstring_view(info.value.fileSystem).substr(0, 3), L"FAT");
}

bool MemoryFits(App& app, std::uint32_t neededMb, bool allowInvisibleMemory) {
  if (neededMb == 0) return true;
  std::uint64_t needed = neededMb;
  std::uint64_t imFree = 0, imTotal = 0;
  if (allowInvisibleMemory && getImFreeTotal(app.controller, &imFree, &imTotal)) {
    const std::uint64_t freeMb = imFree >> 20;
    if (needed <= freeMb) return true;
    needed -= freeMb;
  }
  const SysResult<SystemInfo::Memory> mem = app.sys.system.memoryStatus();
  if (!mem.ok) return true;
  return needed + kSystemReserveMb <= (mem.value.availPhys >> 20);
}

}  // namespace vmd
