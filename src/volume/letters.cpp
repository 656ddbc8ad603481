// Drive letters: moving a volume's mount point, changing a disk's letter,
// announcing the change, and the mounted-devices database.
#include <cstring>

#include "base/bytes.h"
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

bool isLetter(wchar_t c) { return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z'); }
wchar_t upper(wchar_t c) { return (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - 32) : c; }
std::wstring rootOf(wchar_t letter) { return format(L"%c:\\", letter); }

// A drive-letter value of the database: "\DosDevices\X:".
bool isDriveLetterValue(const std::wstring& name) {
  return name.size() == kDosDevicesPrefixChars + 2 &&
         equalsNoCase(name.substr(0, kDosDevicesPrefixChars).c_str(), kDosDevicesPrefix) &&
         isLetter(name[kDosDevicesPrefixChars]) && name[kDosDevicesPrefixChars + 1] == L':';
}

}  // namespace

bool MoveVolumeMountPoint(VolumeContext& ctx, wchar_t oldLetter, wchar_t newLetter, bool* keptOld) {
  if (keptOld) *keptOld = true;
  const std::wstring oldRoot = rootOf(oldLetter), newRoot = rootOf(newLetter);
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
  if (isLetter(newLetter) && (ctx.volumes.logicalDrives().valueOr(0) & (1u << (upper(newLetter) - L'A'))) != 0)
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
  const int bit = upper(letter) - L'A';
  put32(record, 12, bit >= 0 && bit < 32 ? (1u << bit) : 0u);
  return record;
}

SysStatus BroadcastVolumeChange(VolumeContext& ctx, std::uint32_t event, wchar_t letter) {
  return ctx.broadcast.broadcast(kBroadcastFlags, kWmDeviceChange, event, volumeBroadcastRecord(letter)).status();
}

bool RewriteMountedDevice(VolumeContext& ctx, wchar_t letter, const std::array<std::uint8_t, 12>& data) {
  if (!isLetter(letter)) return false;
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
  const std::wstring name = kDosDevicesPrefix + std::wstring(1, upper(letter)) + L":";
  return key.setBinary(name, Bytes(data.begin(), data.end())).ok;
}

}  // namespace vmd
