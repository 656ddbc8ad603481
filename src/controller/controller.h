// The controller object: finds the controller's device interface, checks its
// version, and sends it requests, each on a handle of its own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "console/app.h"
#include "controller/codes.h"
#include "platform/platform.h"

namespace vmd {

// Open `path` with the given access and sharing (open existing), send one
// synchronous request, close. The value is the count of bytes returned; on
// failure the error is the open's or the request's. A failed open is a
// failed request.
SysResult<std::uint32_t> sendRequest(DeviceIo& io, const std::wstring& path, std::uint32_t access,
                                     std::uint32_t share, std::uint32_t flags, std::uint32_t code, const void* in,
                                     std::uint32_t inSize, void* out, std::uint32_t outSize);

class CQnIoCtrl {
 public:
  CQnIoCtrl(DeviceSetup& setup, DeviceIo& io) : setup_(setup), io_(io) {}
  virtual ~CQnIoCtrl() = default;

  // Fills the device path from the first present interface of the class.
  bool discover();
  const std::wstring& devicePath() const { return path_; }

  // Open the controller for read and write (shared), one request, close. A
  // failed open is a failed request, with the open's error.
  SysResult<std::uint32_t> request(std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                                   std::uint32_t outSize);

  // From now on the controller is opened for reading alone: enough for its
  // queries, which need read access only, and for nothing that changes it.
  void openForQueriesOnly() { access_ = DeviceIo::GenericRead; }

  DeviceIo& io() { return io_; }

 protected:
  DeviceSetup& setup_;
  DeviceIo& io_;
  std::wstring path_;
  std::uint32_t access_ = DeviceIo::GenericRead | DeviceIo::GenericWrite;
};

// The layer on which the Invisible Memory requests are made. It adds nothing;
// it stands so that the controller object keeps its family of classes.
class CImIoCtrl : public CQnIoCtrl {
 public:
  using CQnIoCtrl::CQnIoCtrl;
};

// A variable-size per-disk query: sends `code` with the 12-byte request for
// disk `index` in a buffer that starts at 1024 bytes and is doubled while the
// controller fails with 122 or 234 and the buffer is below 102400 bytes (so
// the largest tried is 131072); each try opens the controller afresh. The
// first `withheld` bytes of the buffer are not given to the controller.
// Returns the bytes the controller returned, or nothing on any other failure
// (its system error then in *error, when asked for).
std::optional<Bytes> requestGrowingReply(CQnIoCtrl& controller, std::uint32_t code, std::uint8_t index,
                                         std::uint32_t withheld, std::uint32_t* error = nullptr);

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

}  // namespace vmd
