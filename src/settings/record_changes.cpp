#include "settings/record_changes.h"

#include <algorithm>

#include "base/bytes.h"
#include "base/text_codec.h"
#include "settings/settings_record.h"

namespace vmd {

namespace {

using H = DiskSettingsRecord::Header;

// A sub-record located by a u16 offset from the record's start (0: none),
// cut to the record.
struct SubRecord {
  bool present = false;
  std::size_t offset = 0;
  std::size_t length = 0;  // as the header states it
};

SubRecord subRecordAt(const Bytes& record, std::size_t offsetField, std::size_t lengthField) {
  SubRecord s;
  s.offset = get16(record, offsetField);
  s.length = get16(record, lengthField);
  s.present = s.offset != 0;
  return s;
}

// The bytes [from, from + length) that lie inside the record.
Bytes bytesAt(const Bytes& record, std::size_t from, std::size_t length) {
  if (from >= record.size()) return {};
  const std::size_t end = std::min(record.size(), from + length);
  return Bytes(record.begin() + static_cast<std::ptrdiff_t>(from), record.begin() + static_cast<std::ptrdiff_t>(end));
}

constexpr std::size_t kLabelBytes = 40;        // u16 within the volume sub-record
constexpr std::size_t kLabel = 42;
constexpr std::size_t kRuntimeFlags = 8;       // u32 within the runtime sub-record
constexpr std::size_t kRuntimeActivity = 32;   // u64
constexpr std::uint32_t kModeIndicatorBit = 1u << 21;
constexpr std::size_t kImageFlags = 8;         // u32 within the image sub-record
constexpr std::uint32_t kBusyBit = 1u << 5;
constexpr std::size_t kImageMode = 12;         // u8
constexpr std::size_t kImagePlainPath = 62;    // the path after its "\DosDevices\" prefix
constexpr std::size_t kApplyHead = 16;
constexpr std::size_t kDetachBytes = 40;

std::wstring imagePathOf(const Bytes& record) {
  const SubRecord image = subRecordAt(record, H::ImageOffset, H::ImageLength);
  if (!image.present) return {};
  return readUtf16z(record.data(), record.size(), image.offset + kImagePlainPath);
}

}  // namespace

std::uint16_t recordDriveLetter(const Bytes& record) { return get16(record, H::DriveLetter); }

void setRecordDriveLetter(Bytes& record, std::uint16_t letter) {
  put16(record, H::DriveLetter, letter);
  DiskSettingsRecord::storeChecksum(record);
}

std::uint32_t recordSignature(const Bytes& record) { return get32(record, H::Signature); }

bool recordsDiffer(const Bytes& a, const Bytes& b) { return a != b; }

bool imageSettingsDiffer(const Bytes& oldRecord, const Bytes& newRecord) {
  const SubRecord a = subRecordAt(oldRecord, H::ImageOffset, H::ImageLength);
  const SubRecord b = subRecordAt(newRecord, H::ImageOffset, H::ImageLength);
  if (!a.present && !b.present) return false;
  if (a.present != b.present || a.length != b.length) return true;
  return bytesAt(oldRecord, a.offset, a.length) != bytesAt(newRecord, b.offset, b.length);
}

bool labelDiffers(const Bytes& oldRecord, const Bytes& newRecord) {
  const SubRecord a = subRecordAt(oldRecord, H::FormatOffset, H::FormatLength);
  const SubRecord b = subRecordAt(newRecord, H::FormatOffset, H::FormatLength);
  if (a.present != b.present) return true;
  if (!a.present) return false;
  const std::uint16_t lengthA = get16(oldRecord, a.offset + kLabelBytes);
  const std::uint16_t lengthB = get16(newRecord, b.offset + kLabelBytes);
  if (lengthA != lengthB) return true;
  return bytesAt(oldRecord, a.offset + kLabel, lengthA) != bytesAt(newRecord, b.offset + kLabel, lengthB);
}

std::optional<std::wstring> recordLabel(const Bytes& record) {
  const SubRecord volume = subRecordAt(record, H::FormatOffset, H::FormatLength);
  if (!volume.present) return std::nullopt;
  const std::uint16_t bytes = get16(record, volume.offset + kLabelBytes);
  if (bytes == 0) return std::nullopt;
  return readUtf16z(record.data(), record.size(), volume.offset + kLabel, volume.offset + kLabel + bytes);
}

ImageRuntime readImageRuntime(const Bytes& status) {
  ImageRuntime r;
  if (get16(status, H::SubstanceLength) != 0) {
    const std::size_t at = get16(status, H::SubstanceOffset);
    r.modeIndicator = (get32(status, at + kRuntimeFlags) & kModeIndicatorBit) != 0;
    r.idle = get64(status, at + kRuntimeActivity) == 0;
  }
  if (get16(status, H::ImageLength) != 0) {
    const std::size_t at = get16(status, H::ImageOffset);
    r.busy = (get32(status, at + kImageFlags) & kBusyBit) != 0;
    r.imagePath = readUtf16z(status.data(), status.size(), at + kImagePlainPath);
  }
  return r;
}

bool canApplyImageNow(const ImageRuntime& runtime, const Bytes& newRecord) {
  if (!runtime.idle || runtime.busy || runtime.imagePath.empty()) return false;
  const SubRecord image = subRecordAt(newRecord, H::ImageOffset, H::ImageLength);
  if (!image.present) return true;  // the image is being detached
  if (!equalsNoCase(imagePathOf(newRecord), runtime.imagePath)) return false;
  const std::uint8_t mode = get8(newRecord, image.offset + kImageMode);
  return runtime.modeIndicator ? mode != 2 : mode != 1;
}

Bytes applyImageRequest(std::uint8_t index, const Bytes& newRecord) {
  const SubRecord image = subRecordAt(newRecord, H::ImageOffset, H::ImageLength);
  Bytes sub;
  if (image.present) {
    sub = bytesAt(newRecord, image.offset, image.length);
  } else {
    sub.assign(kDetachBytes, 0);
    put32(sub, 0, kDetachBytes);
    put32(sub, 4, kDetachBytes);
  }
  Bytes request(kApplyHead, 0);
  put32(request, 0, kApplyHead);
  put32(request, 4, kApplyHead + sub.size());
  put8(request, 10, index);
  put32(request, 12, sub.size());
  request.insert(request.end(), sub.begin(), sub.end());
  return request;
}

}  // namespace vmd
