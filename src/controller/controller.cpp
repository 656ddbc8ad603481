#include "controller/controller.h"

#include <algorithm>
#include <iterator>
#include <new>

#include "base/bytes.h"
#include "base/decimal.h"
#include "base/format.h"
#include "base/text_codec.h"
#include "controller/codes.h"

namespace vmd {

SysResult<std::uint32_t> sendRequest(DeviceIo& io, const std::wstring& path, std::uint32_t access,
                                     std::uint32_t share, std::uint32_t flags, std::uint32_t code, const void* in,
                                     std::uint32_t inSize, void* out, std::uint32_t outSize) {
  const SysResult<DeviceIo::Handle> h = io.open(path, access, share, DeviceIo::OpenExisting, flags);
  if (!h.ok) return SysResult<std::uint32_t>::failure(h.error);
  const SysResult<std::uint32_t> r = io.control(h.value, code, in, inSize, out, outSize);
  io.close(h.value);
  return r;
}

bool CQnIoCtrl::discover() {
  // Only the interface enumerated first is used, even when others exist.
  const SysResult<std::vector<DeviceSetup::Interface>> found =
      setup_.presentInterfaces(kControllerInterface, DeviceSetup::Scope::FirstOnly);
  if (!found.ok) return false;
  for (const auto& i : found.value) {
    if (i.index == 0) {
      path_ = i.path;
      break;
    }
  }
  return true;
}

SysResult<std::uint32_t> CQnIoCtrl::request(std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                                            std::uint32_t outSize) {
  return sendRequest(io_, path_, access_, DeviceIo::ShareRead | DeviceIo::ShareWrite, 0, code, in, inSize, out,
                     outSize);
}

std::optional<Bytes> requestGrowingReply(CQnIoCtrl& controller, std::uint32_t code, std::uint8_t index,
                                         std::uint32_t withheld, std::uint32_t* error) {
  const auto request = diskAddress(index);
  for (std::uint32_t size = 1024u;; size *= 2) {
    Bytes buffer;
    try {
      buffer.assign(size, 0);
    } catch (const std::bad_alloc&) {
      if (error) *error = syserr::NotEnoughMemory;
      return std::nullopt;
    }
    const std::uint32_t room = size > withheld ? size - withheld : 0;
    const SysResult<std::uint32_t> r = controller.request(
        code, request.data(), static_cast<std::uint32_t>(request.size()), buffer.data() + (size - room), room);
    if (r.ok) {
      // Only what the controller returned was written into the buffer.
      const std::uint32_t returned = std::min(r.value, room);
      const auto from = buffer.begin() + static_cast<std::ptrdiff_t>(size - room);
      return Bytes(from, from + returned);
    }
    if ((r.error != syserr::InsufficientBuffer && r.error != syserr::MoreData) || size >= 102400u) {
      if (error) *error = r.error;
      return std::nullopt;
    }
  }
}

std::optional<DiskStatus> QueryDiskStatus(CQnIoCtrl& controller, std::uint8_t index) {
  return requestGrowingReply(controller, ioctl::QueryDiskStatus, index, 0);
}

SessionStatus checkSession(CVmDevControl& c) {
  if (!c.discover() || c.devicePath().empty()) return SessionStatus::NoController;
  std::uint8_t rec[12] = {};
  if (!c.request(ioctl::QueryControllerVersion, nullptr, 0, rec, sizeof rec).ok) return SessionStatus::VersionUnread;
  auto word = [&](std::size_t at) { return static_cast<std::uint32_t>(getLE(rec, sizeof rec, at, 4)); };
  const std::uint32_t version = word(0);
  if (version <= 0x50005) return SessionStatus::VersionTooOld;
  ControllerFacts& f = c.facts;
  f.versionWord = version;
  f.secondWord = word(4);
  f.variantCode = word(8);
  f.major = static_cast<std::uint16_t>(version >> 16);
  f.minor = static_cast<std::uint16_t>(version & 0xFFFF);
  f.build = static_cast<std::uint16_t>(f.secondWord >> 16);
  return SessionStatus::Ready;
}

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

DiskLookup DiskInventory::resolveDiskIndex(const wchar_t* text) {
  DiskLookup lookup;
  if (!isDecimalDigit(text[0])) return lookup;
  lookup.index = static_cast<std::uint32_t>(decimalToLong(text));
  if (lookup.index >= 128) {
    lookup.status = DiskLookup::OutOfRange;
    return lookup;
  }
  const std::optional<DiskInfo> found = queryDiskInfo(static_cast<std::uint8_t>(lookup.index));
  if (!found) {
    lookup.status = DiskLookup::NotFound;
    return lookup;
  }
  lookup.status = DiskLookup::Found;
  lookup.info = *found;
  return lookup;
}

std::optional<std::array<std::uint8_t, 16>> DiskInventory::queryDiskBitmap(std::uint32_t* error) {
  std::array<std::uint8_t, 16> bitmap{};
  const SysResult<std::uint32_t> r = controller_.request(ioctl::QueryDiskBitmap, nullptr, 0, bitmap.data(), 16);
  if (error) *error = r.error;
  if (!r.ok) return std::nullopt;
  return bitmap;
}

std::optional<DiskInfo> DiskInventory::queryDiskInfo(std::uint8_t number) {
  const auto head = diskAddress(number);
  std::uint8_t raw[32] = {};
  if (!controller_.request(ioctl::QueryDiskInfo, head.data(), 12, raw, 32).ok) return std::nullopt;
  return parseDiskInfo(raw);
}

std::optional<std::uint32_t> DiskInventory::queryDeviceNumber(std::uint8_t number) {
  const auto head = diskAddress(number);
  std::uint8_t out[12] = {};
  if (!controller_.request(ioctl::QueryDeviceNumber, head.data(), 12, out, 12).ok) return std::nullopt;
  return static_cast<std::uint32_t>(getLE(out, 12, 4, 4));
}

bool DiskInventory::ownsDosName(std::uint8_t number, wchar_t letter) {
  std::uint8_t name[14] = {};
  putUtf16z(name, sizeof name, std::wstring{L'\\', L'?', L'?', L'\\', letter, L':'});
  std::uint8_t out[12] = {};
  return controller_.request(ioctl::QueryDosNameTarget, name, sizeof name, out, sizeof out).ok && out[10] == number;
}

std::wstring diskDevicePath(std::uint32_t diskNumber) {
  return format(L"\\\\.\\VelmoRdDevPort%dTarget%d", 0, static_cast<int>(diskNumber & 0xFF));
}

}  // namespace vmd
