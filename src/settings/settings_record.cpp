#include "settings/settings_record.h"

#include <algorithm>
#include <new>

#include "base/bytes.h"
#include "controller/codes.h"
#include "controller/controller.h"
#include "base/text_codec.h"

namespace vmd {

namespace {

using H = DiskSettingsRecord::Header;
using S = DiskSettingsRecord::Substance;
using F = DiskSettingsRecord::Format;
using I = DiskSettingsRecord::Image;

// The settings reply begins with a head laid out like the request.
constexpr std::size_t kReplyHead = 12;

// The path fields carry "\DosDevices\"; the name starts right after it.
std::wstring pathAfterPrefix(const Bytes& r, std::size_t pathStart) {
  return readUtf16z(r.data(), r.size(), pathStart + DiskSettingsRecord::PathPrefixBytes);
}

}  // namespace

std::uint32_t DiskSettingsRecord::checksum(const Bytes& r) { return byteSum(r, ChecksumFrom); }

void DiskSettingsRecord::storeChecksum(Bytes& r) { put32(r, H::Checksum, checksum(r)); }

std::optional<Bytes> ReadDiskSettingsRecord(CQnIoCtrl& controller, std::uint8_t index) {
  std::optional<Bytes> reply = requestGrowingReply(controller, ioctl::ReadDiskSettingsRecord, index, 4);
  if (!reply || reply->size() < kReplyHead + H::TotalLength + 4) return std::nullopt;
  const std::size_t total = get32(*reply, kReplyHead + H::TotalLength);
  const std::size_t length = std::min(total, reply->size() - kReplyHead);
  try {
    const auto from = reply->begin() + static_cast<std::ptrdiff_t>(kReplyHead);
    return Bytes(from, from + static_cast<std::ptrdiff_t>(length));
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

std::optional<Bytes> ReadDiskSettingsRecord(App& app, std::uint8_t index) {
  return ReadDiskSettingsRecord(app.controller, index);
}

void DiskSettingsFromRecord(const Bytes& r, DiskSettings& s) {
  // The size is a signed 64-bit byte count, kept in whole MB.
  s.sizeMb = static_cast<std::uint32_t>(static_cast<std::int64_t>(get64(r, H::DiskSize)) >> 20);
  s.diskFlags = get32(r, H::DiskFlags);
  s.driveLetter = static_cast<std::uint16_t>(static_cast<std::int16_t>(static_cast<std::int8_t>(get8(r, H::DriveLetter))));

  if (const auto sub = DiskSettingsRecord::substance(r); sub.present()) {
    const std::size_t at = sub.offset;
    s.substanceFlags = get32(r, at + S::Flags);
    s.imQuotaMb = static_cast<std::uint32_t>(get64(r, at + S::ImQuota) >> 20);
    s.physicalDriveSizeMb = static_cast<std::uint32_t>(get64(r, at + S::DriveShare) >> 20);
    if (get16(r, at + S::PathBytes) != 0)
      s.physicalDriveFile = pathAfterPrefix(r, at + S::Path);
    else
      s.physicalDriveFile.clear();
    const std::size_t masks = at + get16(r, at + S::MaskOffset);
    const std::size_t count = get16(r, at + S::MaskCount);
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t m = masks + 8 * i;
      if (m > r.size() || r.size() - m < 8) break;
      s.numaNodeMasks.push_back(get64(r, m));
    }
  }

  if (const auto fmt = DiskSettingsRecord::format(r); fmt.present()) {
    const std::size_t at = fmt.offset;
    s.fileSystem = get8(r, at + F::FileSystem);
    s.fsFlags = get8(r, at + F::FsFlags);
    s.clusterSize = static_cast<std::uint32_t>(get8(r, at + F::ClusterSectors)) * 512;
    if (get16(r, at + F::LabelBytes) != 0)
      s.volumeLabel = readUtf16z(r.data(), r.size(), at + F::Label);
    else
      s.volumeLabel.clear();
    const std::uint8_t extra = get8(r, at + F::ExtraMask);
    s.fsExtraMask = extra;
    s.everyonePermissions = (extra & fsextra::Permissions) ? get8(r, at + F::Permissions) : 0;
    s.volumeSerial = (extra & fsextra::Serial) ? get32(r, at + F::Serial) : 0;
    if (extra & fsextra::Folders) {
      s.customFolderCount = std::min<std::uint32_t>(get8(r, at + F::FolderCount), kMaxCustomFolders);
      std::size_t name = at + get16(r, at + F::FolderOffset);
      for (std::uint32_t i = 0; i < s.customFolderCount; ++i) {
        s.customFolders[i] = readUtf16z(r.data(), r.size(), name);
        name += 2 * (utf16Length(s.customFolders[i]) + 1);
      }
    } else {
      s.customFolderCount = 0;
    }
  }

  if (const auto img = DiskSettingsRecord::image(r); img.present()) {
    const std::size_t at = img.offset;
    s.imageFile = pathAfterPrefix(r, at + I::Path);
    s.imageFlags = get32(r, at + I::Flags);
    s.loadOnly = (s.imageFlags & imageflag::SaveSet) == 0 ? 1 : 0;
    if (!s.loadOnly) {
      s.imageFormat = get8(r, at + I::Format);
      s.compressionLevel = static_cast<std::uint32_t>(static_cast<std::int8_t>(get8(r, at + I::Level)));
      s.timingSaveMinutes = get16(r, at + I::TimingMinutes);
      return;
    }
  } else {
    s.imageFile.clear();
    s.loadOnly = 0;
    s.imageFlags = 0;
  }
  s.imageFormat = imageformat::Plain;
  s.compressionLevel = 1;
  s.timingSaveMinutes = 0;
}

}  // namespace vmd
