// Which disks the controller has, what one disk is, and which drive letters
// and volume paths belong to it. Nothing is cached between commands: a
// command makes one DiskInventory and it lives as long as the command.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "controller/controller.h"

namespace vmd {

// The 32-byte disk record of QueryDiskInfo.
struct DiskInfo {
  std::uint8_t number = 0;      // target id of the disk's address (byte 10)
  bool hasImage = false;        // byte 14
  bool good = false;            // byte 15
  std::int64_t sizeBytes = 0;   // bytes 16..23
  bool directIo = false;        // byte 24
  wchar_t letter = 0;           // byte 25, the Direct-IO disk's letter
  std::array<std::uint8_t, 32> raw{};
};

DiskInfo parseDiskInfo(const std::uint8_t (&raw)[32]);

// Disk numbers of a QueryDiskBitmap answer, ascending.
std::vector<std::uint8_t> disksInBitmap(const std::array<std::uint8_t, 16>& bitmap);

// One extent of a volume: a system disk number, where on it and how long.
struct VolumeExtent {
  std::uint32_t disk = 0;
  std::uint64_t offset = 0, length = 0;
};

// The extents of an IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS answer (count,
// padding, then 24-byte extents); extents that would lie beyond `size`
// bytes are not read.
std::vector<VolumeExtent> parseVolumeExtents(const std::uint8_t* data, std::size_t size);

// Their system disk numbers, one per extent.
std::vector<std::uint32_t> extentDiskNumbers(const std::uint8_t* data, std::size_t size);

class DiskInventory {
 public:
  explicit DiskInventory(App& app) : app_(app) {}

  // argv[0] is the index text (the caller has checked there is one). 0 with
  // `info` filled, or Failed after the reason has been printed.
  CommandResult resolveDiskIndex(wchar_t** argv, DiskInfo& info);

  // Nothing on failure, with the system error in *error when asked for.
  std::optional<std::array<std::uint8_t, 16>> queryDiskBitmap(std::uint32_t* error = nullptr);
  std::optional<DiskInfo> queryDiskInfo(std::uint8_t number);

  // Possibly empty; failures along the way give an empty list. The letters of
  // SCSI disks come from a letter map built at the first call and kept for
  // the life of this object.
  std::vector<wchar_t> diskDriveLetters(std::uint8_t number, const DiskInfo& info);
  // The volume map is built afresh for each call.
  std::vector<std::wstring> diskVolumePaths(std::uint8_t number, bool directIo);

  // System disk number -> letters (ascending) / volume interface paths
  // (enumeration order). A volume with several extents on one disk appears
  // once per extent.
  using LetterMap = std::map<std::uint32_t, std::vector<wchar_t>>;
  using VolumeMap = std::map<std::uint32_t, std::vector<std::wstring>>;
  LetterMap buildLetterMap();
  VolumeMap buildVolumeMap();

 private:
  std::optional<std::uint32_t> queryDeviceNumber(std::uint8_t number);
  // Extents of a volume opened by `path`; nothing when the open or the request fails.
  std::optional<std::vector<std::uint32_t>> volumeExtentDisks(const std::wstring& path);

  App& app_;
  std::optional<LetterMap> letters_;  // built at most once per command
};

}  // namespace vmd
