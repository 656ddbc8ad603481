// Which disks the controller has, what one disk is, and which drive letters
// and volume paths belong to it. Nothing is cached between commands.
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

class DiskInventory {
 public:
  explicit DiskInventory(App& app) : app_(app) {}

  // argv[0] is the index text. 0 with `info` filled, or Failed after the message.
  CommandResult resolveDiskIndex(wchar_t** argv, DiskInfo& info);

  std::optional<std::array<std::uint8_t, 16>> queryDiskBitmap(std::uint32_t* error = nullptr);
  std::optional<DiskInfo> queryDiskInfo(std::uint8_t number);

  std::vector<wchar_t> diskDriveLetters(std::uint8_t number, const DiskInfo& info);
  std::vector<std::wstring> diskVolumePaths(std::uint8_t number, bool directIo);

  // System disk number -> letters (ascending) / volume interface paths.
  using LetterMap = std::map<std::uint32_t, std::vector<wchar_t>>;
  using VolumeMap = std::map<std::uint32_t, std::vector<std::wstring>>;
  LetterMap buildLetterMap();
  VolumeMap buildVolumeMap();

 private:
  std::optional<std::uint32_t> queryDeviceNumber(std::uint8_t number);

  App& app_;
  std::optional<LetterMap> letters_;  // built at most once per run
};

}  // namespace vmd
