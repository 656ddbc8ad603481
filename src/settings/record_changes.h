// What changing a disk's settings compares between its old and new records,
// and what it reads from the disk's live status to decide whether new image
// settings can act at once. Pure functions on record bytes: every read stays
// inside the record (a field beyond it reads as 0, a string stops at its end).
#pragma once

#include <cstdint>
#include <string>

#include "platform/platform.h"
#include "settings/image_file.h"

namespace vmd {

// The drive letter of a settings or creation record: the u16 at 26.
std::uint16_t recordDriveLetter(const Bytes& record);
// Writes `letter` there and stores the checksum again.
void setRecordDriveLetter(Bytes& record, std::uint16_t letter);
// The disk signature, u32 at 28.
std::uint32_t recordSignature(const Bytes& record);

// Different lengths or different bytes.
bool recordsDiffer(const Bytes& a, const Bytes& b);

// The image sub-records (u16 offset at 48, 0 = none; length at 50): both
// absent is the same, one absent is different, else lengths or bytes decide.
bool imageSettingsDiffer(const Bytes& oldRecord, const Bytes& newRecord);

// The volume sub-records (u16 offset at 44, 0 = none): one absent, or label
// lengths (u16 at +40) or label bytes (from +42) that differ.
bool labelDiffers(const Bytes& oldRecord, const Bytes& newRecord);
// The label of a record's volume sub-record; nothing when it has no label.
std::optional<std::wstring> recordLabel(const Bytes& record);

// Whether the new image settings can act now, from the disk's live status
// (settings/image_file.h): the disk has no part on a physical drive, its
// image is not saved in real time and it has a path, and either the new
// record detaches the image, or names the same path (in any letter case)
// with a mode (byte +12) the disk can take: not 2 on a SMART-capable disk,
// not 1 on another.
bool canApplyImageNow(const ImageFileStatus& status, const Bytes& newRecord);

// The input of ApplyImageSettings for disk `index` (wrapSubRecord): the new
// image sub-record, or 40 zero bytes whose first two u32 are 40 when the new
// record has none.
Bytes applyImageRequest(std::uint8_t index, const Bytes& newRecord);

}  // namespace vmd
