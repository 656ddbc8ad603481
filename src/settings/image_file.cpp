#include "settings/image_file.h"

#include "controller/controller.h"

#include "base/bytes.h"
#include "controller/codes.h"
#include "settings/disk_settings.h"
#include "settings/settings_record.h"
#include "base/text_codec.h"

namespace vmd {

int DetectImageFormat(FileService& files, const std::wstring& path, std::uint64_t* diskSize, std::uint32_t* level) {
  const SysResult<Bytes> read = files.readHead(path, imagehead::Bytes);
  if (!read.ok || read.value.size() < imagehead::Bytes) return kImageFormatUnknown;
  const Bytes& head = read.value;
  const std::uint64_t magic = get64(head, 0);
  if (magic == imagemagic::Smart) {
    if (diskSize) *diskSize = get64(head, imagehead::SmartDiskSize);
    return static_cast<int>(imageformat::Smart);
  }
  if (magic == imagemagic::Compr) {
    if (diskSize) *diskSize = get64(head, imagehead::ComprDiskSize);
    if (level) *level = get32(head, imagehead::ComprLevel);
    return static_cast<int>(imageformat::Compr);
  }
  if (head[510] == 0x55 && head[511] == 0xAA) {
    if (diskSize) *diskSize = files.fileSize(path).valueOr(0);
    return static_cast<int>(imageformat::Plain);
  }
  return kImageFormatUnknown;
}

ImageFileStatus ParseImageFileStatus(const DiskStatus& status) {
  using R = DiskSettingsRecord;
  ImageFileStatus st;
  const R::Section substance = R::substance(status);
  if (substance.present()) {
    st.smartCapable = (get32(status, substance.offset + R::Substance::Flags) & substance::Hybrid) != 0;
    st.noFilePart = get64(status, substance.offset + R::Substance::DriveShare) == 0;
  }
  const R::Section image = R::image(status);
  if (image.present()) {
    const std::uint32_t flags = get32(status, image.offset + R::Image::Flags);
    st.imagePath = readUtf16z(status.data(), status.size(), image.offset + R::Image::Path + R::PathPrefixBytes);
    st.loadOnly = (flags & imageflag::SaveSet) == 0;
    st.delayLoad = (flags & imageflag::DelayLoad) != 0;
    st.quickSave = (flags & imageflag::QuickSave) != 0;
    st.timingSave = (flags & imageflag::TimingSave) != 0;
    st.realTimeSave = (flags & imageflag::RealTimeSave) != 0;
  }
  return st;
}

Bytes BuildSaveImageRecord(const std::wstring* target, std::uint32_t imageFlags, std::uint8_t format,
                           std::uint8_t level) {
  using I = DiskSettingsRecord::Image;
  std::wstring name;
  std::size_t nameBytes = 0;
  if (target) {
    name = std::wstring(DiskSettingsRecord::PathPrefix) + *target;
    nameBytes = 2 * (utf16Length(name) + 1);
  }
  Bytes record(target ? I::Path + nameBytes : I::FixedSize, 0);
  put32(record, I::Size, I::FixedSize);
  put32(record, I::Length, record.size());
  put32(record, I::Flags, imageFlags);
  put8(record, I::Format, format);
  put8(record, I::Level, level);
  if (target) {
    put16(record, I::PathBytes, nameBytes);
    putUtf16z(record.data() + I::Path, record.size() - I::Path, name);
  }
  return record;
}

}  // namespace vmd
