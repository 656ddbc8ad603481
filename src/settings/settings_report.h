// The settings block that add, edit, rebuild and view print on standard output.
#pragma once

#include <cstdint>
#include <string>

#include "settings/disk_settings.h"
#include "console/output.h"

namespace vmd {

namespace reportmode {
constexpr std::uint32_t Settings = 0;  // the full block
constexpr std::uint32_t Status = 1;    // no drive letter, nothing of the volume's format
}  // namespace reportmode

// Prints `settings` between two rule lines; never fails.
void PrintDiskSettings(Output& out, const DiskSettings& settings, std::uint32_t mode);

// A byte count as display text: "3.00 GB" from 1 GiB up, else whole MB
// rounded to the nearest ("2 MB"); below 1 MiB "0 MB".
std::wstring FormatByteSize(Output& out, std::uint64_t bytes);

// A cluster size: from 1024 bytes on in whole KB ("4 KB", shifted, so 1536
// is "1 KB"), below that the byte count alone ("512").
std::wstring FormatClusterSize(Output& out, std::uint32_t bytes);

}  // namespace vmd
