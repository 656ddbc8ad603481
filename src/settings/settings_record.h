// The controller's record of a disk's settings: a 64-byte header with a
// byte-sum checksum, then the substance, format and image sections located by
// 16-bit offsets and lengths in the header (a length of 0: section absent).
// All integers little-endian, strings UTF-16LE and NUL-terminated. The status
// record (code 0x4606C) has the same layout.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "base/bytes.h"
#include "console/app.h"
#include "platform/platform.h"
#include "settings/disk_settings.h"

namespace vmd {

class CQnIoCtrl;

struct DiskSettingsRecord {
  // Field offsets from the record's start.
  struct Header {
    static constexpr std::size_t Size = 64;
    static constexpr std::size_t HeaderSize = 0;       // u32, always 64
    static constexpr std::size_t TotalLength = 4;      // u32, header and all sections
    static constexpr std::size_t Checksum = 8;         // u32, see checksum()
    static constexpr std::size_t DiskFlags = 12;       // u32
    static constexpr std::size_t DiskSize = 16;        // u64, bytes
    static constexpr std::size_t DiskIndex = 24;       // u8; NewDiskIndex in a creation request
    static constexpr std::size_t Marker = 25;          // u8; CreateMarker in a creation request
    static constexpr std::size_t DriveLetter = 26;     // u8, one ASCII character; byte 27 stays 0,
                                                       // so readers may take a u16 wide character
    static constexpr std::size_t Signature = 28;       // u32, disk signature
    static constexpr std::size_t SubstanceOffset = 40;  // u16 pairs: offset, length
    static constexpr std::size_t SubstanceLength = 42;
    static constexpr std::size_t FormatOffset = 44;
    static constexpr std::size_t FormatLength = 46;
    static constexpr std::size_t ImageOffset = 48;
    static constexpr std::size_t ImageLength = 50;
  };
  // Field offsets from the substance section's start.
  struct Substance {
    static constexpr std::size_t FixedSize = 56;
    static constexpr std::size_t Size = 0;            // u32, FixedSize
    static constexpr std::size_t Length = 4;          // u32, section length
    static constexpr std::size_t Flags = 8;           // u32, substanceFlags
    static constexpr std::size_t MaskOffset = 12;     // u16, from the section start, 8-aligned
    static constexpr std::size_t MaskCount = 14;      // u16
    static constexpr std::size_t DiskSize = 16;       // u64, bytes
    static constexpr std::size_t ImQuota = 24;        // u64, bytes
    static constexpr std::size_t DriveShare = 32;     // u64, bytes; 0 = not hybrid
    static constexpr std::size_t Reserved = 40;       // u64
    static constexpr std::size_t PathBytes = 48;      // u16, NUL included; 0 = none
    static constexpr std::size_t Path = 50;           // "\DosDevices\" + physicalDriveFile
  };
  // Field offsets from the format section's start.
  struct Format {
    static constexpr std::size_t FixedSize = 44;
    static constexpr std::size_t Size = 0;            // u32, FixedSize
    static constexpr std::size_t Length = 4;          // u32
    static constexpr std::size_t FsFlags = 8;         // u8
    static constexpr std::size_t ExtraMask = 9;       // u8, fsExtraMask (+ fsextra::AutoSerial)
    static constexpr std::size_t FileSystem = 10;     // u8
    static constexpr std::size_t ClusterSectors = 11;  // u8, clusterSize >> 9
    static constexpr std::size_t Serial = 12;         // u32
    static constexpr std::size_t Permissions = 16;    // u8
    static constexpr std::size_t FolderCount = 19;    // u8
    static constexpr std::size_t FolderBytes = 20;    // u16
    static constexpr std::size_t FolderOffset = 22;   // u16, from the section start
    static constexpr std::size_t LabelBytes = 40;     // u16, NUL included; 0 = none
    static constexpr std::size_t Label = 42;
  };
  // Field offsets from the image section's start.
  struct Image {
    static constexpr std::size_t FixedSize = 40;
    static constexpr std::size_t Size = 0;            // u32, FixedSize
    static constexpr std::size_t Length = 4;          // u32
    static constexpr std::size_t Flags = 8;           // u32, imageFlags
    static constexpr std::size_t Format = 12;         // u8, when not Load Only
    static constexpr std::size_t Level = 13;          // s8, when not Load Only
    static constexpr std::size_t TimingMinutes = 14;  // u16, when not Load Only
    static constexpr std::size_t PathBytes = 36;      // u16, NUL included
    static constexpr std::size_t Path = 38;           // "\DosDevices\" + imageFile
  };

  static constexpr std::size_t ChecksumFrom = 12;
  static constexpr std::uint8_t NewDiskIndex = 255;
  static constexpr std::uint8_t CreateMarker = 0x80;
  // Paths in the record carry this prefix; reading skips its 24 bytes unchecked.
  static constexpr wchar_t PathPrefix[] = L"\\DosDevices\\";
  static constexpr std::size_t PathPrefixBytes = 24;

  // A section as the header places it; absent when its length is 0.
  struct Section {
    std::uint16_t offset = 0;
    std::uint16_t length = 0;
    bool present() const { return length != 0; }
  };
  // Read from the header; a record too short to hold the field gives 0.
  static Section sectionAt(const Bytes& record, std::size_t offsetField, std::size_t lengthField) {
    return {get16(record, offsetField), get16(record, lengthField)};
  }
  static Section substance(const Bytes& record) {
    return sectionAt(record, Header::SubstanceOffset, Header::SubstanceLength);
  }
  static Section format(const Bytes& record) { return sectionAt(record, Header::FormatOffset, Header::FormatLength); }
  static Section image(const Bytes& record) { return sectionAt(record, Header::ImageOffset, Header::ImageLength); }

  // 32-bit wrapping sum of every byte from offset 12 to the end.
  static std::uint32_t checksum(const Bytes& record);
  // Writes checksum() at offset 8; the last step of building a record.
  static void storeChecksum(Bytes& record);
};

// Asks the controller for the settings record of disk `index` (code 0x4601c).
// The reply buffer starts at 1024 bytes and is doubled while the controller
// fails with 122 or 234 and the buffer is below 102400 bytes (so the largest
// tried is 131072). Returns a copy of the record of exactly its own total
// length, cut to the bytes the controller returned; nothing on any other
// failure, or when the reply is too short to hold the record's total length.
// Prints nothing: callers report string 259.
std::optional<Bytes> ReadDiskSettingsRecord(CQnIoCtrl& controller, std::uint8_t index);
std::optional<Bytes> ReadDiskSettingsRecord(App& app, std::uint8_t index);

// Fills `settings` from a record. Fields the record does not carry keep their
// values; node masks are appended to the list, not replacing it. Reads never
// leave `record`: a field outside it reads as 0, a string stops at its end, a
// node mask that does not lie wholly within it ends the list, and at most
// kMaxCustomFolders folder names are taken.
void DiskSettingsFromRecord(const Bytes& record, DiskSettings& settings);

}  // namespace vmd
