// Makes a DiskSettings consistent before anything is shown or sent: values
// that cannot be used are corrected with a warning, and the command is
// stopped with an error where no sensible correction exists. Every check
// here answers true (go on) or false (stop: the error has been printed on
// standard error, where the check prints at all).
#pragma once

#include <cstdint>
#include <string>

#include "base/file_path.h"
#include "settings/disk_settings.h"
#include "console/app.h"

namespace vmd {

// Paths of backing and image files are at most this long, terminator included.
inline constexpr std::uint32_t kMaxFilePath = 248;

// `checkMemory` is true for add and false for edit and rebuild;
// `currentLetter` is the disk's present drive letter, 0 for a new disk.
[[nodiscard]] bool ValidateDiskSettings(App& app, DiskSettings& settings, bool checkMemory,
                                        std::uint16_t currentLetter);

// The file of a hybrid or file disk, `sizeMb` of the disk kept in it.
[[nodiscard]] bool CheckBackingFilePath(App& app, const std::wstring& path, std::uint32_t sizeMb);

// An image file for a disk of `sizeBytes`. `format` starts as 0 and receives
// the format of an existing file whose header was read (-1: unknown);
// `second` receives the header reader's second value (the COMPR level).
[[nodiscard]] bool CheckImageFile(App& app, const std::wstring& path, std::uint64_t sizeBytes,
                                  std::uint32_t loadOnly, bool smartRequired, int* format = nullptr,
                                  std::uint32_t* second = nullptr);

// IsValidFilePath: base/file_path.h.

// Whether `bytes` more fit on the volume of the path's drive letter; the
// bytes an existing file already takes count towards them.
[[nodiscard]] bool HasDiskSpace(App& app, const std::wstring& path, std::uint64_t bytes);

// The drive is the Windows directory's, or carries the same file system.
[[nodiscard]] bool IsOnSystemFileSystem(App& app, wchar_t letter);

// The drive's file-system name begins with "FAT".
[[nodiscard]] bool IsFatVolume(App& app, wchar_t letter);

// Whether `neededMb` fit in free Invisible Memory (when allowed) and
// physical memory, keeping 256 MB free for the system.
[[nodiscard]] bool MemoryFits(App& app, std::uint32_t neededMb, bool allowInvisibleMemory);

// One row of a cluster-size table: disks up to `limitMb` take `sectors`
// sectors per cluster at least (or at most); 0 means no such size.
struct ClusterRow {
  std::uint32_t limitMb;
  std::uint32_t sectors;
};
struct ClusterTable {
  const ClusterRow* rows;
  std::size_t count;
};

namespace clustertable {
extern const ClusterTable FatSmallMin, FatSmallMax;  // FAT, disks of 16 MB or less
extern const ClusterTable FatMin, FatMax;            // FAT, disks above 16 MB
extern const ClusterTable Fat32Min, Fat32Max;
}  // namespace clustertable

// The value of the first row whose limit is at least `sizeMb`.
std::uint32_t ClusterSectors(const ClusterTable& table, std::uint32_t sizeMb);

}  // namespace vmd
