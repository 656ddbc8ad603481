// Volume management: which volumes and letters a disk has, creating a disk
// and waiting for its volume and letter, moving drive letters, announcing
// letter changes, the mounted-devices database, dismounting a volume before
// its disk goes, and removing a disk and waiting until it is gone. The controller creates and removes disks
// asynchronously; these procedures poll, and their timings and retry counts
// are part of their contract. Nothing here prints except through the
// force-dismount question the caller hands in.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "controller/codes.h"
#include "controller/controller.h"
#include "platform/platform.h"

namespace vmd {

// The services the procedures use. `askForceDismount` shows the in-use
// warning and the force prompt and returns true only for 'Y' or 'y'.
struct VolumeContext {
  CVmDevControl& controller;
  DeviceIo& io;
  VolumeService& volumes;
  Registry& registry;
  Clock& clock;
  DeviceBroadcast& broadcast;
  std::function<bool()> askForceDismount;
};

// Mount status of CreateAndMountDisk.
namespace mountstatus {
constexpr std::uint32_t Ready = 0;
constexpr std::uint32_t LetterNotMoved = 6;    // came up at another letter and could not be moved
constexpr std::uint32_t VolumeNotReady = 7;    // the volume did not appear in time
constexpr std::uint32_t NoFreeLetter = 9;      // C to Z were all taken
}  // namespace mountstatus

// Removal status of RemoveDiskAndWait.
namespace removalstatus {
constexpr std::uint32_t Gone = 0;
constexpr std::uint32_t StillPresent = 10;  // accepted, but still there after the wait
}  // namespace removalstatus

// DBT_ events of WM_DEVICECHANGE.
namespace dbt {
constexpr std::uint32_t DeviceArrival = 0x8000;
constexpr std::uint32_t DeviceRemoveComplete = 0x8004;
}  // namespace dbt

struct MountRequest {
  const Bytes* createRequest = nullptr;  // the creation record
  DiskAddressBytes address{};            // receives the new disk's address
  std::uint32_t error = 0;               // system error of the create request; 0 = created
  std::uint32_t mountStatus = 0;         // mountstatus::
  std::uint16_t driveLetter = 0;         // the letter the disk ended with; 0 = none
};

struct RemoveRequest {
  DiskAddressBytes address{};
  std::uint8_t saveImage = 1;
  std::uint32_t error = 0;          // system error of the remove request; 0 = accepted
  std::uint32_t removalStatus = 0;  // removalstatus::
};

// One volume being dismounted. The handle closes itself; the caller unlocks
// (ReleaseVolume) before it goes. Whether the dismount itself succeeded is not
// kept: the command goes on either way (DismountVolume).
struct VolumeLock {
  DeviceHandle volume;
  bool locked = false;
};

struct RebuildRequest {
  DiskAddressBytes address{};          // in: the disk to remove; out: the new disk
  const Bytes* createRequest = nullptr;
  std::uint16_t driveLetter = 0;       // in: the old letter; out: the new one
  std::uint8_t saveImage = 1;
  bool removed = false;
  std::uint32_t error = 0;
  std::uint32_t status = 0;
  bool announcementFailed = false;     // the old or the new letter could not be announced
};

void CreateAndMountDisk(VolumeContext& ctx, MountRequest& request);
bool FindNewDiskLetter(VolumeContext& ctx, const DiskAddressBytes& address, std::uint32_t& previousDrives,
                       std::uint32_t currentDrives, std::uint16_t& letter);
bool IsDiskDeviceReady(VolumeContext& ctx, const DiskAddressBytes& address);
// Automatic mounting of new volumes by the mount-point manager: nothing when
// it cannot be asked.
std::optional<bool> QueryAutoMount(VolumeContext& ctx);
[[nodiscard]] bool SetAutoMount(VolumeContext& ctx, bool on);

// False when the volume did not get the new letter. It is then put back at
// the old one; `keptOld`, when given, is false when that failed too and the
// volume is left without a letter.
[[nodiscard]] bool MoveVolumeMountPoint(VolumeContext& ctx, wchar_t oldLetter, wchar_t newLetter,
                                        bool* keptOld = nullptr);
[[nodiscard]] bool ChangeDriveLetter(VolumeContext& ctx, std::uint8_t index, bool controllerAssigned,
                                     wchar_t oldLetter, wchar_t newLetter);
// BroadcastSystemMessageW with WM_DEVICECHANGE for one letter: not ok when
// the system answered a negative value.
SysStatus BroadcastVolumeChange(VolumeContext& ctx, std::uint32_t event, wchar_t letter);
// The 20-byte DEV_BROADCAST_VOLUME record for one letter.
Bytes volumeBroadcastRecord(wchar_t letter);
[[nodiscard]] bool RewriteMountedDevice(VolumeContext& ctx, wchar_t letter, const std::array<std::uint8_t, 12>& data);

// False when the user declined to force a dismount; `forceAll` is shared by
// the volumes of one command.
[[nodiscard]] bool DismountVolume(VolumeContext& ctx, const std::wstring& volumePath, VolumeLock& lock,
                                  bool& forceAll);
// Unlocks a locked volume and closes its handle.
void ReleaseVolume(VolumeLock& lock);
// Locks, dismounts, unlocks and closes each of a disk's volumes in turn.
// False when the user declined to force a dismount: the volumes before it
// stay dismounted, the rest are untouched.
[[nodiscard]] bool DismountDiskVolumes(VolumeContext& ctx, const std::vector<std::wstring>& volumePaths);

[[nodiscard]] bool CanRemoveDisk(VolumeContext& ctx, const DiskAddressBytes& address);
[[nodiscard]] bool RemoveDisk(VolumeContext& ctx, const DiskAddressBytes& address, std::uint8_t saveImage);
[[nodiscard]] bool IsDiskPresent(VolumeContext& ctx, const DiskAddressBytes& address);
void RemoveDiskAndWait(VolumeContext& ctx, RemoveRequest& request);
void RebuildDisk(VolumeContext& ctx, RebuildRequest& request);

// --- The volumes and drive letters of one of the controller's disks: a
// Direct-IO disk's are its own device and the letter the controller owns; a
// SCSI disk's are the system volumes with an extent on its system disk.

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

class DiskVolumes {
 public:
  DiskVolumes(DiskInventory& inventory, DeviceIo& io, VolumeService& volumes, DeviceSetup& setup)
      : inventory_(inventory), io_(io), volumes_(volumes), setup_(setup) {}

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
  // Extents of a volume opened by `path`; nothing when the open or the request fails.
  std::optional<std::vector<std::uint32_t>> volumeExtentDisks(const std::wstring& path);

  DiskInventory& inventory_;
  DeviceIo& io_;
  VolumeService& volumes_;
  DeviceSetup& setup_;
  std::optional<LetterMap> letters_;  // built at most once per command
};

// Poll limits.
inline constexpr int kMountRounds = 60;
inline constexpr std::uint32_t kControllerLetterWaitMs = 500;
inline constexpr std::uint32_t kSystemLetterWaitMs = 1000;
inline constexpr int kRemovalRounds = 120;
inline constexpr std::uint32_t kRemovalWaitMs = 500;

}  // namespace vmd
