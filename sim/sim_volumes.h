// Drives, volumes and mount points of the simulated machine.
//
// state.drives[]: {letter, type, volume?, and any volume property to override}
// state.volumes[]: {name (\\?\Volume{...}\), interfacePath, mountPoints[],
//   fileSystem, label, serial, sectorsPerCluster, bytesPerSector, totalBytes,
//   freeBytes, extents[{disk, offset, length}], present?, offline?, type?,
//   devicePath? (the device that holds the volume, e.g. a Direct-IO disk's
//   \\.\VelmoRdDevPort0Target<n>)}
#pragma once

#include <optional>
#include <string>

#include "platform/platform.h"
#include "sim/machine.h"

namespace vmd::sim {

class SimVolumes : public VolumeService {
 public:
  explicit SimVolumes(Machine& m) : m_(m) {}

  std::uint32_t logicalDrives() override;
  std::uint32_t driveType(const std::wstring& root) override;
  VolumeInfo volumeInformation(const std::wstring& root) override;
  FreeSpace diskFreeSpace(const std::wstring& root) override;
  FreeSpaceEx diskFreeSpaceEx(const std::wstring& path) override;
  Text volumeNameForMountPoint(const std::wstring& mountPoint, std::uint32_t chars) override;
  PathNames volumePathNames(const std::wstring& volumeName, std::uint32_t chars) override;
  SysStatus setVolumeMountPoint(const std::wstring& mountPoint, const std::wstring& volumeName) override;
  SysStatus deleteVolumeMountPoint(const std::wstring& mountPoint) override;
  SysStatus setVolumeLabel(const std::wstring& root, const std::wstring* label) override;

  // The volume a device path opens ("\\.\X:", an interface path, a volume
  // GUID name without its trailing backslash), or nothing.
  static std::optional<std::string> volumeForDevicePath(Machine& m, const std::string& path);
  // A request sent to an opened volume.
  static DeviceIo::ControlResult volumeControl(Machine& m, const std::string& volume, std::uint32_t code,
                                               const std::uint8_t* in, std::uint32_t inSize, std::uint8_t* out,
                                               std::uint32_t outSize);

  // The properties of what a root path ("X:\", a volume GUID name, a folder
  // mount point) names: the volume merged with the drive's overrides.
  static std::optional<json> resolveRoot(Machine& m, const std::string& root);
  static json* findVolume(Machine& m, const std::string& name);

 private:
  Machine& m_;
};

std::uint32_t driveTypeCode(const json& type);

}  // namespace vmd::sim
