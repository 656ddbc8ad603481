#include "settings/creation_record.h"

#include <algorithm>
#include <new>

#include "base/bytes.h"
#include "settings/settings_record.h"
#include "base/text_codec.h"

namespace vmd {

namespace {

using H = DiskSettingsRecord::Header;
using S = DiskSettingsRecord::Substance;
using F = DiskSettingsRecord::Format;
using I = DiskSettingsRecord::Image;

constexpr std::uint64_t kMb = 1ull << 20;

std::size_t roundUp(std::size_t v, std::size_t to) { return (v + to - 1) / to * to; }

// Writes a NUL-terminated string at `at`; the caller has sized the record.
void putText(Bytes& r, std::size_t at, std::wstring_view text) {
  if (at <= r.size()) putUtf16z(r.data() + at, r.size() - at, text);
}

std::size_t folderCountUsed(std::int32_t count) {
  return count <= 0 ? 0 : std::min<std::size_t>(static_cast<std::size_t>(count), kMaxCustomFolders);
}

}  // namespace

std::uint32_t FolderListBytes(const std::array<std::wstring, kMaxCustomFolders>& folders, std::int32_t count) {
  if (count == 0) return 0;
  if (count < 0) return 2;
  std::uint32_t bytes = 2;
  for (std::size_t i = 0; i < folderCountUsed(count); ++i)
    bytes += static_cast<std::uint32_t>(2 * utf16Length(folders[i]) + 2);
  return bytes;
}

std::uint32_t creationTotalLength(const Bytes& record) { return get32(record, H::TotalLength); }
bool controllerAssignsLetter(const Bytes& record) { return (get8(record, H::DiskFlags + 3) & 0x01) != 0; }
std::uint16_t requestedLetter(const Bytes& record) { return get16(record, H::DriveLetter); }

std::uint32_t ChooseDiskSignature(Clock& clock, SystemInfo& system) {
  const std::uint64_t ft = clock.systemTimeAsFileTime();
  const auto low = static_cast<std::uint32_t>(ft);
  const auto high = static_cast<std::uint32_t>(ft >> 32);
  std::uint32_t candidate = (low >> 24) | (high << 8);
  if (candidate == 0) candidate = 1;
  const SysResult<std::vector<std::uint32_t>> signatures = system.diskDriveSignatures();
  if (!signatures.ok) return candidate;
  const std::vector<std::uint32_t>& taken = signatures.value;
  // Each step leaves one taken value behind, so this ends within size()+1 tries.
  while (std::find(taken.begin(), taken.end(), candidate) != taken.end()) {
    ++candidate;
    if (candidate == 0) candidate = 1;
  }
  return candidate;
}

std::uint32_t ChooseVolumeSerial(Clock& clock) {
  const SystemTime t = clock.systemTime();
  const std::uint32_t b0 = (t.year + t.hour) & 0xFF;
  const std::uint32_t b1 = ((t.year >> 8) + t.minute) & 0xFF;
  const std::uint32_t b2 = (t.month + t.second) & 0xFF;
  const std::uint32_t b3 = (t.day + (t.milliseconds & 0xFF)) & 0xFF;
  const std::uint32_t serial = b0 | (b1 << 8) | (b2 << 16) | (b3 << 24);
  return serial == 0 ? 1 : serial;
}

std::optional<Bytes> BuildCreationRecord(const DiskSettings& s, const Bytes* previous, Clock& clock,
                                         SystemInfo& system) {
  const std::wstring prefix = DiskSettingsRecord::PathPrefix;

  // Section lengths. The layout holds them in 16 bits.
  std::size_t substanceLength = S::FixedSize;
  std::size_t drivePathBytes = 0;
  std::wstring drivePath;
  if (s.physicalDriveSizeMb != 0) {
    drivePath = prefix + s.physicalDriveFile;
    const std::size_t units = utf16Length(drivePath);
    substanceLength += 2 * units;
    drivePathBytes = 2 * units + 2;
  }
  std::size_t maskOffset = 0;
  if (!s.numaNodeMasks.empty()) {
    maskOffset = roundUp(substanceLength, 8);
    substanceLength = maskOffset + 8 * s.numaNodeMasks.size();
  }

  std::size_t formatLength = F::FixedSize;
  std::size_t labelBytes = 0;
  if (!s.volumeLabel.empty()) {
    labelBytes = 2 * utf16Length(s.volumeLabel) + 2;
    formatLength += labelBytes;
  }
  const std::int32_t folderCount = static_cast<std::int32_t>(s.customFolderCount);
  const std::size_t folderOffset = formatLength;
  const std::size_t folderBytes = FolderListBytes(s.customFolders, folderCount);
  formatLength += folderBytes;

  std::size_t imageLength = 0;
  std::size_t imagePathBytes = 0;
  std::wstring imagePath;
  if (!s.imageFile.empty()) {
    imagePath = prefix + s.imageFile;
    const std::size_t units = utf16Length(imagePath);
    imagePathBytes = 2 * units + 2;
    imageLength = 2 * units + I::FixedSize;
  }

  const std::size_t substanceOffset = H::Size;
  const std::size_t formatOffset = roundUp(substanceOffset + substanceLength, 16);
  const std::size_t imageOffset = imageLength ? roundUp(formatOffset + formatLength, 16) : 0;
  const std::size_t total = imageLength ? imageOffset + imageLength : formatOffset + formatLength;
  // Anything beyond 16 bits would wrap into a record that describes another disk.
  if (total > 0xFFFF) return std::nullopt;

  Bytes r;
  try {
    r.assign(total, 0);
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }

  put32(r, H::HeaderSize, H::Size);
  put32(r, H::TotalLength, total);
  put16(r, H::SubstanceOffset, substanceOffset);
  put16(r, H::SubstanceLength, substanceLength);
  put16(r, H::FormatOffset, formatOffset);
  put16(r, H::FormatLength, formatLength);
  put16(r, H::ImageOffset, imageOffset);
  put16(r, H::ImageLength, imageLength);
  put8(r, H::Marker, DiskSettingsRecord::CreateMarker);
  put8(r, H::DriveLetter, s.driveLetter & 0xFF);
  put32(r, H::DiskFlags, s.diskFlags);
  put64(r, H::DiskSize, s.sizeMb * kMb);
  if (previous) {
    put8(r, H::DiskIndex, get8(*previous, H::DiskIndex));
    put32(r, H::Signature, get32(*previous, H::Signature));
  } else {
    put8(r, H::DiskIndex, DiskSettingsRecord::NewDiskIndex);
    put32(r, H::Signature, ChooseDiskSignature(clock, system));
  }

  const std::size_t sub = substanceOffset;
  put32(r, sub + S::Size, S::FixedSize);
  put32(r, sub + S::Length, substanceLength);
  put32(r, sub + S::Flags, s.substanceFlags);
  put64(r, sub + S::DiskSize, s.sizeMb * kMb);
  put64(r, sub + S::ImQuota, s.imQuotaMb * kMb);
  if (s.physicalDriveSizeMb != 0) {
    put64(r, sub + S::DriveShare, s.physicalDriveSizeMb * kMb);
    put64(r, sub + S::Reserved, 0);
    put16(r, sub + S::PathBytes, drivePathBytes);
    putText(r, sub + S::Path, drivePath);
  }
  if (!s.numaNodeMasks.empty()) {
    put16(r, sub + S::MaskOffset, maskOffset);
    put16(r, sub + S::MaskCount, s.numaNodeMasks.size());
    for (std::size_t i = 0; i < s.numaNodeMasks.size(); ++i) put64(r, sub + maskOffset + 8 * i, s.numaNodeMasks[i]);
  }

  const std::size_t fmt = formatOffset;
  put32(r, fmt + F::Size, F::FixedSize);
  put32(r, fmt + F::Length, formatLength);
  put8(r, fmt + F::FsFlags, s.fsFlags);
  put8(r, fmt + F::FileSystem, s.fileSystem);
  put8(r, fmt + F::ClusterSectors, (s.clusterSize / 512) & 0xFF);
  if (labelBytes) {
    put16(r, fmt + F::LabelBytes, labelBytes);
    putText(r, fmt + F::Label, s.volumeLabel);
  }
  std::uint8_t extra = s.fsExtraMask;
  std::uint32_t serial;
  if (extra & fsextra::Serial) {
    serial = s.volumeSerial;
  } else {
    // A serial chosen automatically before survives edit and rebuild.
    extra |= fsextra::AutoSerial;
    const auto prevFormat = previous ? DiskSettingsRecord::format(*previous) : DiskSettingsRecord::Section{};
    if (prevFormat.present() && (get8(*previous, prevFormat.offset + F::ExtraMask) & fsextra::AutoSerial))
      serial = get32(*previous, prevFormat.offset + F::Serial);
    else
      serial = ChooseVolumeSerial(clock);
  }
  put8(r, fmt + F::ExtraMask, extra);
  put32(r, fmt + F::Serial, serial);
  put8(r, fmt + F::Permissions, s.everyonePermissions);
  if (folderBytes) {
    put16(r, fmt + F::FolderBytes, folderBytes);
    put16(r, fmt + F::FolderOffset, folderOffset);
    std::size_t at = fmt + folderOffset;
    for (std::size_t i = 0; i < folderCountUsed(folderCount); ++i) {
      putText(r, at, s.customFolders[i]);
      at += 2 * utf16Length(s.customFolders[i]) + 2;
    }
    put16(r, at, 0);  // the closing NUL
    put8(r, fmt + F::FolderCount, s.customFolderCount & 0xFF);
  }

  if (imageLength) {
    const std::size_t img = imageOffset;
    put32(r, img + I::Size, I::FixedSize);
    put32(r, img + I::Length, imageLength);
    put32(r, img + I::Flags, s.imageFlags);
    if (s.loadOnly == 0) {
      put8(r, img + I::Format, s.imageFormat & 0xFF);
      put8(r, img + I::Level, s.compressionLevel & 0xFF);
      put16(r, img + I::TimingMinutes, s.timingSaveMinutes & 0xFFFF);
      // A saved image that is not SMART cannot use compact DMM.
      std::uint32_t flags = s.substanceFlags;
      if (s.imageFormat == imageformat::Smart)
        flags |= substance::Hybrid;
      else
        flags &= ~(substance::Hybrid | substance::DmmCompact);
      put32(r, sub + S::Flags, flags);
    }
    put16(r, img + I::PathBytes, imagePathBytes);
    putText(r, img + I::Path, imagePath);
  }

  DiskSettingsRecord::storeChecksum(r);
  return r;
}

}  // namespace vmd
