#include "controller/controller.h"

#include <algorithm>
#include <new>

#include "controller/codes.h"
#include "base/format.h"

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
  const auto request = diskRequestHead(index);
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

bool checkSession(App& app) {
  CVmDevControl& c = app.controller;
  if (!c.discover() || c.devicePath().empty()) {
    app.io.err(L"Error: Tarnby Ramdisk controller initialization failed!\n");
    return false;
  }
  std::uint8_t rec[12] = {};
  if (!c.request(ioctl::QueryControllerVersion, nullptr, 0, rec, sizeof rec).ok) {
    app.io.err(L"Error: Tarnby Ramdisk controller version checking failed!\n");
    return false;
  }
  auto word = [&](int at) {
    return static_cast<std::uint32_t>(rec[at]) | (static_cast<std::uint32_t>(rec[at + 1]) << 8) |
           (static_cast<std::uint32_t>(rec[at + 2]) << 16) | (static_cast<std::uint32_t>(rec[at + 3]) << 24);
  };
  const std::uint32_t version = word(0);
  if (version <= 0x50005) {
    app.io.err(L"Error: command requires Tarnby Ramdisk 5.6.0 or later!\n");
    return false;
  }
  ControllerFacts& f = c.facts;
  f.versionWord = version;
  f.secondWord = word(4);
  f.variantCode = word(8);
  f.major = static_cast<std::uint16_t>(version >> 16);
  f.minor = static_cast<std::uint16_t>(version & 0xFFFF);
  f.build = static_cast<std::uint16_t>(f.secondWord >> 16);
  return true;
}

std::wstring diskDevicePath(std::uint32_t diskNumber) {
  return format(L"\\\\.\\VelmoRdDevPort%dTarget%d", 0, static_cast<int>(diskNumber & 0xFF));
}

}  // namespace vmd
