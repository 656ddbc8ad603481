// Control codes of the controller and of the system's storage stack, the
// disk address that begins every per-disk request, and the request that
// wraps a sub-record.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "base/bytes.h"
#include "platform/platform.h"

namespace vmd {

namespace ioctl {
// Controller codes: device type 4, FILE_READ_ACCESS, METHOD_BUFFERED.
constexpr std::uint32_t controllerCode(std::uint32_t function) { return (4u << 16) | (1u << 14) | (function << 2); }

constexpr std::uint32_t CreateDisk = controllerCode(0x800);
constexpr std::uint32_t RemoveDisk = controllerCode(0x801);
constexpr std::uint32_t ReadDiskSettingsRecord = controllerCode(0x807);
constexpr std::uint32_t ChangeDiskSettings = controllerCode(0x808);
constexpr std::uint32_t QueryDiskInfo = controllerCode(0x809);
constexpr std::uint32_t QueryDiskBitmap = controllerCode(0x80A);
constexpr std::uint32_t QueryDosDeviceOwner = controllerCode(0x80C);
constexpr std::uint32_t QueryDosNameTarget = controllerCode(0x80D);
constexpr std::uint32_t EnableIm = controllerCode(0x80E);
constexpr std::uint32_t QueryImStatus = controllerCode(0x80F);
constexpr std::uint32_t QueryDiskPresent = controllerCode(0x810);
constexpr std::uint32_t SaveDiskImage = controllerCode(0x811);
constexpr std::uint32_t ChangeDiskLetter = controllerCode(0x813);
constexpr std::uint32_t ReinitializeDisk = controllerCode(0x817);
constexpr std::uint32_t SetImOptions = controllerCode(0x819);
constexpr std::uint32_t DisableIm = controllerCode(0x81A);
constexpr std::uint32_t QueryDiskStatus = controllerCode(0x81B);
constexpr std::uint32_t ApplyImageSettings = controllerCode(0x81C);
constexpr std::uint32_t QueryDeviceNumber = controllerCode(0x81E);
constexpr std::uint32_t QueryControllerVersion = controllerCode(0x840);

static_assert(CreateDisk == 0x46000 && QueryDiskStatus == 0x4606C && QueryControllerVersion == 0x46100);

// The system's own codes.
constexpr std::uint32_t VolumeGetVolumeDiskExtents = 0x560000;
constexpr std::uint32_t DiskGetPartitionInfo = 0x74004;
constexpr std::uint32_t MountmgrQueryAutoMount = 0x6D003C;
constexpr std::uint32_t MountmgrSetAutoMount = 0x6DC040;
constexpr std::uint32_t FsctlLockVolume = 0x90018;
constexpr std::uint32_t FsctlUnlockVolume = 0x9001C;
constexpr std::uint32_t FsctlDismountVolume = 0x90020;
}  // namespace ioctl

// The 12-byte form in which the controller names a disk, which is also the
// whole input of a per-disk query: head length 12, total length 12, port 0,
// path 0, target = the disk number, lun 0.
using DiskAddressBytes = std::array<std::uint8_t, 12>;

inline DiskAddressBytes diskAddress(std::uint8_t diskNumber) {
  DiskAddressBytes a{};
  a[0] = 12;
  a[4] = 12;
  a[10] = diskNumber;
  return a;
}
inline std::uint8_t addressTarget(const DiskAddressBytes& a) { return a[10]; }

// A per-disk request that carries a sub-record: a 16-byte head (head length
// 16, total length, the disk's address, the sub-record's length), then the
// sub-record. Built in one allocation.
inline Bytes wrapSubRecord(std::uint8_t diskNumber, const Bytes& sub) {
  constexpr std::size_t kHead = 16;
  Bytes request(kHead + sub.size(), 0);
  putLE(request.data(), request.size(), 0, 4, kHead);
  putLE(request.data(), request.size(), 4, 4, request.size());
  request[10] = diskNumber;
  putLE(request.data(), request.size(), 12, 4, sub.size());
  std::copy(sub.begin(), sub.end(), request.begin() + kHead);
  return request;
}

// The controller's device-interface class, {48FA1FE0-7189-432A-9FD4-9DB766B64B31}.
inline constexpr InterfaceClass kControllerInterface = {
    0x48FA1FE0, 0x7189, 0x432A, {0x9F, 0xD4, 0x9D, 0xB7, 0x66, 0xB6, 0x4B, 0x31}};
// The system's volume interface class, {53F5630D-B6BF-11D0-94F2-00A0C91EFB8B}.
inline constexpr InterfaceClass kVolumeInterface = {
    0x53F5630D, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};

}  // namespace vmd
