// Drives, volumes and mount points of the simulated machine. Each letter has
// one owner: a volume's "X:\" mount point, or a drives[] entry for a letter
// that shows no simulated volume of its own (or names one by GUID).
#pragma once

#include <optional>
#include <string>

#include "platform/platform.h"
#include "sim/machine.h"

namespace vmd::sim {

class SimVolumes : public VolumeService {
 public:
  explicit SimVolumes(Machine& m) : m_(m) {}

  SysResult<std::uint32_t> logicalDrives() override;
  SysResult<std::uint32_t> driveType(const std::wstring& root) override;
  SysResult<VolumeInfo> volumeInformation(const std::wstring& root) override;
  SysResult<FreeSpace> diskFreeSpace(const std::wstring& root) override;
  SysResult<FreeSpaceEx> diskFreeSpaceEx(const std::wstring& path) override;
  SysResult<std::wstring> volumeNameForMountPoint(const std::wstring& mountPoint, std::uint32_t chars) override;
  SysResult<PathNames> volumePathNames(const std::wstring& volumeName, std::uint32_t chars) override;
  SysStatus setVolumeMountPoint(const std::wstring& mountPoint, const std::wstring& volumeName) override;
  SysStatus deleteVolumeMountPoint(const std::wstring& mountPoint) override;
  SysStatus setVolumeLabel(const std::wstring& root, const std::wstring* label) override;

  // The GUID name of the volume a device path opens ("\\.\X:", an interface
  // path, a volume GUID name without its trailing backslash), or nothing.
  static std::optional<std::string> volumeForDevicePath(World& w, const std::string& path);
  static Volume* findVolume(World& w, const std::string& name);

  // What a root path ("X:\", a volume GUID name, an interface path, a
  // device path, a folder mount point) names: the volume with the drive's
  // overrides laid over it. `type` is the drive type it shows.
  struct View {
    Volume volume;
    std::uint32_t type;
    bool hasVolume;
  };
  static std::optional<View> resolveRoot(World& w, const std::string& root);

 private:
  Machine& m_;
};

}  // namespace vmd::sim
