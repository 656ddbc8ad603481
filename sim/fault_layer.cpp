#include "sim/fault_layer.h"

#include "base/text_codec.h"
#include "controller/codes.h"
#include "sim/call_trace.h"

namespace vmd::sim {

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
  const std::optional<std::uint32_t> e = matcher_.match(rules, api, code, path);
  if (e && trace_) trace_->injected(*e);
  return e;
}

// --- Process start-up.

SysStatus FaultInjectingProcess::initFramework() {
  TracedCall t(log_, calls::kInitFramework, "");
  if (auto e = log_.enter(calls::kInitFramework, 0, "")) return SysStatus::failure(*e);
  return t.done(inner_.initFramework());
}

SysResult<bool> FaultInjectingProcess::createInstanceMutex(const std::wstring& name) {
  const std::string n = toUtf8(name);
  TracedCall t(log_, calls::kCreateMutexW, n);
  if (auto e = log_.enter(calls::kCreateMutexW, 0, n)) return SysResult<bool>::failure(*e);
  return t.done(inner_.createInstanceMutex(name), describeMutex);
}

SysResult<bool> FaultInjectingProcess::tokenHasAdministrators() {
  TracedCall t(log_, calls::kGetTokenInformation, "");
  if (auto e = log_.enter(calls::kGetTokenInformation, 0, "")) return SysResult<bool>::failure(*e);
  return t.done(inner_.tokenHasAdministrators(), describeMember);
}

SysStatus FaultInjectingProcess::comInitialize() {
  TracedCall t(log_, calls::kCoInitialize, "");
  if (auto e = log_.enter(calls::kCoInitialize, 0, "")) {
    const std::uint32_t hr = (*e & 0x80000000u) ? *e : 0x80070000u | (*e & 0xFFFFu);
    return SysStatus::failure(hr);
  }
  return t.done(inner_.comInitialize());
}

void FaultInjectingProcess::comUninitialize() {
  TracedCall t(log_, calls::kCoUninitialize, "");
  log_.count("api", calls::kCoUninitialize);
  inner_.comUninitialize();
  t.done();
}

// --- Device interfaces.

SysResult<std::vector<DeviceSetup::Interface>> FaultInjectingSetup::presentInterfaces(const InterfaceClass& cls,
                                                                                      Scope scope) {
  TracedCall t(log_, calls::kSetupDiGetClassDevsW, log_.trace() ? interfaceClassText(cls) : std::string());
  if (t) t.line().field("scope", scope == Scope::FirstOnly ? "first" : "all");
  if (auto e = log_.enter(calls::kSetupDiGetClassDevsW, 0, "")) return SysResult<std::vector<Interface>>::failure(*e);
  SysResult<std::vector<Interface>> found = inner_.presentInterfaces(cls, scope);
  if (found.ok) log_.count("api", calls::kSetupDiEnumDeviceInterfaces);
  return t.done(std::move(found));
}

// --- Device I/O.

SysResult<DeviceIo::Handle> FaultInjectingDeviceIo::open(const std::wstring& wpath, std::uint32_t access,
                                                         std::uint32_t share, std::uint32_t disposition,
                                                         std::uint32_t flags) {
  const std::string path = toUtf8(wpath);
  TracedCall t(log_, calls::kCreateFileW, path);
  if (t) t.line().hex("access", access).number("share", share).number("disposition", disposition).hex("flags", flags);
  log_.count("opens", path);
  log_.note("openModes", path,
            "access=" + hex32(access) + " share=" + std::to_string(share) +
                " disposition=" + std::to_string(disposition) + " flags=" + hex32(flags));
  if (auto e = log_.enter(calls::kCreateFileW, 0, path)) return SysResult<Handle>::failure(*e, Invalid);
  const SysResult<Handle> r = inner_.open(wpath, access, share, disposition, flags);
  if (r.ok) paths_[r.value] = path;
  return t.done(r);
}

SysResult<std::uint32_t> FaultInjectingDeviceIo::control(Handle h, std::uint32_t code, const void* in,
                                                         std::uint32_t inSize, void* out, std::uint32_t outSize) {
  const auto it = paths_.find(h);
  TracedCall t(log_, calls::kDeviceIoControl, it == paths_.end() ? std::string() : it->second);
  if (t) t.line().field("code", codeName(code)).bytes("in", in, in ? inSize : 0).number("out", outSize);
  if (it == paths_.end()) return t.done(inner_.control(h, code, in, inSize, out, outSize), describeWith(out, outSize));
  const std::string name = codeName(code);
  log_.count("requests", name);
  log_.note("requestSizes", name, "in=" + std::to_string(inSize) + " out=" + std::to_string(outSize));
  if (auto e = log_.enter(calls::kDeviceIoControl, code, it->second)) return SysResult<std::uint32_t>::failure(*e);
  return t.done(inner_.control(h, code, in, inSize, out, outSize), describeWith(out, outSize));
}

SysStatus FaultInjectingDeviceIo::flush(Handle h) {
  const auto it = paths_.find(h);
  TracedCall t(log_, calls::kFlushFileBuffers, it == paths_.end() ? std::string() : it->second);
  if (it == paths_.end()) return t.done(inner_.flush(h));
  log_.count("flushes", it->second);
  if (auto e = log_.enter(calls::kFlushFileBuffers, 0, it->second)) return SysStatus::failure(*e);
  return t.done(inner_.flush(h));
}

void FaultInjectingDeviceIo::close(Handle h) {
  const auto it = paths_.find(h);
  TracedCall t(log_, calls::kCloseHandle, it == paths_.end() ? std::string() : it->second);
  if (it != paths_.end()) {
    log_.count("closes", it->second);
    paths_.erase(it);
  }
  inner_.close(h);
  t.done();
}

// --- Volumes.

SysResult<std::uint32_t> FaultInjectingVolumes::logicalDrives() {
  TracedCall t(log_, calls::kGetLogicalDrives, "");
  if (auto e = log_.enter(calls::kGetLogicalDrives, 0, "")) return SysResult<std::uint32_t>::failure(*e);
  return t.done(inner_.logicalDrives(), describeMask);
}

SysResult<std::uint32_t> FaultInjectingVolumes::driveType(const std::wstring& root) {
  const std::string p = toUtf8(root);
  TracedCall t(log_, calls::kGetDriveTypeW, p);
  if (auto e = log_.enter(calls::kGetDriveTypeW, 0, p)) return SysResult<std::uint32_t>::failure(*e, drivetype::Unknown);
  return t.done(inner_.driveType(root), describeType);
}

SysResult<VolumeService::VolumeInfo> FaultInjectingVolumes::volumeInformation(const std::wstring& root) {
  const std::string p = toUtf8(root);
  TracedCall t(log_, calls::kGetVolumeInformationW, p);
  if (auto e = log_.enter(calls::kGetVolumeInformationW, 0, p)) return SysResult<VolumeInfo>::failure(*e);
  return t.done(inner_.volumeInformation(root));
}

SysResult<VolumeService::FreeSpace> FaultInjectingVolumes::diskFreeSpace(const std::wstring& root) {
  const std::string p = toUtf8(root);
  TracedCall t(log_, calls::kGetDiskFreeSpaceW, p);
  if (auto e = log_.enter(calls::kGetDiskFreeSpaceW, 0, p)) return SysResult<FreeSpace>::failure(*e);
  return t.done(inner_.diskFreeSpace(root));
}

SysResult<VolumeService::FreeSpaceEx> FaultInjectingVolumes::diskFreeSpaceEx(const std::wstring& path) {
  const std::string p = toUtf8(path);
  TracedCall t(log_, calls::kGetDiskFreeSpaceExW, p);
  if (auto e = log_.enter(calls::kGetDiskFreeSpaceExW, 0, p)) return SysResult<FreeSpaceEx>::failure(*e);
  return t.done(inner_.diskFreeSpaceEx(path));
}

SysResult<std::wstring> FaultInjectingVolumes::volumeNameForMountPoint(const std::wstring& mountPoint,
                                                                       std::uint32_t chars) {
  const std::string p = toUtf8(mountPoint);
  TracedCall t(log_, calls::kGetVolumeNameForVolumeMountPointW, p);
  if (t) t.line().number("chars", chars);
  if (auto e = log_.enter(calls::kGetVolumeNameForVolumeMountPointW, 0, p)) return SysResult<std::wstring>::failure(*e);
  return t.done(inner_.volumeNameForMountPoint(mountPoint, chars), describeVolumeName);
}

SysResult<VolumeService::PathNames> FaultInjectingVolumes::volumePathNames(const std::wstring& volumeName,
                                                                           std::uint32_t chars) {
  const std::string p = toUtf8(volumeName);
  TracedCall t(log_, calls::kGetVolumePathNamesForVolumeNameW, p);
  if (t) t.line().number("chars", chars);
  if (auto e = log_.enter(calls::kGetVolumePathNamesForVolumeNameW, 0, p)) return SysResult<PathNames>::failure(*e);
  return t.done(inner_.volumePathNames(volumeName, chars));
}

SysStatus FaultInjectingVolumes::setVolumeMountPoint(const std::wstring& mountPoint, const std::wstring& volumeName) {
  const std::string p = toUtf8(mountPoint);
  TracedCall t(log_, calls::kSetVolumeMountPointW, p);
  if (t) t.line().text("volume", toUtf8(volumeName));
  if (auto e = log_.enter(calls::kSetVolumeMountPointW, 0, p)) return SysStatus::failure(*e);
  return t.done(inner_.setVolumeMountPoint(mountPoint, volumeName));
}

SysStatus FaultInjectingVolumes::deleteVolumeMountPoint(const std::wstring& mountPoint) {
  const std::string p = toUtf8(mountPoint);
  TracedCall t(log_, calls::kDeleteVolumeMountPointW, p);
  if (auto e = log_.enter(calls::kDeleteVolumeMountPointW, 0, p)) return SysStatus::failure(*e);
  return t.done(inner_.deleteVolumeMountPoint(mountPoint));
}

SysStatus FaultInjectingVolumes::setVolumeLabel(const std::wstring& root, const std::wstring* label) {
  const std::string p = toUtf8(root);
  TracedCall t(log_, calls::kSetVolumeLabelW, p);
  if (t) label ? t.line().text("label", toUtf8(*label)) : t.line().field("label", "null");
  if (auto e = log_.enter(calls::kSetVolumeLabelW, 0, p)) return SysStatus::failure(*e);
  return t.done(inner_.setVolumeLabel(root, label));
}

// --- Files.

SysResult<std::uint32_t> FaultInjectingFiles::attributes(const std::wstring& path) {
  const std::string p = toUtf8(path);
  TracedCall t(log_, calls::kGetFileAttributesW, p);
  if (auto e = log_.enter(calls::kGetFileAttributesW, 0, p))
    return SysResult<std::uint32_t>::failure(*e, InvalidFileAttributes);
  return t.done(inner_.attributes(path), describeAttributes);
}

SysResult<std::uint64_t> FaultInjectingFiles::fileSize(const std::wstring& path) {
  const std::string p = toUtf8(path);
  TracedCall t(log_, calls::kGetFileSize, p);
  if (auto e = log_.enter(calls::kGetFileSize, 0, p)) return SysResult<std::uint64_t>::failure(*e);
  return t.done(inner_.fileSize(path), describeSize);
}

SysResult<Bytes> FaultInjectingFiles::readHead(const std::wstring& path, std::uint32_t count) {
  const std::string p = toUtf8(path);
  TracedCall t(log_, calls::kReadFile, p);
  if (t) t.line().number("count", count);
  if (auto e = log_.enter(calls::kReadFile, 0, p)) return SysResult<Bytes>::failure(*e);
  return t.done(inner_.readHead(path, count));
}

// The trace shows the three calls the interface stands for: the create, the
// one write of every byte, and the close.
constexpr std::uint32_t kCreateAlways = 2;

SysStatus FaultInjectingFiles::writeWhole(const std::wstring& path, const Bytes& data) {
  const std::string p = toUtf8(path);
  TracedCall create(log_, calls::kCreateFileW, p);
  if (create) {
    create.line().hex("access", DeviceIo::GenericWrite).number("share", 0).number("disposition", kCreateAlways);
    create.line().hex("flags", DeviceIo::AttributeNormal);
  }
  if (log_.enter(calls::kCreateFileW, 0, p)) return SysStatus::failure(syserr::OpenFailed);
  TracedCall write(log_, calls::kWriteFile, p);
  if (write) write.line().number("bytes", data.size()).bytes("data", data.data(), data.size());
  SysStatus result;
  if (log_.enter(calls::kWriteFile, 0, p)) {
    // The file was created (or truncated) before the write failed.
    const SysStatus created = inner_.writeWhole(path, Bytes{});
    result = created.ok ? SysStatus::failure(syserr::WriteFault) : created;
  } else {
    result = inner_.writeWhole(path, data);
  }
  if (!create) return result;
  if (!result.ok && result.error == syserr::OpenFailed) {
    write.cancel();
    return create.done(result);
  }
  create.done();
  create.finish();
  write.show(result);
  write.finish();
  TracedCall(log_, calls::kCloseHandle, p).done();
  return result;
}

SysResult<bool> FaultInjectingFiles::pathIsDirectory(const std::wstring& path) {
  // Asks what GetFileAttributesW asks, so its rules fail this call too.
  const std::string p = toUtf8(path);
  TracedCall t(log_, calls::kPathIsDirectoryW, p);
  if (auto e = log_.enter(calls::kGetFileAttributesW, 0, p)) return SysResult<bool>::failure(*e);
  return t.done(inner_.pathIsDirectory(path), describeDirectory);
}

// --- Registry.

namespace {

class FaultInjectingKey : public Registry::Key {
 public:
  FaultInjectingKey(std::unique_ptr<Registry::Key> inner, CallLog& log, std::string key)
      : inner_(std::move(inner)), log_(log), key_(std::move(key)) {}
  ~FaultInjectingKey() override { TracedCall(log_, calls::kRegCloseKey, key_).done(); }
  SysResult<Registry::Value> enumValue(std::uint32_t index, std::uint32_t nameChars, std::uint32_t dataBytes) override {
    TracedCall t(log_, calls::kRegEnumValueW, key_);
    if (t) t.line().number("index", index).number("nameChars", nameChars).number("dataBytes", dataBytes);
    if (auto e = log_.enter(calls::kRegEnumValueW, 0, key_)) return SysResult<Registry::Value>::failure(*e);
    return t.done(inner_->enumValue(index, nameChars, dataBytes));
  }
  SysStatus deleteValue(const std::wstring& name) override {
    const std::string p = key_ + "\\" + toUtf8(name);
    TracedCall t(log_, calls::kRegDeleteValueW, p);
    if (auto e = log_.enter(calls::kRegDeleteValueW, 0, p)) return SysStatus::failure(*e);
    return t.done(inner_->deleteValue(name));
  }
  SysStatus setBinary(const std::wstring& name, const Bytes& data) override {
    const std::string p = key_ + "\\" + toUtf8(name);
    TracedCall t(log_, calls::kRegSetValueExW, p);
    if (t) t.line().bytes("data", data.data(), data.size());
    if (auto e = log_.enter(calls::kRegSetValueExW, 0, p)) return SysStatus::failure(*e);
    return t.done(inner_->setBinary(name, data));
  }

 private:
  std::unique_ptr<Registry::Key> inner_;
  CallLog& log_;
  std::string key_;
};

}  // namespace

SysResult<std::uint32_t> FaultInjectingRegistry::readDword(const std::wstring& key, const std::wstring& value) {
  const std::string p = toUtf8(key) + "\\" + toUtf8(value);
  TracedCall t(log_, calls::kRegQueryValueExW, p);
  if (auto e = log_.enter(calls::kRegQueryValueExW, 0, p)) return SysResult<std::uint32_t>::failure(*e);
  return t.done(inner_.readDword(key, value), describeDword);
}

SysResult<std::unique_ptr<Registry::Key>> FaultInjectingRegistry::openForWrite(const std::wstring& key) {
  const std::string p = toUtf8(key);
  TracedCall t(log_, calls::kRegOpenKeyExW, p);
  if (auto e = log_.enter(calls::kRegOpenKeyExW, 0, p)) return SysResult<std::unique_ptr<Key>>::failure(*e);
  SysResult<std::unique_ptr<Key>> opened = inner_.openForWrite(key);
  t.show(opened.status());
  if (!opened.ok || !opened.value) return opened;
  opened.value = std::make_unique<FaultInjectingKey>(std::move(opened.value), log_, p);
  return opened;
}

SysResult<std::vector<Registry::Value>> FaultInjectingRegistry::readValues(const std::wstring& key) {
  if (auto e = log_.enter(calls::kRegOpenKeyExW, 0, toUtf8(key))) return {false, *e, {}};
  if (auto e = log_.enter(calls::kRegEnumValueW, 0, toUtf8(key))) return {false, *e, {}};
  return inner_.readValues(key);
}

// --- System information, clock, broadcasts.

SysResult<SystemInfo::Memory> FaultInjectingSystem::memoryStatus() {
  TracedCall t(log_, calls::kGlobalMemoryStatusEx, "");
  if (auto e = log_.enter(calls::kGlobalMemoryStatusEx, 0, "")) return SysResult<Memory>::failure(*e);
  return t.done(inner_.memoryStatus());
}

SysResult<std::wstring> FaultInjectingSystem::windowsDirectory() {
  TracedCall t(log_, calls::kGetSystemWindowsDirectoryW, "");
  if (auto e = log_.enter(calls::kGetSystemWindowsDirectoryW, 0, "")) return SysResult<std::wstring>::failure(*e);
  return t.done(inner_.windowsDirectory(), describePath);
}

SysResult<std::vector<std::uint32_t>> FaultInjectingSystem::diskDriveSignatures() {
  TracedCall t(log_, calls::kWmiQuery, "root\\cimv2");
  if (t) t.line().text("query", "SELECT * FROM Win32_DiskDrive");
  if (auto e = log_.enter(calls::kWmiQuery, 0, "")) return SysResult<std::vector<std::uint32_t>>::failure(*e);
  return t.done(inner_.diskDriveSignatures());
}

SystemTime FaultInjectingClock::systemTime() {
  TracedCall t(log_, calls::kGetSystemTime, "");
  return t.done(inner_.systemTime(), describeTime);
}

std::uint64_t FaultInjectingClock::systemTimeAsFileTime() {
  TracedCall t(log_, calls::kGetSystemTimeAsFileTime, "");
  return t.done(inner_.systemTimeAsFileTime(), describeFileTime);
}

void FaultInjectingClock::sleep(std::uint32_t milliseconds) {
  TracedCall t(log_, calls::kSleep, "");
  if (t) t.line().number("ms", milliseconds);
  log_.count("api", calls::kSleep);
  inner_.sleep(milliseconds);
  t.done();
}

SysResult<std::int32_t> FaultInjectingBroadcast::broadcast(std::uint32_t flags, std::uint32_t message,
                                                           std::uint64_t wParam, const Bytes& record) {
  TracedCall t(log_, calls::kBroadcastSystemMessageW, log_.trace() ? broadcastTarget(record) : std::string());
  if (t) {
    t.line().hex("flags", flags).hex("message", message).hex("wParam", static_cast<std::uint32_t>(wParam));
    t.line().bytes("record", record.data(), record.size());
  }
  if (auto e = log_.enter(calls::kBroadcastSystemMessageW, 0, "")) return SysResult<std::int32_t>::failure(*e, -1);
  return t.done(inner_.broadcast(flags, message, wParam, record), describeBroadcast);
}

}  // namespace vmd::sim
