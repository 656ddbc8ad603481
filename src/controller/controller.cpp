#include "controller/controller.h"

#include "controller/codes.h"
#include "shell/format.h"

namespace vmd {

std::array<std::uint8_t, 12> diskRequestHead(std::uint8_t diskNumber, std::uint32_t headLength,
                                             std::uint32_t totalLength) {
  std::array<std::uint8_t, 12> h{};
  for (int i = 0; i < 4; ++i) {
    h[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(headLength >> (8 * i));
    h[static_cast<std::size_t>(4 + i)] = static_cast<std::uint8_t>(totalLength >> (8 * i));
  }
  h[10] = diskNumber;
  return h;
}

IoOutcome sendRequest(DeviceIo& io, const std::wstring& path, std::uint32_t access, std::uint32_t share,
                      std::uint32_t flags, std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                      std::uint32_t outSize) {
  const DeviceIo::OpenResult h = io.open(path, access, share, DeviceIo::OpenExisting, flags);
  if (h.handle == DeviceIo::Invalid) return {false, 0, h.error};
  const DeviceIo::ControlResult r = io.control(h.handle, code, in, inSize, out, outSize);
  io.close(h.handle);
  return {r.ok, r.returned, r.ok ? 0u : r.error};
}

bool CQnIoCtrl::discover() {
  // Only the interface enumerated first is used, even when others exist.
  const auto found = setup_.presentInterfaces(kControllerInterface, DeviceSetup::Scope::FirstOnly);
  if (!found) return false;
  for (const auto& i : *found) {
    if (i.index == 0) {
      path_ = i.path;
      break;
    }
  }
  return true;
}

IoOutcome CQnIoCtrl::request(std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                             std::uint32_t outSize) {
  IoOutcome r = sendRequest(io_, path_, DeviceIo::GenericRead | DeviceIo::GenericWrite,
                            DeviceIo::ShareRead | DeviceIo::ShareWrite, 0, code, in, inSize, out, outSize);
  lastError_ = r.error;
  return r;
}

bool CQnIoCtrl::control(std::uint32_t code, const void* in, std::uint32_t inSize, void* out, std::uint32_t outSize) {
  return request(code, in, inSize, out, outSize).ok;
}

bool checkSession(App& app) {
  CVmDevControl& c = app.controller;
  if (!c.discover() || c.devicePath().empty()) {
    app.io.err(L"Error: Tarnby Ramdisk controller initialization failed!\n");
    return false;
  }
  std::uint8_t rec[12] = {};
  if (!c.control(ioctl::QueryControllerVersion, nullptr, 0, rec, sizeof rec)) {
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

CommandResult verCommand(App& app, const wchar_t*, int, wchar_t**) {
  if (!checkSession(app)) return Failed;
  app.io.message(Stream::Out, msgid::Banner, {kCommanderVersion});
  app.io.out(L"\n");
  app.io.out(L"Commander version: %s\n", kCommanderVersion);
  const ControllerFacts& f = app.controller.facts;
  app.io.out(L"Controller version: %d.%d.%d\n", static_cast<int>(f.major), static_cast<int>(f.minor),
             static_cast<int>(f.build));
  app.io.out(L"\n");
  return Success;
}

}  // namespace vmd
