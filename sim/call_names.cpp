#include "sim/call_names.h"

#include <string>

#include "base/text_codec.h"
#include "controller/codes.h"
#include "sim/hex_text.h"

namespace vmd::sim {

namespace {

struct NamedCode {
  std::uint32_t code;
  const char* name;
};
constexpr NamedCode kCodeNames[] = {
    {ioctl::CreateDisk, "CreateDisk"},
    {ioctl::RemoveDisk, "RemoveDisk"},
    {ioctl::ReadDiskSettingsRecord, "ReadDiskSettingsRecord"},
    {ioctl::ChangeDiskSettings, "ChangeDiskSettings"},
    {ioctl::QueryDiskInfo, "QueryDiskInfo"},
    {ioctl::QueryDiskBitmap, "QueryDiskBitmap"},
    {ioctl::QueryDosDeviceOwner, "QueryDosDeviceOwner"},
    {ioctl::QueryDosNameTarget, "QueryDosNameTarget"},
    {ioctl::EnableIm, "EnableIm"},
    {ioctl::QueryImStatus, "QueryImStatus"},
    {ioctl::QueryDiskPresent, "QueryDiskPresent"},
    {ioctl::SaveDiskImage, "SaveDiskImage"},
    {ioctl::ChangeDiskLetter, "ChangeDiskLetter"},
    {ioctl::ReinitializeDisk, "ReinitializeDisk"},
    {ioctl::SetImOptions, "SetImOptions"},
    {ioctl::DisableIm, "DisableIm"},
    {ioctl::QueryDiskStatus, "QueryDiskStatus"},
    {ioctl::ApplyImageSettings, "ApplyImageSettings"},
    {ioctl::QueryDeviceNumber, "QueryDeviceNumber"},
    {ioctl::QueryControllerVersion, "QueryControllerVersion"},
    {ioctl::VolumeGetVolumeDiskExtents, "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS"},
    {ioctl::DiskGetPartitionInfo, "IOCTL_DISK_GET_PARTITION_INFO"},
    {ioctl::MountmgrQueryAutoMount, "IOCTL_MOUNTMGR_QUERY_AUTO_MOUNT"},
    {ioctl::MountmgrSetAutoMount, "IOCTL_MOUNTMGR_SET_AUTO_MOUNT"},
    {ioctl::FsctlLockVolume, "FSCTL_LOCK_VOLUME"},
    {ioctl::FsctlUnlockVolume, "FSCTL_UNLOCK_VOLUME"},
    {ioctl::FsctlDismountVolume, "FSCTL_DISMOUNT_VOLUME"},
};

}  // namespace

std::string hex32(std::uint32_t v) {
  std::string s;
  appendHex32(s, v);
  return s;
}

std::string codeName(std::uint32_t code) {
  for (const NamedCode& n : kCodeNames)
    if (n.code == code) return n.name;
  return hex32(code);
}

std::optional<std::uint32_t> codeFromName(const std::string& name) {
  for (const NamedCode& n : kCodeNames)
    if (sameNoCase(name, n.name)) return n.code;
  try {
    std::size_t used = 0;
    const unsigned long long v = std::stoull(name, &used, 0);
    if (used == name.size() && v <= 0xFFFFFFFFull) return static_cast<std::uint32_t>(v);
  } catch (...) {
  }
  return std::nullopt;
}

std::string lowerAscii(std::string s) {
  for (char& c : s) c = asciiLower(c);
  return s;
}

bool sameNoCase(const std::string& a, const std::string& b) { return lowerAscii(a) == lowerAscii(b); }


namespace calls {
std::optional<std::string> failableCall(const std::string& name) {
  for (const char* c : kFailable)
    if (sameNoCase(name, c)) return std::string(c);
  return std::nullopt;
}
}  // namespace calls

}  // namespace vmd::sim
