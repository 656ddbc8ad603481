// The program's one boundary with the operating system. Every service the
// commands need is a narrow interface here; src/platform/win32 implements them
// on Windows, sim/ implements them on the simulated machine. Nothing in this
// header depends on <windows.h>.
//
// Error contract: every call that can fail answers a SysStatus or a
// SysResult<T>, and each method says what its failure looks like. The reason
// is the system error code (the value GetLastError would give on Windows) in
// the result; nothing keeps a hidden "last error". `ok` stands apart from
// `error`: a call may fail with error 0.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vmd {

using Bytes = std::vector<std::uint8_t>;

// System error codes the program reacts to or reports.
namespace syserr {
constexpr std::uint32_t Success = 0;
constexpr std::uint32_t InvalidFunction = 1;
constexpr std::uint32_t FileNotFound = 2;
constexpr std::uint32_t PathNotFound = 3;
constexpr std::uint32_t AccessDenied = 5;
constexpr std::uint32_t InvalidHandle = 6;
constexpr std::uint32_t NotEnoughMemory = 8;
constexpr std::uint32_t InvalidData = 13;
constexpr std::uint32_t NotReady = 21;
constexpr std::uint32_t WriteFault = 29;
constexpr std::uint32_t GenFailure = 31;
constexpr std::uint32_t NotSupported = 50;
constexpr std::uint32_t InvalidParameter = 87;
constexpr std::uint32_t OpenFailed = 110;
constexpr std::uint32_t DiskFull = 112;
constexpr std::uint32_t InsufficientBuffer = 122;
constexpr std::uint32_t AlreadyExists = 183;
constexpr std::uint32_t MoreData = 234;
constexpr std::uint32_t NoMoreItems = 259;
}  // namespace syserr

// The result of a call that can fail: ok, or not with the system's error.
// Both are [[nodiscard]]: a result dropped on purpose goes through
// ignoreResult (base/ignore_result.h), which says why.
struct [[nodiscard]] SysStatus {
  bool ok = false;
  std::uint32_t error = 0;

  static SysStatus success() { return {true, 0}; }
  static SysStatus failure(std::uint32_t error) { return {false, error}; }
};

// `value` is the answer; on failure it holds what the method says it holds
// (its type's empty value unless the method says otherwise).
template <class T>
struct [[nodiscard]] SysResult {
  bool ok = false;
  std::uint32_t error = 0;
  T value{};

  static SysResult success(T value) { return {true, 0, std::move(value)}; }
  static SysResult failure(std::uint32_t error, T value = T{}) { return {false, error, std::move(value)}; }

  // The answer, or `fallback` when the call failed.
  T valueOr(T fallback) const& { return ok ? value : fallback; }
  SysStatus status() const { return {ok, error}; }
};

enum class Stream { Out, Err };

// Standard output and standard error. Text is written as given; the Windows
// side writes through the C runtime in text mode, so "\n" becomes "\r\n".
class OutputStreams {
 public:
  virtual ~OutputStreams() = default;
  virtual void write(Stream stream, const std::wstring& text) = 0;
  // WriteConsoleW on the stream's standard handle, in one call. False, and
  // nothing written, when that handle is not valid (or there is no console).
  virtual bool writeConsole(Stream stream, const std::wstring& text) { return false; }
};

// One key from the console, without echo and without waiting for Enter.
// Returns -1 when no key can be had (end of input): callers treat it as "no".
class KeyReader {
 public:
  virtual ~KeyReader() = default;
  virtual int readKey() = 0;
};

// The executable's own message table and string table.
class MessageCatalog {
 public:
  virtual ~MessageCatalog() = default;
  // The message formatted with inserts %1, %2, ... as FormatMessageW does it;
  // nothing when the table has no such id.
  virtual std::optional<std::wstring> formatMessage(std::uint32_t id,
                                                    const std::vector<const wchar_t*>& inserts) = 0;
  // The string, or empty when the table has no such id.
  virtual std::wstring loadString(std::uint32_t id) = 0;
};

// Process-level services used once at start-up.
class ProcessEnvironment {
 public:
  virtual ~ProcessEnvironment() = default;
  // What the program needs before anything else (its module, its command
  // line); not ok with the error when it cannot be had.
  virtual SysStatus initFramework() = 0;
  // CreateMutexW(initial owner, name): ok when a handle came back, with the
  // value true when the mutex existed already (last error 183); not ok with
  // the error when no handle came back.
  virtual SysResult<bool> createInstanceMutex(const std::wstring& name) = 0;
  // Whether the token's groups contain the built-in Administrators SID,
  // whatever that group's attributes; not ok with the error of the step that
  // failed.
  virtual SysResult<bool> tokenHasAdministrators() = 0;
  // CoInitialize: ok for S_OK and S_FALSE; otherwise not ok, and the error is
  // the HRESULT itself.
  virtual SysStatus comInitialize() = 0;
  virtual void comUninitialize() = 0;
};

// A device-interface class, e.g. {48FA1FE0-7189-432A-9FD4-9DB766B64B31}.
struct InterfaceClass {
  std::uint32_t data1;
  std::uint16_t data2, data3;
  std::uint8_t data4[8];
};

class DeviceSetup {
 public:
  virtual ~DeviceSetup() = default;
  struct Interface {
    std::uint32_t index;  // enumeration index
    std::wstring path;
  };
  enum class Scope { All, FirstOnly };
  // The present interfaces of a class whose detail (path) could be read, in
  // enumeration order. FirstOnly stops the enumeration after index 0, as the
  // controller's discovery does. Not ok with the error when the device set
  // cannot be had.
  virtual SysResult<std::vector<Interface>> presentInterfaces(const InterfaceClass& cls, Scope scope) = 0;
};

// CreateFileW / DeviceIoControl / FlushFileBuffers / CloseHandle.
class DeviceIo {
 public:
  virtual ~DeviceIo() = default;
  using Handle = std::int64_t;
  static constexpr Handle Invalid = -1;

  static constexpr std::uint32_t GenericRead = 0x80000000u;
  static constexpr std::uint32_t GenericWrite = 0x40000000u;
  static constexpr std::uint32_t ShareRead = 1, ShareWrite = 2;
  static constexpr std::uint32_t OpenExisting = 3;
  static constexpr std::uint32_t AttributeNormal = 0x80;

  // CreateFileW: the handle; not ok with the error (and the value Invalid) on failure.
  virtual SysResult<Handle> open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                                 std::uint32_t disposition, std::uint32_t flags) = 0;
  // One synchronous DeviceIoControl; out receives at most outSize bytes. The
  // value is the count of bytes returned, which may be set on failure too.
  virtual SysResult<std::uint32_t> control(Handle h, std::uint32_t code, const void* in, std::uint32_t inSize,
                                           void* out, std::uint32_t outSize) = 0;
  virtual SysStatus flush(Handle h) = 0;  // FlushFileBuffers
  virtual void close(Handle h) = 0;       // CloseHandle; its failure is not reported
};

// An open device that closes itself: move-only, so a volume held across a
// prompt is closed on every path out of the code that opened it.
class DeviceHandle {
 public:
  DeviceHandle() = default;
  DeviceHandle(DeviceIo& io, DeviceIo::Handle h) : io_(&io), h_(h) {}
  DeviceHandle(const DeviceHandle&) = delete;
  DeviceHandle& operator=(const DeviceHandle&) = delete;
  DeviceHandle(DeviceHandle&& other) noexcept : io_(other.io_), h_(other.h_) { other.h_ = DeviceIo::Invalid; }
  DeviceHandle& operator=(DeviceHandle&& other) noexcept {
    if (this != &other) {
      close();
      io_ = other.io_;
      h_ = other.h_;
      other.h_ = DeviceIo::Invalid;
    }
    return *this;
  }
  ~DeviceHandle() { close(); }

  // Opens `path` (open existing); on failure the error, and a handle that is
  // not valid.
  static SysResult<DeviceHandle> open(DeviceIo& io, const std::wstring& path, std::uint32_t access,
                                      std::uint32_t share, std::uint32_t flags);

  bool valid() const { return io_ && h_ != DeviceIo::Invalid; }
  SysResult<std::uint32_t> control(std::uint32_t code, const void* in = nullptr, std::uint32_t inSize = 0,
                                   void* out = nullptr, std::uint32_t outSize = 0) {
    if (!valid()) return SysResult<std::uint32_t>::failure(6);  // ERROR_INVALID_HANDLE
    return io_->control(h_, code, in, inSize, out, outSize);
  }
  SysStatus flush() { return valid() ? io_->flush(h_) : SysStatus::failure(6); }
  void close() {
    if (valid()) io_->close(h_);
    h_ = DeviceIo::Invalid;
  }

 private:
  DeviceIo* io_ = nullptr;
  DeviceIo::Handle h_ = DeviceIo::Invalid;
};

inline SysResult<DeviceHandle> DeviceHandle::open(DeviceIo& io, const std::wstring& path, std::uint32_t access,
                                                  std::uint32_t share, std::uint32_t flags) {
  SysResult<DeviceIo::Handle> r = io.open(path, access, share, DeviceIo::OpenExisting, flags);
  if (!r.ok) return SysResult<DeviceHandle>::failure(r.error);
  return SysResult<DeviceHandle>::success(DeviceHandle(io, r.value));
}

// Drive types of GetDriveTypeW.
namespace drivetype {
constexpr std::uint32_t Unknown = 0, NoRootDir = 1, Removable = 2, Fixed = 3, Remote = 4, CdRom = 5,
                        RamDisk = 6;
}

// Volumes, mount points and drives.
class VolumeService {
 public:
  virtual ~VolumeService() = default;
  // GetLogicalDrives: bit 0 is A:. Not ok with the error when it answers no
  // drive at all.
  virtual SysResult<std::uint32_t> logicalDrives() = 0;
  // GetDriveTypeW: drivetype::Unknown (0) or NoRootDir (1) when it cannot
  // tell; Windows always answers, so only a fault rule makes it not ok.
  virtual SysResult<std::uint32_t> driveType(const std::wstring& root) = 0;
  struct VolumeInfo {
    std::wstring label;       // at most 259 characters
    std::uint32_t serial = 0;
    std::wstring fileSystem;  // at most 24 characters
  };
  // GetVolumeInformationW; not ok with the error on failure.
  virtual SysResult<VolumeInfo> volumeInformation(const std::wstring& root) = 0;
  struct FreeSpace {
    std::uint32_t sectorsPerCluster = 0, bytesPerSector = 0, freeClusters = 0, totalClusters = 0;
  };
  // GetDiskFreeSpaceW; not ok with the error on failure.
  virtual SysResult<FreeSpace> diskFreeSpace(const std::wstring& root) = 0;
  struct FreeSpaceEx {
    std::uint64_t freeToCaller = 0, totalBytes = 0, totalFree = 0;
  };
  // GetDiskFreeSpaceExW; not ok with the error on failure.
  virtual SysResult<FreeSpaceEx> diskFreeSpaceEx(const std::wstring& path) = 0;
  // GetVolumeNameForVolumeMountPointW with a buffer of `chars` characters:
  // the volume GUID name (\\?\Volume{...}\\); not ok with the error on failure.
  virtual SysResult<std::wstring> volumeNameForMountPoint(const std::wstring& mountPoint, std::uint32_t chars) = 0;
  // GetVolumePathNamesForVolumeNameW with a buffer of `chars` characters: the
  // multi-string on success; not ok with the error on failure, and with
  // ERROR_MORE_DATA `needed` holds the length asked for.
  struct PathNames {
    std::vector<wchar_t> multiString;
    std::uint32_t needed = 0;
  };
  virtual SysResult<PathNames> volumePathNames(const std::wstring& volumeName, std::uint32_t chars) = 0;
  // SetVolumeMountPointW, DeleteVolumeMountPointW, SetVolumeLabelW (a null
  // label removes it): not ok with the error on failure. Under Wine a failed
  // DeleteVolumeMountPointW may leave the error 0.
  virtual SysStatus setVolumeMountPoint(const std::wstring& mountPoint, const std::wstring& volumeName) = 0;
  virtual SysStatus deleteVolumeMountPoint(const std::wstring& mountPoint) = 0;
  virtual SysStatus setVolumeLabel(const std::wstring& root, const std::wstring* label) = 0;
};

constexpr std::uint32_t InvalidFileAttributes = 0xFFFFFFFFu;

// The attribute bits of a file or folder, as GetFileAttributesW gives them.
namespace fileattr {
constexpr std::uint32_t ReadOnly = 0x0001;
constexpr std::uint32_t Directory = 0x0010;
constexpr std::uint32_t Normal = 0x0080;
constexpr std::uint32_t Compressed = 0x0800;
constexpr std::uint32_t NotContentIndexed = 0x2000;
constexpr std::uint32_t Encrypted = 0x4000;
}  // namespace fileattr

class FileService {
 public:
  virtual ~FileService() = default;
  // GetFileAttributesW; not ok with the error when it fails, for any reason.
  virtual SysResult<std::uint32_t> attributes(const std::wstring& path) = 0;
  // The length of a file in bytes; not ok with the error when it cannot be
  // opened or read.
  virtual SysResult<std::uint64_t> fileSize(const std::wstring& path) = 0;
  // Opens the file for reading (sharing read and write) and reads up to
  // `count` bytes from its start; not ok with the error when it cannot be
  // opened or read.
  virtual SysResult<Bytes> readHead(const std::wstring& path, std::uint32_t count) = 0;
  // Create or truncate, write, close. Not ok with 110 when it cannot be
  // created and with 29 when writing or closing failed, whatever the system's
  // own error was: these two are what the program reports. The file is closed
  // in every case; a failed write may leave it partly written.
  virtual SysStatus writeWhole(const std::wstring& path, const Bytes& data) = 0;
  // PathIsDirectoryW: false when it is not, or cannot be told; Windows always
  // answers, so only a fault rule makes it not ok.
  virtual SysResult<bool> pathIsDirectory(const std::wstring& path) = 0;
};

// HKEY_LOCAL_MACHINE only: the program reads and writes nothing else.
class Registry {
 public:
  virtual ~Registry() = default;
  // A 32-bit value of any type; not ok with the error when the key or value
  // cannot be read (2 when missing), or with 13 when it is not 4 bytes long.
  virtual SysResult<std::uint32_t> readDword(const std::wstring& key, const std::wstring& value) = 0;
  struct Value {
    std::wstring name;
    std::uint32_t type = 0;
    Bytes data;
  };
  struct Key {
    virtual ~Key() = default;
    // RegEnumValueW with room for `nameChars` name characters (terminator
    // included) and `dataBytes` data bytes: the value, or not ok with the
    // error: 234 (too long for the room), 259 (no more), or any other.
    virtual SysResult<Value> enumValue(std::uint32_t index, std::uint32_t nameChars, std::uint32_t dataBytes) = 0;
    // RegDeleteValueW, RegSetValueExW with REG_BINARY: not ok with the error on failure.
    virtual SysStatus deleteValue(const std::wstring& name) = 0;
    virtual SysStatus setBinary(const std::wstring& name, const Bytes& data) = 0;
  };
  // Opened with read and write access (KEY_READ | KEY_WRITE); not ok with
  // the error (and no key) on failure. Deleting while enumerating shifts
  // later values down.
  virtual SysResult<std::unique_ptr<Key>> openForWrite(const std::wstring& key) = 0;
  // Every value of the key in enumeration order, the key opened with read
  // access alone (KEY_READ): ok false with the error when the key cannot be
  // opened or its values cannot be read to the end.
  virtual SysResult<std::vector<Value>> readValues(const std::wstring& key) = 0;
};

struct SystemTime {
  std::uint16_t year, month, dayOfWeek, day, hour, minute, second, milliseconds;
};

class SystemInfo {
 public:
  virtual ~SystemInfo() = default;
  struct Memory {
    std::uint64_t totalPhys = 0, availPhys = 0;
  };
  // GlobalMemoryStatusEx; not ok with the error on failure.
  virtual SysResult<Memory> memoryStatus() = 0;
  // GetSystemWindowsDirectoryW; not ok with the error on failure.
  virtual SysResult<std::wstring> windowsDirectory() = 0;
  // The "Signature" property of every Win32_DiskDrive object of root\cimv2
  // that has one; not ok when the namespace or the query fails, the error
  // being the HRESULT of the step that failed.
  virtual SysResult<std::vector<std::uint32_t>> diskDriveSignatures() = 0;
};

// The time of day and the one way the program waits. None of these fail.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual SystemTime systemTime() = 0;               // GetSystemTime (UTC)
  virtual std::uint64_t systemTimeAsFileTime() = 0;  // GetSystemTimeAsFileTime
  virtual void sleep(std::uint32_t milliseconds) = 0;  // Sleep
};

// Messages to every top-level window and driver of the session.
class DeviceBroadcast {
 public:
  virtual ~DeviceBroadcast() = default;
  // BroadcastSystemMessageW(flags, all components, message, wParam, the
  // record as lParam): the system's answer, positive on success; not ok with
  // the error (and the value -1) when it answers a negative value.
  virtual SysResult<std::int32_t> broadcast(std::uint32_t flags, std::uint32_t message, std::uint64_t wParam,
                                            const Bytes& record) = 0;
};

// Everything the program may ask of the system, handed to the commands.
struct Platform {
  OutputStreams& streams;
  KeyReader& keys;
  MessageCatalog& catalog;
  ProcessEnvironment& process;
  DeviceSetup& setup;
  DeviceIo& io;
  VolumeService& volumes;
  FileService& files;
  Registry& registry;
  SystemInfo& system;
  Clock& clock;
  DeviceBroadcast& broadcast;
};

}  // namespace vmd
