// Volume management: creating a disk and waiting for its volume and letter,
// moving drive letters, announcing letter changes, the mounted-devices
// database, dismounting a volume before its disk goes, and removing a disk
// and waiting until it is gone. The controller creates and removes disks
// asynchronously; these procedures poll, and their timings and retry counts
// are part of their contract. Nothing here prints except through the
// force-dismount question the caller hands in.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

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

// The 12-byte form in which the controller names a disk: lengths 12 and 12,
// port 0, path 0, target = the disk index, lun 0.
using DiskAddressBytes = std::array<std::uint8_t, 12>;
inline std::uint8_t addressTarget(const DiskAddressBytes& a) { return a[10]; }

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

// The address bytes of disk `index`.
DiskAddressBytes diskAddress(std::uint8_t index);

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

[[nodiscard]] bool CanRemoveDisk(VolumeContext& ctx, const DiskAddressBytes& address);
[[nodiscard]] bool RemoveDisk(VolumeContext& ctx, const DiskAddressBytes& address, std::uint8_t saveImage);
[[nodiscard]] bool IsDiskPresent(VolumeContext& ctx, const DiskAddressBytes& address);
void RemoveDiskAndWait(VolumeContext& ctx, RemoveRequest& request);
void RebuildDisk(VolumeContext& ctx, RebuildRequest& request);

// Poll limits.
inline constexpr int kMountRounds = 60;
inline constexpr std::uint32_t kControllerLetterWaitMs = 500;
inline constexpr std::uint32_t kSystemLetterWaitMs = 1000;
inline constexpr int kRemovalRounds = 120;
inline constexpr std::uint32_t kRemovalWaitMs = 500;

}  // namespace vmd
