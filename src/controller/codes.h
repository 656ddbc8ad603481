// Control codes of the controller and of the system's storage stack, and the
// head that begins every per-disk request.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

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

// Port, path id, target id (the disk number) and logical unit.
struct DiskAddress {
  std::uint8_t port = 0, path = 0, target = 0, lun = 0;
};

// The 12-byte head of a per-disk request: head length, total length, address.
inline std::array<std::uint8_t, 12> diskRequestHead(std::uint8_t diskNumber, std::uint32_t headLength = 12,
                                                    std::uint32_t totalLength = 12) {
  std::array<std::uint8_t, 12> h{};
  for (int i = 0; i < 4; ++i) {
    h[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(headLength >> (8 * i));
    h[static_cast<std::size_t>(4 + i)] = static_cast<std::uint8_t>(totalLength >> (8 * i));
  }
  h[10] = diskNumber;
  return h;
}

// The controller's device-interface class, {48FA1FE0-7189-432A-9FD4-9DB766B64B31}.
inline constexpr InterfaceClass kControllerInterface = {
    0x48FA1FE0, 0x7189, 0x432A, {0x9F, 0xD4, 0x9D, 0xB7, 0x66, 0xB6, 0x4B, 0x31}};
// The system's volume interface class, {53F5630D-B6BF-11D0-94F2-00A0C91EFB8B}.
inline constexpr InterfaceClass kVolumeInterface = {
    0x53F5630D, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};

}  // namespace vmd
