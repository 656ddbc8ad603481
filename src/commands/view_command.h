// The parts of `view` that print a disk's status and its volumes.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "console/app.h"
#include "volume/volume.h"

namespace vmd {

// The status block of `disk`, then one block per volume, each closed by the
// rule line. Failed after "Error: getting disk status failed!" when the
// status cannot be read.
CommandResult PrintDiskStatus(App& app, DiskVolumes& volumes, const DiskInfo& disk);

// One volume block. `rootPath` is true for a drive root or a device path
// built by the caller, false for a volume GUID name, whose first mount path
// is shown instead when it has one.
void PrintVolumeDetails(App& app, const std::wstring& path, bool rootPath);

// The volume's mount paths as the system's multi-string, or nothing.
std::optional<std::vector<wchar_t>> QueryVolumePathNames(App& app, const std::wstring& volumeName);

}  // namespace vmd
