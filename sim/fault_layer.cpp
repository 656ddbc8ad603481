#include "sim/fault_layer.h"

#include "base/text_codec.h"
#include "controller/codes.h"

namespace vmd::sim {

namespace {

struct NamedCode {
  std::uint32_t code;
  const char* name;
};
constexpr NamedCode kCodeNames[] = {
    {ioctl::CreateDisk, "CreateDisk"},
    {ioctl::RemoveDisk, "RemoveDisk"},
    {ioctl::ReadDiskSettingsRecord, "ReadDiskSettingsRecord"},
    {ioctl::ChangeDiskSettings, "ChangeDiskSettings"},
    {ioctl::QueryDiskInfo, "QueryDiskInfo"},
    {ioctl::QueryDiskBitmap, "QueryDiskBitmap"},
    {ioctl::QueryDosDeviceOwner, "QueryDosDeviceOwner"},
    {ioctl::QueryDosNameTarget, "QueryDosNameTarget"},
    {ioctl::EnableIm, "EnableIm"},
    {ioctl::QueryImStatus, "QueryImStatus"},
    {ioctl::QueryDiskPresent, "QueryDiskPresent"},
    {ioctl::SaveDiskImage, "SaveDiskImage"},
    {ioctl::ChangeDiskLetter, "ChangeDiskLetter"},
    {ioctl::ReinitializeDisk, "ReinitializeDisk"},
    {ioctl::SetImOptions, "SetImOptions"},
    {ioctl::DisableIm, "DisableIm"},
    {ioctl::QueryDiskStatus, "QueryDiskStatus"},
    {ioctl::ApplyImageSettings, "ApplyImageSettings"},
    {ioctl::QueryDeviceNumber, "QueryDeviceNumber"},
    {ioctl::QueryControllerVersion, "QueryControllerVersion"},
    {ioctl::VolumeGetVolumeDiskExtents, "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS"},
    {ioctl::DiskGetPartitionInfo, "IOCTL_DISK_GET_PARTITION_INFO"},
    {ioctl::MountmgrQueryAutoMount, "IOCTL_MOUNTMGR_QUERY_AUTO_MOUNT"},
    {ioctl::MountmgrSetAutoMount, "IOCTL_MOUNTMGR_SET_AUTO_MOUNT"},
    {ioctl::FsctlLockVolume, "FSCTL_LOCK_VOLUME"},
    {ioctl::FsctlUnlockVolume, "FSCTL_UNLOCK_VOLUME"},
    {ioctl::FsctlDismountVolume, "FSCTL_DISMOUNT_VOLUME"},
};

}  // namespace

std::string hex32(std::uint32_t v) {
  static const char* digits = "0123456789abcdef";
  std::string s = "0x";
  for (int i = 7; i >= 0; --i) s += digits[(v >> (4 * i)) & 0xF];
  return s;
}

std::string codeName(std::uint32_t code) {
  for (const NamedCode& n : kCodeNames)
    if (n.code == code) return n.name;
  return hex32(code);
}

std::optional<std::uint32_t> codeFromName(const std::string& name) {
  for (const NamedCode& n : kCodeNames)
    if (sameNoCase(name, n.name)) return n.code;
  try {
    std::size_t used = 0;
    const unsigned long long v = std::stoull(name, &used, 0);
    if (used == name.size() && v <= 0xFFFFFFFFull) return static_cast<std::uint32_t>(v);
  } catch (...) {
  }
  return std::nullopt;
}

std::string lowerAscii(std::string s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  return s;
}

bool sameNoCase(const std::string& a, const std::string& b) { return lowerAscii(a) == lowerAscii(b); }


namespace calls {
std::optional<std::string> failableCall(const std::string& name) {
  for (const char* c : kFailable)
    if (sameNoCase(name, c)) return std::string(c);
  return std::nullopt;
}
}  // namespace calls

std::optional<std::uint32_t> RuleMatcher::match(const std::vector<FaultRule>& rules, std::string_view api,
                                                std::uint32_t code, const std::string& path) {
  std::optional<std::uint32_t> hit;
  for (std::size_t i = 0; i < rules.size(); ++i) {
    const FaultRule& rule = rules[i];
    if (rule.api != api) continue;
    if (rule.code && *rule.code != code) continue;
    if (rule.path && !sameNoCase(*rule.path, path)) continue;
    const std::uint32_t seen = ++seen_[i];
    if (rule.nth && *rule.nth != seen) continue;
    if (!hit) hit = rule.error;
  }
  return hit;
}

std::optional<std::uint32_t> RuleLog::enter(std::string_view api, std::uint32_t code, const std::string& path) {
  count("api", std::string(api));
  return matcher_.match(rules, api, code, path);
}

// --- Process start-up.

bool FaultInjectingProcess::initFramework() {
  if (log_.enter(calls::kInitFramework, 0, "")) return false;
  return inner_.initFramework();
}

ProcessEnvironment::MutexResult FaultInjectingProcess::createInstanceMutex(const std::wstring& name) {
  if (auto e = log_.enter(calls::kCreateMutexW, 0, toUtf8(name))) return {false, *e};
  return inner_.createInstanceMutex(name);
}

bool FaultInjectingProcess::tokenHasAdministrators() {
  if (log_.enter(calls::kGetTokenInformation, 0, "")) return false;
  return inner_.tokenHasAdministrators();
}

std::int32_t FaultInjectingProcess::comInitialize() {
  if (auto e = log_.enter(calls::kCoInitialize, 0, "")) {
    const std::uint32_t hr = (*e & 0x80000000u) ? *e : 0x80070000u | (*e & 0xFFFFu);
    return static_cast<std::int32_t>(hr);
  }
  return inner_.comInitialize();
}

void FaultInjectingProcess::comUninitialize() {
  log_.count("api", calls::kCoUninitialize);
  inner_.comUninitialize();
}

// --- Device interfaces.

std::optional<std::vector<DeviceSetup::Interface>> FaultInjectingSetup::presentInterfaces(const InterfaceClass& cls,
                                                                                         Scope scope) {
  if (log_.enter(calls::kSetupDiGetClassDevsW, 0, "")) return std::nullopt;
  std::optional<std::vector<Interface>> found = inner_.presentInterfaces(cls, scope);
  if (found) log_.count("api", calls::kSetupDiEnumDeviceInterfaces);
  return found;
}

// --- Device I/O.

DeviceIo::OpenResult FaultInjectingDeviceIo::open(const std::wstring& wpath, std::uint32_t access,
                                                  std::uint32_t share, std::uint32_t disposition,
                                                  std::uint32_t flags) {
  const std::string path = toUtf8(wpath);
  log_.count("opens", path);
  log_.note("openModes", path,
            "access=" + hex32(access) + " share=" + std::to_string(share) +
                " disposition=" + std::to_string(disposition) + " flags=" + hex32(flags));
  if (auto e = log_.enter(calls::kCreateFileW, 0, path)) return {Invalid, *e};
  const OpenResult r = inner_.open(wpath, access, share, disposition, flags);
  if (r.handle != Invalid) paths_[r.handle] = path;
  return r;
}

DeviceIo::ControlResult FaultInjectingDeviceIo::control(Handle h, std::uint32_t code, const void* in,
                                                        std::uint32_t inSize, void* out, std::uint32_t outSize) {
  const auto it = paths_.find(h);
  if (it == paths_.end()) return inner_.control(h, code, in, inSize, out, outSize);
  const std::string name = codeName(code);
  log_.count("requests", name);
  log_.note("requestSizes", name, "in=" + std::to_string(inSize) + " out=" + std::to_string(outSize));
  if (auto e = log_.enter(calls::kDeviceIoControl, code, it->second)) return {false, 0, *e};
  return inner_.control(h, code, in, inSize, out, outSize);
}

DeviceIo::Status FaultInjectingDeviceIo::flush(Handle h) {
  const auto it = paths_.find(h);
  if (it == paths_.end()) return inner_.flush(h);
  log_.count("flushes", it->second);
  if (auto e = log_.enter(calls::kFlushFileBuffers, 0, it->second)) return {false, *e};
  return inner_.flush(h);
}

void FaultInjectingDeviceIo::close(Handle h) {
  const auto it = paths_.find(h);
  if (it != paths_.end()) {
    log_.count("closes", it->second);
    paths_.erase(it);
  }
  inner_.close(h);
}

// --- Volumes.

std::uint32_t FaultInjectingVolumes::logicalDrives() {
  if (log_.enter(calls::kGetLogicalDrives, 0, "")) return 0;
  return inner_.logicalDrives();
}

std::uint32_t FaultInjectingVolumes::driveType(const std::wstring& root) {
  if (log_.enter(calls::kGetDriveTypeW, 0, toUtf8(root))) return drivetype::Unknown;
  return inner_.driveType(root);
}

VolumeService::VolumeInfo FaultInjectingVolumes::volumeInformation(const std::wstring& root) {
  if (auto e = log_.enter(calls::kGetVolumeInformationW, 0, toUtf8(root))) return {false, *e, L"", 0, L""};
  return inner_.volumeInformation(root);
}

VolumeService::FreeSpace FaultInjectingVolumes::diskFreeSpace(const std::wstring& root) {
  if (auto e = log_.enter(calls::kGetDiskFreeSpaceW, 0, toUtf8(root))) return {false, *e, 0, 0, 0, 0};
  return inner_.diskFreeSpace(root);
}

VolumeService::FreeSpaceEx FaultInjectingVolumes::diskFreeSpaceEx(const std::wstring& path) {
  if (auto e = log_.enter(calls::kGetDiskFreeSpaceExW, 0, toUtf8(path))) return {false, *e, 0, 0, 0};
  return inner_.diskFreeSpaceEx(path);
}

VolumeService::Text FaultInjectingVolumes::volumeNameForMountPoint(const std::wstring& mountPoint,
                                                                   std::uint32_t chars) {
  if (auto e = log_.enter(calls::kGetVolumeNameForVolumeMountPointW, 0, toUtf8(mountPoint))) return {false, *e, L""};
  return inner_.volumeNameForMountPoint(mountPoint, chars);
}

VolumeService::PathNames FaultInjectingVolumes::volumePathNames(const std::wstring& volumeName, std::uint32_t chars) {
  if (auto e = log_.enter(calls::kGetVolumePathNamesForVolumeNameW, 0, toUtf8(volumeName))) return {false, *e, {}, 0};
  return inner_.volumePathNames(volumeName, chars);
}

SysStatus FaultInjectingVolumes::setVolumeMountPoint(const std::wstring& mountPoint, const std::wstring& volumeName) {
  if (auto e = log_.enter(calls::kSetVolumeMountPointW, 0, toUtf8(mountPoint))) return {false, *e};
  return inner_.setVolumeMountPoint(mountPoint, volumeName);
}

SysStatus FaultInjectingVolumes::deleteVolumeMountPoint(const std::wstring& mountPoint) {
  if (auto e = log_.enter(calls::kDeleteVolumeMountPointW, 0, toUtf8(mountPoint))) return {false, *e};
  return inner_.deleteVolumeMountPoint(mountPoint);
}

SysStatus FaultInjectingVolumes::setVolumeLabel(const std::wstring& root, const std::wstring* label) {
  if (auto e = log_.enter(calls::kSetVolumeLabelW, 0, toUtf8(root))) return {false, *e};
  return inner_.setVolumeLabel(root, label);
}

// --- Files.

std::uint32_t FaultInjectingFiles::attributes(const std::wstring& path) {
  if (log_.enter(calls::kGetFileAttributesW, 0, toUtf8(path))) return InvalidFileAttributes;
  return inner_.attributes(path);
}

FileService::Size FaultInjectingFiles::fileSize(const std::wstring& path) {
  if (auto e = log_.enter(calls::kGetFileSize, 0, toUtf8(path))) return {false, *e, 0};
  return inner_.fileSize(path);
}

std::optional<Bytes> FaultInjectingFiles::readHead(const std::wstring& path, std::uint32_t count) {
  if (log_.enter(calls::kReadFile, 0, toUtf8(path))) return std::nullopt;
  return inner_.readHead(path, count);
}

std::uint32_t FaultInjectingFiles::writeWhole(const std::wstring& path, const Bytes& data) {
  const std::string p = toUtf8(path);
  if (log_.enter(calls::kCreateFileW, 0, p)) return syserr::OpenFailed;
  if (log_.enter(calls::kWriteFile, 0, p)) {
    // The file was created (or truncated) before the write failed.
    const std::uint32_t created = inner_.writeWhole(path, Bytes{});
    return created ? created : syserr::WriteFault;
  }
  return inner_.writeWhole(path, data);
}

bool FaultInjectingFiles::pathIsDirectory(const std::wstring& path) {
  if (log_.enter(calls::kGetFileAttributesW, 0, toUtf8(path))) return false;
  return inner_.pathIsDirectory(path);
}

// --- Registry.

namespace {

class FaultInjectingKey : public Registry::Key {
 public:
  FaultInjectingKey(std::unique_ptr<Registry::Key> inner, CallLog& log, std::string key)
      : inner_(std::move(inner)), log_(log), key_(std::move(key)) {}
  std::uint32_t enumValue(std::uint32_t index, std::uint32_t nameChars, std::uint32_t dataBytes,
                          Registry::Value& out) override {
    if (auto e = log_.enter(calls::kRegEnumValueW, 0, key_)) return *e;
    return inner_->enumValue(index, nameChars, dataBytes, out);
  }
  std::uint32_t deleteValue(const std::wstring& name) override {
    if (auto e = log_.enter(calls::kRegDeleteValueW, 0, key_ + "\\" + toUtf8(name))) return *e;
    return inner_->deleteValue(name);
  }
  std::uint32_t setBinary(const std::wstring& name, const Bytes& data) override {
    if (auto e = log_.enter(calls::kRegSetValueExW, 0, key_ + "\\" + toUtf8(name))) return *e;
    return inner_->setBinary(name, data);
  }

 private:
  std::unique_ptr<Registry::Key> inner_;
  CallLog& log_;
  std::string key_;
};

}  // namespace

std::optional<std::uint32_t> FaultInjectingRegistry::readDword(const std::wstring& key, const std::wstring& value) {
  if (log_.enter(calls::kRegQueryValueExW, 0, toUtf8(key) + "\\" + toUtf8(value))) return std::nullopt;
  return inner_.readDword(key, value);
}

std::unique_ptr<Registry::Key> FaultInjectingRegistry::openForWrite(const std::wstring& key, std::uint32_t& error) {
  if (auto e = log_.enter(calls::kRegOpenKeyExW, 0, toUtf8(key))) {
    error = *e;
    return nullptr;
  }
  std::unique_ptr<Key> opened = inner_.openForWrite(key, error);
  if (!opened) return nullptr;
  return std::make_unique<FaultInjectingKey>(std::move(opened), log_, toUtf8(key));
}

SysResult<std::vector<Registry::Value>> FaultInjectingRegistry::readValues(const std::wstring& key) {
  if (auto e = log_.enter(calls::kRegOpenKeyExW, 0, toUtf8(key))) return {false, *e, {}};
  if (auto e = log_.enter(calls::kRegEnumValueW, 0, toUtf8(key))) return {false, *e, {}};
  return inner_.readValues(key);
}

// --- System information, clock, broadcasts.

std::optional<SystemInfo::Memory> FaultInjectingSystem::memoryStatus() {
  if (log_.enter(calls::kGlobalMemoryStatusEx, 0, "")) return std::nullopt;
  return inner_.memoryStatus();
}

std::optional<std::wstring> FaultInjectingSystem::windowsDirectory() {
  if (log_.enter(calls::kGetSystemWindowsDirectoryW, 0, "")) return std::nullopt;
  return inner_.windowsDirectory();
}

std::optional<std::vector<std::uint32_t>> FaultInjectingSystem::diskDriveSignatures() {
  if (log_.enter(calls::kWmiQuery, 0, "")) return std::nullopt;
  return inner_.diskDriveSignatures();
}

void FaultInjectingClock::sleep(std::uint32_t milliseconds) {
  log_.count("api", calls::kSleep);
  inner_.sleep(milliseconds);
}

std::int32_t FaultInjectingBroadcast::broadcast(std::uint32_t flags, std::uint32_t message, std::uint64_t wParam,
                                                const Bytes& record) {
  if (log_.enter(calls::kBroadcastSystemMessageW, 0, "")) return -1;
  return inner_.broadcast(flags, message, wParam, record);
}

}  // namespace vmd::sim
