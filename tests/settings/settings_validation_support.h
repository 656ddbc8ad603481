// The machine the validation tests run on, and one validation on it with what
// it printed.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "settings/settings_validation.h"
#include "support/sim_app.h"

namespace vmd::test {

using sim::json;

// C: the NTFS system drive with 100 GiB free; D: a fixed FAT32 drive; E: a
// removable NTFS drive with 1 GiB free; N: a network drive. 12 GiB of
// physical memory are available.
inline json machine() {
  return json::parse(R"({
    "drives": [
      {"letter": "C", "type": "fixed", "volume": "\\\\?\\Volume{c}\\"},
      {"letter": "D", "type": "fixed", "volume": "\\\\?\\Volume{d}\\"},
      {"letter": "E", "type": "removable", "volume": "\\\\?\\Volume{e}\\"},
      {"letter": "N", "type": "remote", "volume": "\\\\?\\Volume{n}\\"}
    ],
    "volumes": [
      {"name": "\\\\?\\Volume{c}\\", "mountPoints": ["C:\\"], "fileSystem": "NTFS", "label": "System",
       "totalBytes": 255999344640, "freeBytes": 107374182400},
      {"name": "\\\\?\\Volume{d}\\", "mountPoints": ["D:\\"], "fileSystem": "FAT32", "label": "Data",
       "totalBytes": 107374182400, "freeBytes": 53687091200},
      {"name": "\\\\?\\Volume{e}\\", "mountPoints": ["E:\\"], "fileSystem": "NTFS", "label": "Stick",
       "totalBytes": 8589934592, "freeBytes": 1073741824, "freeToCaller": 1},
      {"name": "\\\\?\\Volume{n}\\", "mountPoints": ["N:\\"], "fileSystem": "NTFS",
       "totalBytes": 8589934592, "freeBytes": 8589934592}
    ],
    "host": {"memory": {"totalPhys": 17179869184, "availPhys": 12884901888}}
  })");
}

inline json withFiles(json m, json files) {
  m["files"] = std::move(files);
  return m;
}

struct Validated {
  bool result;
  DiskSettings s;
  std::wstring err;
};

inline Validated validate(DiskSettings s, json state = machine(), bool checkMemory = true,
                   std::uint16_t current = 0) {
  SimApp sim(std::move(state));
  const bool r = ValidateDiskSettings(sim.app, s, checkMemory, current);
  return {r, s, sim.err()};
}

// A disk that validation leaves as it is on the machine above.
inline DiskSettings plainDisk() {
  DiskSettings s;
  s.driveLetter = L'R';
  return s;
}

inline DiskSettings withImage(std::wstring path, std::uint32_t sizeMb = 128) {
  DiskSettings s = plainDisk();
  s.sizeMb = sizeMb;
  s.imageFile = std::move(path);
  return s;
}

inline const std::wstring kExternal =
    L"Warning: file 'D:\\img.bin' is located on an external (USB etc.) disk or dynamic disk, or a partition of "
    L"which file system is not same as boot file system!\n";

}  // namespace vmd::test
