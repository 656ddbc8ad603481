#include "controller/inventory.h"

#include <algorithm>
#include <iterator>

#include "base/bytes.h"
#include "controller/codes.h"
#include "base/decimal.h"
#include "base/text_codec.h"

namespace vmd {

namespace {

// Room for 31 extents; a volume with more fails its request and is skipped.
constexpr std::uint32_t kExtentsBufferSize = 752;

}  // namespace

DiskInfo parseDiskInfo(const std::uint8_t (&raw)[32]) {
  DiskInfo d;
  std::copy(std::begin(raw), std::end(raw), d.raw.begin());
  d.number = raw[10];
  d.hasImage = raw[14] != 0;
  d.good = raw[15] != 0;
  d.sizeBytes = static_cast<std::int64_t>(getLE(raw, 32, 16, 8));
  d.directIo = raw[24] != 0;
  d.letter = static_cast<wchar_t>(raw[25]);
  return d;
}

std::vector<std::uint8_t> disksInBitmap(const std::array<std::uint8_t, 16>& bitmap) {
  std::vector<std::uint8_t> disks;
  for (std::size_t byte = 0; byte < bitmap.size(); ++byte)
    for (int bit = 0; bit < 8; ++bit)
      if (bitmap[byte] & (1u << bit)) disks.push_back(static_cast<std::uint8_t>(8 * byte + static_cast<std::size_t>(bit)));
  return disks;
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

CommandResult DiskInventory::resolveDiskIndex(wchar_t** argv, DiskInfo& info) {
  const wchar_t* text = argv[0];
  if (!isDecimalDigit(text[0])) {
    app_.io.err(L"Error: please specify the disk index!\n");
    return Failed;
  }
  const std::uint32_t n = static_cast<std::uint32_t>(decimalToLong(text));
  if (n >= 128) {
    app_.io.err(L"Error: invalid disk index!\n");
    return Failed;
  }
  const std::optional<DiskInfo> found = queryDiskInfo(static_cast<std::uint8_t>(n));
  if (!found) {
    // This message has no exclamation mark.
    app_.io.err(L"Error: cannot find the disk #%d\n", static_cast<int>(n));
    return Failed;
  }
  info = *found;
  return Success;
}

std::optional<std::array<std::uint8_t, 16>> DiskInventory::queryDiskBitmap(std::uint32_t* error) {
  std::array<std::uint8_t, 16> bitmap{};
  const SysResult<std::uint32_t> r = app_.controller.request(ioctl::QueryDiskBitmap, nullptr, 0, bitmap.data(), 16);
  if (error) *error = r.error;
  if (!r.ok) return std::nullopt;
  return bitmap;
}

std::optional<DiskInfo> DiskInventory::queryDiskInfo(std::uint8_t number) {
  const auto head = diskRequestHead(number);
  std::uint8_t raw[32] = {};
  if (!app_.controller.request(ioctl::QueryDiskInfo, head.data(), 12, raw, 32).ok) return std::nullopt;
  return parseDiskInfo(raw);
}

std::optional<std::uint32_t> DiskInventory::queryDeviceNumber(std::uint8_t number) {
  const auto head = diskRequestHead(number);
  std::uint8_t out[12] = {};
  if (!app_.controller.request(ioctl::QueryDeviceNumber, head.data(), 12, out, 12).ok) return std::nullopt;
  return static_cast<std::uint32_t>(getLE(out, 12, 4, 4));
}

std::vector<wchar_t> DiskInventory::diskDriveLetters(std::uint8_t number, const DiskInfo& info) {
  if (info.directIo) {
    // The controller names the owner of "\??\X:"; another device may have
    // taken the letter since the disk was given it.
    std::uint8_t name[14] = {};
    putUtf16z(name, sizeof name, std::wstring{L'\\', L'?', L'?', L'\\', info.letter, L':'});
    std::uint8_t out[12] = {};
    if (app_.controller.request(ioctl::QueryDosNameTarget, name, sizeof name, out, sizeof out).ok &&
        out[10] == number)
      return {info.letter};
    return {};
  }
  if (!letters_) letters_ = buildLetterMap();
  const std::optional<std::uint32_t> device = queryDeviceNumber(number);
  if (!device) return {};
  auto it = letters_->find(*device);
  return it == letters_->end() ? std::vector<wchar_t>() : it->second;
}

std::vector<std::wstring> DiskInventory::diskVolumePaths(std::uint8_t number, bool directIo) {
  if (directIo) return {diskDevicePath(number)};
  const VolumeMap volumes = buildVolumeMap();
  const std::optional<std::uint32_t> device = queryDeviceNumber(number);
  if (!device) return {};
  auto it = volumes.find(*device);
  return it == volumes.end() ? std::vector<std::wstring>() : it->second;
}

std::optional<std::vector<std::uint32_t>> DiskInventory::volumeExtentDisks(const std::wstring& path) {
  std::vector<std::uint8_t> buffer(kExtentsBufferSize);
  const SysResult<std::uint32_t> r = sendRequest(app_.sys.io, path, 0, DeviceIo::ShareRead | DeviceIo::ShareWrite,
                                                 DeviceIo::AttributeNormal, ioctl::VolumeGetVolumeDiskExtents, nullptr,
                                                 0, buffer.data(), kExtentsBufferSize);
  if (!r.ok) return std::nullopt;
  return extentDiskNumbers(buffer.data(), buffer.size());
}

DiskInventory::LetterMap DiskInventory::buildLetterMap() {
  LetterMap map;
  const std::uint32_t drives = app_.sys.volumes.logicalDrives().valueOr(0);
  for (std::uint32_t bit = 0; bit < 32 && (drives >> bit) != 0; ++bit) {
    if (!(drives & (1u << bit))) continue;
    const wchar_t letter = static_cast<wchar_t>(L'A' + bit);
    const std::uint32_t type =
        app_.sys.volumes.driveType(std::wstring(L"\\\\.\\") + letter + L":\\").valueOr(drivetype::Unknown);
    if (type != drivetype::Fixed && type != drivetype::Removable) continue;
    const auto disks = volumeExtentDisks(std::wstring(L"\\\\.\\") + letter + L":");
    if (!disks) continue;
    for (std::uint32_t disk : *disks) map[disk].push_back(letter);
  }
  return map;
}

DiskInventory::VolumeMap DiskInventory::buildVolumeMap() {
  VolumeMap map;
  const SysResult<std::vector<DeviceSetup::Interface>> interfaces =
      app_.sys.setup.presentInterfaces(kVolumeInterface, DeviceSetup::Scope::All);
  if (!interfaces.ok) return map;
  for (const DeviceSetup::Interface& i : interfaces.value) {
    const std::uint32_t type = app_.sys.volumes.driveType(i.path + L"\\").valueOr(drivetype::Unknown);
    if (type != drivetype::Fixed && type != drivetype::Removable) continue;
    const auto disks = volumeExtentDisks(i.path);
    if (!disks) continue;
    for (std::uint32_t disk : *disks) map[disk].push_back(i.path);
  }
  return map;
}

}  // namespace vmd
