// The record that asks the controller to create a disk (code 0x46000), built
// from validated settings, and the two generators it uses: the disk signature
// of a new disk and the automatically chosen volume serial.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/platform.h"
#include "settings/disk_settings.h"

namespace vmd {

// Builds the creation record of `settings`. With `previous` (the disk's
// record as read before edit or rebuild) the disk keeps its index, its
// signature and an automatically chosen serial; without it the index is 255
// and the signature is ChooseDiskSignature's. `clock` and `system` give the
// time and the disk signatures for the generators. Nothing when the record cannot be
// allocated, or when a section or the whole record would not fit the 16-bit
// lengths and offsets of the layout (validated settings never come near that).
std::optional<Bytes> BuildCreationRecord(const DiskSettings& settings, const Bytes* previous, Clock& clock,
                                         SystemInfo& system);

// A signature no disk in the system has, never 0: bits 24..55 of the current
// file time, stepped by 1 past every signature the management service
// reports. Unchecked when that service fails.
std::uint32_t ChooseDiskSignature(Clock& clock, SystemInfo& system);

// A serial from the current UTC time, never 0.
std::uint32_t ChooseVolumeSerial(Clock& clock);

// The three fields of a creation record that creating and mounting a disk
// reads: its total length (the request's input length), whether the
// controller assigns the disk's letter itself (bit 0 of byte 15, the
// Direct-IO flag), and the requested letter (u16 at 26; 0 = none). A record
// too short for a field reads it as 0.
std::uint32_t creationTotalLength(const Bytes& record);
bool controllerAssignsLetter(const Bytes& record);
std::uint16_t requestedLetter(const Bytes& record);

// Byte size of the custom-folder list as the format section stores it: each
// name with its NUL, then one more NUL; 0 for a count of 0, 2 for a negative
// count. At most kMaxCustomFolders names are counted.
std::uint32_t FolderListBytes(const std::array<std::wstring, kMaxCustomFolders>& folders, std::int32_t count);

}  // namespace vmd
