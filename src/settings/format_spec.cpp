#include "settings/format_spec.h"

#include "base/bytes.h"
#include "base/text_codec.h"
#include "controller/codes.h"
#include "settings/disk_settings.h"
#include "settings/settings_record.h"

namespace vmd {

namespace {

using F = DiskSettingsRecord::Format;

std::uint8_t fileSystemCode(const std::wstring& name) {
  if (equalsNoCase(name, L"NTFS")) return filesystem::Ntfs;
  if (equalsNoCase(name, L"FAT32")) return filesystem::Fat32;
  if (equalsNoCase(name, L"FAT")) return filesystem::Fat;
  return kOtherFileSystem;
}

}  // namespace

std::optional<Bytes> StoredFormatSpec(const Bytes& record) {
  const DiskSettingsRecord::Section sec = DiskSettingsRecord::format(record);
  if (!sec.present() || static_cast<std::size_t>(sec.offset) + sec.length > record.size()) return std::nullopt;
  if (get8(record, sec.offset + F::FileSystem) == kOtherFileSystem) return std::nullopt;
  const auto from = record.begin() + sec.offset;
  return Bytes(from, from + sec.length);
}

std::optional<Bytes> BuildFormatSpecFromVolume(VolumeService& volumes, FileService& files, const std::wstring& root) {
  const SysResult<VolumeService::VolumeInfo> read = volumes.volumeInformation(root);
  if (!read.ok) return std::nullopt;
  const VolumeService::VolumeInfo& info = read.value;
  const std::size_t n = utf16Length(info.label);  // in UTF-16 code units
  Bytes spec(F::FixedSize + 2 * n, 0);

  const SysResult<VolumeService::FreeSpace> space = volumes.diskFreeSpace(root);
  const std::uint32_t sectors = space.ok ? space.value.sectorsPerCluster : 0;
  const SysResult<std::uint32_t> rootAttributes = files.attributes(root);
  const bool temp = files.attributes(root + L"TEMP\\").ok;

  put32(spec, F::Size, F::FixedSize);
  put32(spec, F::Length, spec.size());
  put8(spec, F::ExtraMask, fsextra::AutoSerial);
  const std::uint8_t fs = fileSystemCode(info.fileSystem);
  put8(spec, F::FileSystem, fs);
  put8(spec, F::ClusterSectors, sectors & 0xFF);
  put32(spec, F::Serial, info.serial);
  if (n != 0) {
    put16(spec, F::LabelBytes, 2 * (n + 1));
    putUtf16z(spec.data() + F::Label, spec.size() - F::Label, info.label);
  }
  std::uint8_t flags = temp ? fsflag::TempFolder : 0;
  // A failed attribute read gives no flag.
  if (fs == filesystem::Ntfs && rootAttributes.ok) {
    if (rootAttributes.value & fileattr::Compressed) flags |= fsflag::Compress;
    if (rootAttributes.value & fileattr::NotContentIndexed) flags |= fsflag::NoIndexing;
  }
  put8(spec, F::FsFlags, flags);
  return spec;
}

}  // namespace vmd
