// Drive letters: the letters and volumes of a disk, moving a volume's mount
// point, changing a disk's letter, announcing the change, and the
// mounted-devices database.
#include <cstring>

#include "base/bytes.h"
#include "base/drive_letter.h"
#include "base/format.h"
#include "base/ignore_result.h"
#include "base/text_codec.h"
#include "controller/codes.h"
#include "volume/volume.h"

namespace vmd {

namespace {

constexpr std::uint32_t kVolumeNameChars = 260;
constexpr wchar_t kMountedDevicesKey[] = L"SYSTEM\\MountedDevices";
constexpr wchar_t kDosDevicesPrefix[] = L"\\DosDevices\\";
constexpr std::size_t kDosDevicesPrefixChars = 12;
// Room given to each enumerated value: "\DosDevices\X:" and its terminator,
// and the 12 bytes of a partition on a disk with a master boot record.
constexpr std::uint32_t kValueNameChars = 16;
constexpr std::uint32_t kValueDataBytes = 12;
// The walk skips a value it cannot read, and the key keeps one value for every
// volume the system has ever seen, each of which fails with 234 here, so long
// runs of failures are healthy: a million calls lie far beyond any such key,
// and a registry that fails every call cannot hold the walk for ever.
constexpr std::uint32_t kMaxEnumCalls = 1u << 20;
constexpr std::uint32_t kRegBinary = 3;
constexpr std::uint32_t kBroadcastFlags = 0x122;  // BSF_SENDNOTIFYMESSAGE | BSF_FORCEIFHUNG | BSF_IGNORECURRENTTASK
constexpr std::uint32_t kWmDeviceChange = 0x219;


// A drive-letter value of the database: "\DosDevices\X:".
bool isDriveLetterValue(const std::wstring& name) {
  return name.size() == kDosDevicesPrefixChars + 2 &&
         equalsNoCase(name.substr(0, kDosDevicesPrefixChars).c_str(), kDosDevicesPrefix) &&
         isAsciiLetter(name[kDosDevicesPrefixChars]) && name[kDosDevicesPrefixChars + 1] == L':';
}

// Room for 31 extents; a volume with more fails its request and is skipped.
constexpr std::uint32_t kExtentsBufferSize = 752;

bool holdsVolumes(std::uint32_t driveType) { return driveType == drivetype::Fixed || driveType == drivetype::Removable; }

}  // namespace

bool MoveVolumeMountPoint(VolumeContext& ctx, wchar_t oldLetter, wchar_t newLetter, bool* keptOld) {
  if (keptOld) *keptOld = true;
  const std::wstring oldRoot = driveRoot(oldLetter), newRoot = driveRoot(newLetter);
  const SysResult<std::wstring> volume = ctx.volumes.volumeNameForMountPoint(oldRoot, kVolumeNameChars);
  if (!volume.ok) return false;
  if (!ctx.volumes.deleteVolumeMountPoint(oldRoot).ok) return false;
  if (ctx.volumes.setVolumeMountPoint(newRoot, volume.value).ok) return true;
  // The volume goes back to its old letter. Should that fail too, it is left
  // without a letter and the caller is told so: no third try at a letter that
  // has just refused it.
  const bool back = ctx.volumes.setVolumeMountPoint(oldRoot, volume.value).ok;
  if (keptOld) *keptOld = back;
  return false;
}

bool ChangeDriveLetter(VolumeContext& ctx, std::uint8_t index, bool controllerAssigned, wchar_t oldLetter,
                       wchar_t newLetter) {
  if (oldLetter == newLetter) return true;
  if (isAsciiLetter(newLetter) && (ctx.volumes.logicalDrives().valueOr(0) & (1u << (asciiUpper(newLetter) - L'A'))) != 0)
    return false;
  if (!controllerAssigned) return MoveVolumeMountPoint(ctx, oldLetter, newLetter);
  Bytes record(16, 0);
  put32(record, 0, 16);
  put32(record, 4, 16);
  put8(record, 10, index);
  put16(record, 12, static_cast<std::uint16_t>(oldLetter));
  put16(record, 14, static_cast<std::uint16_t>(newLetter));
  if (!ctx.controller.request(ioctl::ChangeDiskLetter, record.data(), 16, nullptr, 0).ok) return false;
  // The result is the move's: edit, the one caller, reports nothing of its
  // letter step, so a letter that moved unannounced is a move that succeeded.
  if (oldLetter != 0)
    ignoreResult(BroadcastVolumeChange(ctx, dbt::DeviceRemoveComplete, oldLetter), "the letter has moved either way");
  if (newLetter != 0)
    ignoreResult(BroadcastVolumeChange(ctx, dbt::DeviceArrival, newLetter), "the letter has moved either way");
  return true;
}

Bytes volumeBroadcastRecord(wchar_t letter) {
  Bytes record(20, 0);
  put32(record, 0, 20);  // size
  put32(record, 4, 2);   // DBT_DEVTYP_VOLUME
  const int bit = asciiUpper(letter) - L'A';
  put32(record, 12, bit >= 0 && bit < 32 ? (1u << bit) : 0u);
  return record;
}

SysStatus BroadcastVolumeChange(VolumeContext& ctx, std::uint32_t event, wchar_t letter) {
  return ctx.broadcast.broadcast(kBroadcastFlags, kWmDeviceChange, event, volumeBroadcastRecord(letter)).status();
}

bool RewriteMountedDevice(VolumeContext& ctx, wchar_t letter, const std::array<std::uint8_t, 12>& data) {
  if (!isAsciiLetter(letter)) return false;
  const SysResult<std::unique_ptr<Registry::Key>> opened = ctx.registry.openForWrite(kMountedDevicesKey);
  if (!opened.ok || !opened.value) return false;
  Registry::Key& key = *opened.value;
  std::uint32_t index = 0;
  for (std::uint32_t calls = 0; calls < kMaxEnumCalls; ++calls, ++index) {
    const SysResult<Registry::Value> read = key.enumValue(index, kValueNameChars, kValueDataBytes);
    if (!read.ok && read.error == syserr::NoMoreItems) break;
    if (!read.ok) continue;  // too long for the buffers (never ours), or unreadable: skipped
    const Registry::Value& value = read.value;
    // The signature and the low half of the offset decide; the high half is not compared.
    if (value.type == kRegBinary && isDriveLetterValue(value.name) && value.data.size() == 12 &&
        std::memcmp(value.data.data(), data.data(), 8) == 0) {
      if (key.deleteValue(value.name).ok) --index;  // the next value moved into this place
    }
  }
  const std::wstring name = kDosDevicesPrefix + std::wstring(1, asciiUpper(letter)) + L":";
  return key.setBinary(name, Bytes(data.begin(), data.end())).ok;
}


std::vector<VolumeExtent> parseVolumeExtents(const std::uint8_t* data, std::size_t size) {
  std::vector<VolumeExtent> extents;
  const std::uint64_t count = getLE(data, size, 0, 4);
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::size_t at = 8 + 24 * static_cast<std::size_t>(i);
    if (at + 24 > size) break;
    extents.push_back({static_cast<std::uint32_t>(getLE(data, size, at, 4)), getLE(data, size, at + 8, 8),
                       getLE(data, size, at + 16, 8)});
  }
  return extents;
}

std::vector<std::uint32_t> extentDiskNumbers(const std::uint8_t* data, std::size_t size) {
  std::vector<std::uint32_t> disks;
  for (const VolumeExtent& e : parseVolumeExtents(data, size)) disks.push_back(e.disk);
  return disks;
}

std::vector<wchar_t> DiskVolumes::diskDriveLetters(std::uint8_t number, const DiskInfo& info) {
  if (info.directIo) {
    // The controller names the owner of "\??\X:"; another device may have
    // taken the letter since the disk was given it.
    if (inventory_.ownsDosName(number, info.letter)) return {info.letter};
    return {};
  }
  if (!letters_) letters_ = buildLetterMap();
  const std::optional<std::uint32_t> device = inventory_.queryDeviceNumber(number);
  if (!device) return {};
  auto it = letters_->find(*device);
  return it == letters_->end() ? std::vector<wchar_t>() : it->second;
}

std::vector<std::wstring> DiskVolumes::diskVolumePaths(std::uint8_t number, bool directIo) {
  if (directIo) return {diskDevicePath(number)};
  const VolumeMap volumes = buildVolumeMap();
  const std::optional<std::uint32_t> device = inventory_.queryDeviceNumber(number);
  if (!device) return {};
  auto it = volumes.find(*device);
  return it == volumes.end() ? std::vector<std::wstring>() : it->second;
}

std::optional<std::vector<std::uint32_t>> DiskVolumes::volumeExtentDisks(const std::wstring& path) {
  std::vector<std::uint8_t> buffer(kExtentsBufferSize);
  const SysResult<std::uint32_t> r = sendRequest(io_, path, 0, DeviceIo::ShareRead | DeviceIo::ShareWrite,
                                                 DeviceIo::AttributeNormal, ioctl::VolumeGetVolumeDiskExtents, nullptr,
                                                 0, buffer.data(), kExtentsBufferSize);
  if (!r.ok) return std::nullopt;
  return extentDiskNumbers(buffer.data(), buffer.size());
}

DiskVolumes::LetterMap DiskVolumes::buildLetterMap() {
  LetterMap map;
  const std::uint32_t drives = volumes_.logicalDrives().valueOr(0);
  for (std::uint32_t bit = 0; bit < 32 && (drives >> bit) != 0; ++bit) {
    if (!(drives & (1u << bit))) continue;
    const wchar_t letter = static_cast<wchar_t>(L'A' + bit);
    if (!holdsVolumes(volumes_.driveType(std::wstring(L"\\\\.\\") + letter + L":\\").valueOr(drivetype::Unknown)))
      continue;
    const auto disks = volumeExtentDisks(std::wstring(L"\\\\.\\") + letter + L":");
    if (!disks) continue;
    for (std::uint32_t disk : *disks) map[disk].push_back(letter);
  }
  return map;
}

DiskVolumes::VolumeMap DiskVolumes::buildVolumeMap() {
  VolumeMap map;
  const SysResult<std::vector<DeviceSetup::Interface>> interfaces =
      setup_.presentInterfaces(kVolumeInterface, DeviceSetup::Scope::All);
  if (!interfaces.ok) return map;
  for (const DeviceSetup::Interface& i : interfaces.value) {
    if (!holdsVolumes(volumes_.driveType(i.path + L"\\").valueOr(drivetype::Unknown))) continue;
    const auto disks = volumeExtentDisks(i.path);
    if (!disks) continue;
    for (std::uint32_t disk : *disks) map[disk].push_back(i.path);
  }
  return map;
}

}  // namespace vmd
