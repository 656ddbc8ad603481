// What changing a disk's settings compares between its old and new records,
// and what it reads from the disk's live status to decide whether new image
// settings can act at once. Pure functions on record bytes: every read stays
// inside the record (a field beyond it reads as 0, a string stops at its end).
#pragma once

#include <cstdint>
#include <string>

#include "platform/platform.h"

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

// What the live status record says about the disk's image.
struct ImageRuntime {
  bool idle = true;           // the runtime sub-record's u64 at +32 is 0, or there is none
  bool modeIndicator = false;  // bit 21 of its u32 at +8
  bool busy = false;           // bit 5 of the image sub-record's u32 at +8
  std::wstring imagePath;      // the wide string at +62 of the image sub-record; empty without one
};
ImageRuntime readImageRuntime(const Bytes& status);

// Whether the new image settings can act now: the disk is idle, its image
// not busy and its path not empty, and either the new record detaches the
// image, or names the same path (in any letter case) with a mode (byte +12)
// the disk can take: not 2 while the mode indicator is set, not 1 while it
// is clear.
bool canApplyImageNow(const ImageRuntime& runtime, const Bytes& newRecord);

// The input of ApplyImageSettings for disk `index`: a 16-byte head (16, the
// total length, the address, the sub-record's length) and the new image
// sub-record, or 40 zero bytes whose first two u32 are 40 when the new
// record has none.
Bytes applyImageRequest(std::uint8_t index, const Bytes& newRecord);

}  // namespace vmd
