// The file system and attributes a reinitialised volume gets, laid out as the
// format section of a settings record: the section stored with the disk when
// it is usable, else one read from the volume as it stands.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/platform.h"

namespace vmd {

// fileSystem code of a volume whose file system is none of NTFS, FAT, FAT32;
// a stored section with this code is not used.
inline constexpr std::uint8_t kOtherFileSystem = 1;

// The format section of a settings record when it is present, lies within
// the record and names a file system other than kOtherFileSystem.
std::optional<Bytes> StoredFormatSpec(const Bytes& record);

// A format section for the volume at `root` (its name followed by "\"):
// file system, cluster sectors, serial (to be used as it is), label, the TEMP
// folder and, on NTFS, the root's compression and indexing. Nothing when the
// volume's information cannot be read.
std::optional<Bytes> BuildFormatSpecFromVolume(VolumeService& volumes, FileService& files, const std::wstring& root);

}  // namespace vmd
