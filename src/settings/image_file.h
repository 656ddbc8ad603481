// Image files as the program sees them: recognising a file's format from its
// first sector, what the controller's live status of a disk says of its
// image file and save modes, and the image section a save request carries.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "controller/controller.h"
#include "platform/platform.h"

namespace vmd {

// Magic numbers at offset 0 of an image file's first sector (little-endian).
namespace imagemagic {
constexpr std::uint64_t Smart = 0x6820224927880486ull;
constexpr std::uint64_t Compr = 0x8602113816328511ull;
}  // namespace imagemagic

// Field offsets in an image file's first sector.
namespace imagehead {
constexpr std::uint32_t Bytes = 512;
constexpr std::size_t SmartDiskSize = 40;  // u64
constexpr std::size_t ComprLevel = 20;     // u32
constexpr std::size_t ComprDiskSize = 24;  // u64
}  // namespace imagehead

inline constexpr int kImageFormatUnknown = -1;

// Reads exactly the first 512 bytes of `path` and returns its format: 0 PLAIN
// (no magic, boot signature 55 AA at 510), 1 SMART, 2 COMPR, or -1 when it is
// none of them, shorter than 512 bytes or unreadable. `diskSize` receives the
// disk size the file holds (a PLAIN file's own length); `level` the COMPR
// compression level and is left alone for the other formats.
int DetectImageFormat(FileService& files, const std::wstring& path, std::uint64_t* diskSize = nullptr,
                      std::uint32_t* level = nullptr);

// What the program keeps of a disk's live status (QueryDiskStatus,
// controller/controller.h); the one reader of that record.
struct ImageFileStatus {
  std::wstring imagePath;     // empty when the image section is absent
  bool loadOnly = false;      // no save mode (none of 0x5030)
  bool delayLoad = false;     // 0x00800000
  bool quickSave = false;     // 0x00010000
  bool timingSave = false;    // 0x00001000
  bool realTimeSave = false;  // 0x00000020
  bool smartCapable = false;  // substance bit 0x00200000
  bool noFilePart = true;     // the physical-drive share is 0

  bool operator==(const ImageFileStatus&) const = default;
};

ImageFileStatus ParseImageFileStatus(const DiskStatus& status);

// The image section inside a save request: 40 bytes without a target (the
// disk's own image file), else 38 + the bytes of "\DosDevices\" + target and
// its terminator.
Bytes BuildSaveImageRecord(const std::wstring* target, std::uint32_t imageFlags, std::uint8_t format,
                           std::uint8_t level);

}  // namespace vmd
