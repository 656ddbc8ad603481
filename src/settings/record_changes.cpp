#include "settings/record_changes.h"

#include <algorithm>

#include "base/bytes.h"
#include "base/text_codec.h"
#include "controller/codes.h"
#include "settings/settings_record.h"

namespace vmd {

namespace {

using R = DiskSettingsRecord;
using H = R::Header;

// A section of the records compared here is there when its offset is set,
// not by its length as in a status record: an edited record keeps that rule.
bool placed(const R::Section& s) { return s.offset != 0; }

// The bytes [from, from + length) that lie inside the record.
Bytes bytesAt(const Bytes& record, std::size_t from, std::size_t length) {
  if (from >= record.size()) return {};
  const std::size_t end = std::min(record.size(), from + length);
  return Bytes(record.begin() + static_cast<std::ptrdiff_t>(from), record.begin() + static_cast<std::ptrdiff_t>(end));
}

std::wstring imagePathOf(const Bytes& record) {
  const R::Section image = R::image(record);
  if (!placed(image)) return {};
  return readUtf16z(record.data(), record.size(), image.offset + R::Image::Path + R::PathPrefixBytes);
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
  const R::Section a = R::image(oldRecord);
  const R::Section b = R::image(newRecord);
  if (!placed(a) && !placed(b)) return false;
  if (placed(a) != placed(b) || a.length != b.length) return true;
  return bytesAt(oldRecord, a.offset, a.length) != bytesAt(newRecord, b.offset, b.length);
}

bool labelDiffers(const Bytes& oldRecord, const Bytes& newRecord) {
  const R::Section a = R::format(oldRecord);
  const R::Section b = R::format(newRecord);
  if (placed(a) != placed(b)) return true;
  if (!placed(a)) return false;
  const std::uint16_t lengthA = get16(oldRecord, a.offset + R::Format::LabelBytes);
  const std::uint16_t lengthB = get16(newRecord, b.offset + R::Format::LabelBytes);
  if (lengthA != lengthB) return true;
  return bytesAt(oldRecord, a.offset + R::Format::Label, lengthA) !=
         bytesAt(newRecord, b.offset + R::Format::Label, lengthB);
}

std::optional<std::wstring> recordLabel(const Bytes& record) {
  const R::Section volume = R::format(record);
  if (!placed(volume)) return std::nullopt;
  const std::uint16_t bytes = get16(record, volume.offset + R::Format::LabelBytes);
  if (bytes == 0) return std::nullopt;
  const std::size_t label = volume.offset + R::Format::Label;
  return readUtf16z(record.data(), record.size(), label, label + bytes);
}

bool canApplyImageNow(const ImageFileStatus& status, const Bytes& newRecord) {
  if (!status.noFilePart || status.realTimeSave || status.imagePath.empty()) return false;
  const R::Section image = R::image(newRecord);
  if (!placed(image)) return true;  // the image is being detached
  if (!equalsNoCase(imagePathOf(newRecord), status.imagePath)) return false;
  const std::uint8_t mode = get8(newRecord, image.offset + R::Image::Format);
  return status.smartCapable ? mode != 2 : mode != 1;
}

Bytes applyImageRequest(std::uint8_t index, const Bytes& newRecord) {
  const R::Section image = R::image(newRecord);
  Bytes sub;
  if (placed(image)) {
    sub = bytesAt(newRecord, image.offset, image.length);
  } else {
    sub.assign(R::Image::FixedSize, 0);
    put32(sub, R::Image::Size, R::Image::FixedSize);
    put32(sub, R::Image::Length, R::Image::FixedSize);
  }
  return wrapSubRecord(index, sub);
}

}  // namespace vmd
