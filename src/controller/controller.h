// The controller object: finds the controller's device interface, checks its
// version, and sends it requests, each on a handle of its own; and what the
// controller answers about its disks (DiskInventory). Nothing here prints:
// callers report the results. Nothing is cached between commands: a command
// makes one DiskInventory and it lives as long as the command.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

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

// What the session check found. Anything but Ready stops the command; the
// caller prints the reason.
enum class SessionStatus {
  Ready,
  NoController,    // no device interface, or its path is empty
  VersionUnread,   // the version request failed
  VersionTooOld,   // 5.5.x and earlier
};

// The controller's live status of a disk, laid out like a settings record
// (settings/settings_record.h) and read by ParseImageFileStatus
// (settings/image_file.h).
using DiskStatus = Bytes;

// Code 0x4606C for disk `index`, by requestGrowingReply with nothing
// withheld. Nothing on any failure.
std::optional<DiskStatus> QueryDiskStatus(CQnIoCtrl& controller, std::uint8_t index);

// Discovery, version request and version rule; on Ready the controller's
// facts are filled. Prints nothing.
SessionStatus checkSession(CVmDevControl& controller);

// The 32-byte disk record of QueryDiskInfo.
struct DiskInfo {
  std::uint8_t number = 0;      // target id of the disk's address (byte 10)
  bool hasImage = false;        // byte 14
  bool good = false;            // byte 15
  std::int64_t sizeBytes = 0;   // bytes 16..23
  bool directIo = false;        // byte 24
  wchar_t letter = 0;           // byte 25, the Direct-IO disk's letter
  std::array<std::uint8_t, 32> raw{};
};

DiskInfo parseDiskInfo(const std::uint8_t (&raw)[32]);

// Disk numbers of a QueryDiskBitmap answer, ascending.
std::vector<std::uint8_t> disksInBitmap(const std::array<std::uint8_t, 16>& bitmap);

// What the index argument of a command names. Anything but Found stops the
// command; the caller prints the reason.
struct DiskLookup {
  enum Status {
    Found,
    NotANumber,   // the text does not begin with a decimal digit
    OutOfRange,   // 128 or more
    NotFound,     // the controller does not answer for that disk
  };
  Status status = NotANumber;
  std::uint32_t index = 0;  // as read, for the message
  DiskInfo info;            // when Found
};

class DiskInventory {
 public:
  explicit DiskInventory(CQnIoCtrl& controller) : controller_(controller) {}

  // The disk an index argument names. Prints nothing.
  DiskLookup resolveDiskIndex(const wchar_t* text);

  // Nothing on failure, with the system error in *error when asked for.
  std::optional<std::array<std::uint8_t, 16>> queryDiskBitmap(std::uint32_t* error = nullptr);
  std::optional<DiskInfo> queryDiskInfo(std::uint8_t number);
  // The system's disk number of a SCSI disk.
  std::optional<std::uint32_t> queryDeviceNumber(std::uint8_t number);
  // Whether the controller's disk `number` owns "\??\X:" for `letter`.
  bool ownsDosName(std::uint8_t number, wchar_t letter);

 private:
  CQnIoCtrl& controller_;
};

// "\\.\VelmoRdDevPort0Target<n>" with n taken modulo 256.
std::wstring diskDevicePath(std::uint32_t diskNumber);

}  // namespace vmd
