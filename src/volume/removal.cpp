// Dismounting a disk's volumes, removing the disk and waiting until it is
// gone, and rebuilding it (removal and creation in one step).
#include "base/bytes.h"
#include "base/ignore_result.h"
#include "controller/codes.h"
#include "settings/creation_record.h"
#include "volume/volume.h"

namespace vmd {

namespace {

Bytes removalRecord(const DiskAddressBytes& address, std::uint8_t testOnly, std::uint8_t saveImage) {
  Bytes record(16, 0);
  put32(record, 0, 16);
  put32(record, 4, 16);
  for (std::size_t i = 0; i < 4; ++i) record[8 + i] = address[8 + i];
  record[13] = testOnly;
  record[14] = saveImage;
  return record;
}

bool sendRemoval(VolumeContext& ctx, const DiskAddressBytes& address, std::uint8_t testOnly, std::uint8_t saveImage,
                 std::uint32_t* error = nullptr) {
  const Bytes record = removalRecord(address, testOnly, saveImage);
  const SysResult<std::uint32_t> r = ctx.controller.request(ioctl::RemoveDisk, record.data(), 16, nullptr, 0);
  if (error) *error = r.error;
  return r.ok;
}

}  // namespace

// A dismount that fails stops nothing: the disk is removed, or its volume
// wiped, as the user agreed, and the handles left open on the volume go with it.
bool DismountVolume(VolumeContext& ctx, const std::wstring& volumePath, VolumeLock& lock, bool& forceAll) {
  lock.locked = false;
  // A volume that does not open is asked about below, whatever the reason.
  lock.volume = DeviceHandle::open(ctx.io, volumePath, DeviceIo::GenericRead,
                                   DeviceIo::ShareRead | DeviceIo::ShareWrite, DeviceIo::AttributeNormal)
                    .value;
  if (lock.volume.valid() && lock.volume.control(ioctl::FsctlLockVolume).ok) {
    lock.locked = true;
    ignoreResult(lock.volume.control(ioctl::FsctlDismountVolume), "the command goes on either way");
    return true;
  }
  // Not opened, or another process holds it: ask once per command.
  if (!forceAll) {
    if (!ctx.askForceDismount()) {
      lock.volume.close();
      return false;
    }
    forceAll = true;
  }
  if (!lock.volume.valid()) return true;  // nothing to dismount
  ignoreResult(lock.volume.control(ioctl::FsctlDismountVolume), "the command goes on either way");
  return true;
}

bool DismountDiskVolumes(VolumeContext& ctx, const std::vector<std::wstring>& volumePaths) {
  bool forceAll = false;
  for (const std::wstring& path : volumePaths) {
    VolumeLock lock;
    if (!DismountVolume(ctx, path, lock, forceAll)) return false;
    ReleaseVolume(lock);
  }
  return true;
}

void ReleaseVolume(VolumeLock& lock) {
  if (lock.volume.valid() && lock.locked && lock.volume.control(ioctl::FsctlUnlockVolume).ok) lock.locked = false;
  lock.volume.close();
}

bool CanRemoveDisk(VolumeContext& ctx, const DiskAddressBytes& address) { return sendRemoval(ctx, address, 1, 0); }

bool RemoveDisk(VolumeContext& ctx, const DiskAddressBytes& address, std::uint8_t saveImage) {
  return sendRemoval(ctx, address, 0, saveImage);
}

bool IsDiskPresent(VolumeContext& ctx, const DiskAddressBytes& address) {
  std::uint8_t present[4] = {};
  const SysResult<std::uint32_t> r = ctx.controller.request(
      ioctl::QueryDiskPresent, address.data(), static_cast<std::uint32_t>(address.size()), present, sizeof present);
  return r.ok && getLE(present, sizeof present, 0, 4) != 0;
}

void RemoveDiskAndWait(VolumeContext& ctx, RemoveRequest& request) {
  std::uint32_t error = 0;
  if (!sendRemoval(ctx, request.address, 0, request.saveImage, &error)) {
    request.error = error != 0 ? error : syserr::GenFailure;
    return;
  }
  request.error = 0;
  request.removalStatus = removalstatus::StillPresent;
  for (int round = 0; round < kRemovalRounds; ++round) {
    if (!IsDiskPresent(ctx, request.address)) {
      request.removalStatus = removalstatus::Gone;
      return;
    }
    ctx.clock.sleep(kRemovalWaitMs);
  }
}

void RebuildDisk(VolumeContext& ctx, RebuildRequest& request) {
  request.removed = false;
  request.announcementFailed = false;
  RemoveRequest removal;
  removal.address = request.address;
  removal.saveImage = request.saveImage;
  RemoveDiskAndWait(ctx, removal);
  request.error = removal.error;
  request.status = removal.removalStatus;
  if (request.error != 0 || request.status != 0) return;

  request.removed = true;
  if (request.driveLetter != 0 &&
      !BroadcastVolumeChange(ctx, dbt::DeviceRemoveComplete, static_cast<wchar_t>(request.driveLetter)).ok)
    request.announcementFailed = true;

  MountRequest mount;
  mount.createRequest = request.createRequest;
  mount.address = request.address;
  CreateAndMountDisk(ctx, mount);
  request.address = mount.address;
  request.error = mount.error;
  request.status = mount.mountStatus;
  request.driveLetter = mount.driveLetter;
  if (request.error == 0 && request.status == 0 && controllerAssignsLetter(*request.createRequest) &&
      request.driveLetter != 0 &&
      !BroadcastVolumeChange(ctx, dbt::DeviceArrival, static_cast<wchar_t>(request.driveLetter)).ok)
    request.announcementFailed = true;
}

}  // namespace vmd
