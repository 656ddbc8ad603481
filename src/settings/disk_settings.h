// The settings of one virtual disk as the commands work on them: built from
// defaults (add) or from the controller's record (edit, rebuild, view), changed
// by the options, corrected by validation, printed and turned into a creation
// record.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace vmd {

// diskFlags: the controller's disk attribute word. Bits other than these are
// carried unchanged between the record and DiskSettings.
namespace diskflag {
constexpr std::uint32_t DirectIo = 0x01000000;  // clear: SCSI
constexpr std::uint32_t OneTime = 0x40000000;   // gone at the next boot
}  // namespace diskflag

// substanceFlags.
namespace substance {
constexpr std::uint32_t InvisibleMemory = 0x00000100;
constexpr std::uint32_t Dmm = 0x00000400;
constexpr std::uint32_t DmmCompact = 0x00100000;  // meaningful with Dmm only
constexpr std::uint32_t Hybrid = 0x00200000;      // part memory, part file; also set for SMART images
}  // namespace substance

// fileSystem codes. Any other value prints as "RAW" in the report.
namespace filesystem {
constexpr std::uint8_t Ntfs = 2;
constexpr std::uint8_t Fat = 18;
constexpr std::uint8_t Fat32 = 19;
}  // namespace filesystem

// fsFlags.
namespace fsflag {
constexpr std::uint8_t Compress = 0x01;
constexpr std::uint8_t TempFolder = 0x02;
constexpr std::uint8_t NoIndexing = 0x04;
}  // namespace fsflag

// fsExtraMask: which optional format values are present. AutoSerial exists
// only in the wire record: the serial there was chosen automatically.
namespace fsextra {
constexpr std::uint8_t Permissions = 0x01;
constexpr std::uint8_t Serial = 0x02;
constexpr std::uint8_t Folders = 0x04;
constexpr std::uint8_t AutoSerial = 0x08;
}  // namespace fsextra

// everyonePermissions. The values overlap on purpose: Full holds Modify,
// which holds Write and ReadExec.
namespace permission {
constexpr std::uint8_t Full = 0x27;
constexpr std::uint8_t Modify = 0x26;
constexpr std::uint8_t Write = 0x20;
constexpr std::uint8_t ReadExec = 0x04;
// The single bits the report names.
constexpr std::uint8_t FullBit = 0x01, ModifyBit = 0x02, ReadExecBit = 0x04, WriteBit = 0x20;
}  // namespace permission

// imageFlags.
namespace imageflag {
constexpr std::uint32_t Accepted = 0x00000001;        // associated and accepted by validation
constexpr std::uint32_t SaveAtShutdown = 0x00000010;
constexpr std::uint32_t RealTimeSave = 0x00000020;
constexpr std::uint32_t TimingSave = 0x00001000;      // interval in timingSaveMinutes
constexpr std::uint32_t FurtherSave = 0x00004000;     // a further save mode of the controller
constexpr std::uint32_t QuickSave = 0x00010000;
constexpr std::uint32_t DelayLoad = 0x00800000;
// An image whose flags hold none of the save set is Load Only.
constexpr std::uint32_t SaveSet = SaveAtShutdown | RealTimeSave | TimingSave | FurtherSave;  // 0x5030
// Cleared when an image is made Load Only.
constexpr std::uint32_t LoadOnlyClear = SaveSet | QuickSave | 0x00080000;  // 0x95030
}  // namespace imageflag

// imageFormat.
namespace imageformat {
constexpr std::uint32_t Plain = 0;
constexpr std::uint32_t Smart = 1;
constexpr std::uint32_t Compr = 2;
}  // namespace imageformat

inline constexpr std::uint32_t kMaxCustomFolders = 10;
// physicalDriveSizeMb given by a bare "-p <file>": as large as the disk.
inline constexpr std::uint32_t kDriveShareWholeDisk = 0x7fffffff;

// The fields in their declared order, with the defaults of a new disk.
struct DiskSettings {
  std::uint32_t sizeMb = 128;                // MB (2^20 bytes)
  std::uint32_t diskFlags = 0;               // diskflag::
  std::uint16_t driveLetter = 0;             // one upper-case wide character; 0 = none chosen
  std::uint32_t substanceFlags = 0;          // substance::
  std::uint32_t imQuotaMb = 0;               // 0 = all available Invisible Memory
  std::uint32_t physicalDriveSizeMb = 0;     // 0 = not hybrid; kDriveShareWholeDisk = the disk size
  std::wstring physicalDriveFile;            // full path as typed, no prefix
  std::vector<std::uint64_t> numaNodeMasks;  // bit n = processor node n
  std::wstring volumeLabel = L"RAMDISK";
  std::uint32_t clusterSize = 0;             // bytes; 0 = file-system default
  std::uint8_t fileSystem = filesystem::Fat32;
  std::uint8_t fsFlags = 0;                  // fsflag::
  std::uint8_t fsExtraMask = 0;              // fsextra::
  std::uint8_t everyonePermissions = 0;      // permission::; 0 = leave default
  std::uint32_t volumeSerial = 0;            // 0 = choose one
  std::uint32_t customFolderCount = 0;       // 0..kMaxCustomFolders
  std::array<std::wstring, kMaxCustomFolders> customFolders;
  std::wstring imageFile;                    // full path as typed; empty = no image
  std::uint32_t loadOnly = 0;                // 1 = "Load only", 0 = "Load & save"
  std::uint32_t imageFlags = 0;              // imageflag::
  std::uint32_t imageFormat = imageformat::Plain;
  std::uint32_t compressionLevel = 1;        // COMPR level, 1..9 once validated
  std::uint32_t timingSaveMinutes = 0;       // 0 = no timed save

  bool operator==(const DiskSettings&) const = default;
};

}  // namespace vmd
