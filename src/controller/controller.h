// The controller object: finds the controller's device interface, checks its
// version, and sends it requests, each on a handle of its own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "shell/app.h"

namespace vmd {

// {48FA1FE0-7189-432A-9FD4-9DB766B64B31}
inline constexpr InterfaceClass kControllerInterface = {
    0x48FA1FE0, 0x7189, 0x432A, {0x9F, 0xD4, 0x9D, 0xB7, 0x66, 0xB6, 0x4B, 0x31}};
// {53F5630D-B6BF-11D0-94F2-00A0C91EFB8B}
inline constexpr InterfaceClass kVolumeInterface = {
    0x53F5630D, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};

// Result of one request: success, the bytes returned and, on failure, the
// system error of the open or of the request.
struct IoOutcome {
  bool ok;
  std::uint32_t returned;
  std::uint32_t error;
};

// Open `path` with the given access and sharing (open existing), send one
// synchronous request, close. A failed open is a failed request.
IoOutcome sendRequest(DeviceIo& io, const std::wstring& path, std::uint32_t access, std::uint32_t share,
                      std::uint32_t flags, std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                      std::uint32_t outSize);

class CQnIoCtrl {
 public:
  CQnIoCtrl(DeviceSetup& setup, DeviceIo& io) : setup_(setup), io_(io) {}
  virtual ~CQnIoCtrl() = default;

  // Fills the device path from the first present interface of the class.
  bool discover();
  const std::wstring& devicePath() const { return path_; }

  // Open the controller for read and write (shared), one request, close. The
  // reason of a failure is kept in lastError().
  bool control(std::uint32_t code, const void* in, std::uint32_t inSize, void* out, std::uint32_t outSize);
  // The same, giving the whole outcome.
  IoOutcome request(std::uint32_t code, const void* in, std::uint32_t inSize, void* out, std::uint32_t outSize);
  std::uint32_t lastError() const { return lastError_; }

  DeviceIo& io() { return io_; }

 protected:
  DeviceSetup& setup_;
  DeviceIo& io_;
  std::wstring path_;
  std::uint32_t lastError_ = 0;
};

// The layer on which the Invisible Memory requests are made.
class CImIoCtrl : public CQnIoCtrl {
 public:
  using CQnIoCtrl::CQnIoCtrl;
};

struct ControllerFacts {
  std::uint16_t major = 0, minor = 0, build = 0;
  std::uint32_t versionWord = 0, secondWord = 0, variantCode = 0;
};

class CVmDevControl : public CImIoCtrl {
 public:
  using CImIoCtrl::CImIoCtrl;
  ControllerFacts facts;
};

// Discovery, version request and version rule; prints the reason and returns
// false when the command may not go on.
bool checkSession(App& app);

// "\\.\VelmoRdDevPort0Target<n>" with n taken modulo 256.
std::wstring diskDevicePath(std::uint32_t diskNumber);

CommandResult verCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv);

}  // namespace vmd
