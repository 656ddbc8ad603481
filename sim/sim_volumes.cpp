#include "sim/sim_volumes.h"

#include "base/drive_letter.h"
#include "base/text_codec.h"
#include "controller/codes.h"
#include "platform/platform.h"

namespace vmd::sim {

namespace {

constexpr std::uint32_t kDirNotEmpty = 145;

std::string withSlash(std::string s) {
  if (s.empty() || s.back() != '\\') s += '\\';
  return s;
}

// "X:", "X:\", "\\.\X:" give the letter; anything else 0.
char letterOf(const std::string& path) {
  std::string_view p = path;
  if (p.rfind("\\\\.\\", 0) == 0 || p.rfind("\\\\?\\", 0) == 0) p.remove_prefix(4);
  return mountPointLetter(p);
}

Drive* findDrive(World& w, char letter) {
  for (Drive& d : w.drives)
    if (asciiUpper(d.letter) == letter) return &d;
  return nullptr;
}

// A letter belongs to a drives[] entry, or to the volume of a controller's
// disk through its "X:\" mount point; other volumes' mount points name paths.
Volume* volumeAtLetter(World& w, char letter) {
  for (Volume& v : w.volumes)
    if (v.present && v.disk)
      for (const std::string& mp : v.mountPoints)
        if (mountPointLetter(mp) == letter) return &v;
  return nullptr;
}

void overlay(VolumeProps& p, const VolumeProps& o) {
  if (o.fileSystem) p.fileSystem = o.fileSystem;
  if (o.label) p.label = o.label;
  if (o.serial) p.serial = o.serial;
  if (o.sectorsPerCluster) p.sectorsPerCluster = o.sectorsPerCluster;
  if (o.bytesPerSector) p.bytesPerSector = o.bytesPerSector;
  if (o.type) p.type = o.type;
  if (o.totalBytes) p.totalBytes = o.totalBytes;
  if (o.freeBytes) p.freeBytes = o.freeBytes;
  if (o.freeToCaller) p.freeToCaller = o.freeToCaller;
  if (o.offline) p.offline = o.offline;
}

// MountedDevices: the 12-byte value of a disk's partition, as the mount-point
// manager records a letter it gives.
void rememberLetter(World& w, char letter, const Volume& v) {
  if (!v.disk) return;
  const SimDisk* d = w.controller.findDisk(*v.disk);
  if (!d || d->directIo) return;
  w.rememberMountedDevice(letter, mountedDeviceData(d->signature.value_or(0)));
}

}  // namespace

Volume* SimVolumes::findVolume(World& w, const std::string& name) {
  const std::string key = lowerAscii(withSlash(name));
  for (Volume& v : w.volumes)
    if (lowerAscii(withSlash(v.name)) == key) return &v;
  return nullptr;
}

std::optional<SimVolumes::View> SimVolumes::resolveRoot(World& w, const std::string& root) {
  if (const char letter = letterOf(root)) {
    if (Drive* d = findDrive(w, letter)) {
      View view{Volume{}, d->type, false};
      if (d->volume)
        if (Volume* v = findVolume(w, *d->volume)) {
          view.volume = *v;
          view.hasVolume = true;
        }
      overlay(view.volume.props, d->overrides);
      if (d->overrides.type) view.type = *d->overrides.type;
      return view;
    }
    if (Volume* v = volumeAtLetter(w, letter)) return View{*v, v->props.type.value_or(drivetype::Fixed), true};
    return std::nullopt;
  }
  auto viewOf = [&](Volume& v) -> View {
    // A volume has its own type, else the type of the drive that shows it, else fixed.
    std::uint32_t type = drivetype::Fixed;
    for (const Drive& d : w.drives)
      if (d.volume && sameNoCase(withSlash(*d.volume), withSlash(v.name))) type = d.type;
    return View{v, v.props.type.value_or(type), true};
  };
  if (Volume* v = findVolume(w, root)) return viewOf(*v);
  const std::string key = lowerAscii(withSlash(root));
  // A volume interface path, as the volume interface class enumerates it.
  for (Volume& v : w.volumes)
    if (!v.interfacePath.empty() && lowerAscii(withSlash(v.interfacePath)) == key) return viewOf(v);
  // The device that holds the volume itself, as a Direct-IO disk's "\\.\VelmoRdDevPort0Target<n>\".
  for (Volume& v : w.volumes)
    if (v.devicePath && lowerAscii(withSlash(*v.devicePath)) == key) return viewOf(v);
  // A folder mount point.
  for (Volume& v : w.volumes)
    for (const std::string& mp : v.mountPoints)
      if (lowerAscii(withSlash(mp)) == key) return viewOf(v);
  return std::nullopt;
}

std::optional<std::string> SimVolumes::volumeForDevicePath(World& w, const std::string& path) {
  if (const char letter = letterOf(path)) {
    if (Drive* d = findDrive(w, letter)) {
      if (!d->volume) return std::nullopt;
      return *d->volume;
    }
    if (Volume* v = volumeAtLetter(w, letter)) return v->name;
    return std::nullopt;
  }
  const std::string key = lowerAscii(path);
  for (Volume& v : w.volumes) {
    if (!v.present) continue;
    if (lowerAscii(v.interfacePath) == key || lowerAscii(v.name) == key ||
        lowerAscii(withSlash(v.name)) == lowerAscii(withSlash(path)))
      return v.name;
  }
  return std::nullopt;
}

SysResult<std::uint32_t> SimVolumes::logicalDrives() {
  std::uint32_t mask = 0;
  for (const Drive& d : m_.world.drives) {
    const char c = asciiUpper(d.letter);
    if (c >= 'A' && c <= 'Z') mask |= 1u << (c - 'A');
  }
  for (const Volume& v : m_.world.volumes)
    if (v.present && v.disk)
      for (const std::string& mp : v.mountPoints)
        if (const char c = letterOf(mp); c && mp.size() <= 3) mask |= 1u << (c - 'A');
  return SysResult<std::uint32_t>::success(mask);
}

SysResult<std::uint32_t> SimVolumes::driveType(const std::wstring& wroot) {
  const std::string root = toUtf8(wroot);
  std::optional<View> v = resolveRoot(m_.world, root);
  if (!v) return SysResult<std::uint32_t>::success(drivetype::NoRootDir);
  return SysResult<std::uint32_t>::success(v->type);
}

SysResult<VolumeService::VolumeInfo> SimVolumes::volumeInformation(const std::wstring& wroot) {
  const std::string root = toUtf8(wroot);
  std::optional<View> v = resolveRoot(m_.world, root);
  if (!v || !v->volume.props.fileSystem || v->volume.props.offline.value_or(false))
    return SysResult<VolumeInfo>::failure(syserr::NotReady);
  const VolumeProps& p = v->volume.props;
  return SysResult<VolumeInfo>::success(
      {fromUtf8(p.label.value_or("")), p.serial.value_or(0), fromUtf8(*p.fileSystem)});
}

SysResult<VolumeService::FreeSpace> SimVolumes::diskFreeSpace(const std::wstring& wroot) {
  const std::string root = toUtf8(wroot);
  std::optional<View> v = resolveRoot(m_.world, root);
  if (!v || !v->volume.props.fileSystem) return SysResult<FreeSpace>::failure(syserr::NotReady);
  const VolumeProps& p = v->volume.props;
  const std::uint32_t spc = p.sectorsPerCluster.value_or(8);
  const std::uint32_t bps = p.bytesPerSector.value_or(512);
  const std::uint64_t cluster = std::uint64_t{spc} * bps;
  const std::uint64_t total = p.totalBytes.value_or(0);
  const std::uint64_t free = p.freeBytes.value_or(0);
  auto clamp = [](std::uint64_t x) { return static_cast<std::uint32_t>(x > 0xFFFFFFFFu ? 0xFFFFFFFFu : x); };
  return SysResult<FreeSpace>::success(
      {spc, bps, clamp(cluster ? free / cluster : 0), clamp(cluster ? total / cluster : 0)});
}

SysResult<VolumeService::FreeSpaceEx> SimVolumes::diskFreeSpaceEx(const std::wstring& wpath) {
  const std::string path = toUtf8(wpath);
  std::optional<View> v = resolveRoot(m_.world, path);
  if (!v && path.size() >= 3 && path[1] == ':') v = resolveRoot(m_.world, path.substr(0, 3));
  if (!v || !v->volume.props.fileSystem) return SysResult<FreeSpaceEx>::failure(syserr::NotReady);
  const VolumeProps& p = v->volume.props;
  const std::uint64_t total = p.totalBytes.value_or(0);
  const std::uint64_t free = p.freeBytes.value_or(0);
  return SysResult<FreeSpaceEx>::success({p.freeToCaller.value_or(free), total, free});
}

SysResult<std::wstring> SimVolumes::volumeNameForMountPoint(const std::wstring& wmp, std::uint32_t chars) {
  using Name = SysResult<std::wstring>;
  const std::string mp = toUtf8(wmp);
  if (mp.empty() || mp.back() != '\\') return Name::failure(syserr::InvalidParameter);
  std::optional<View> v = resolveRoot(m_.world, mp);
  if (!v || !v->hasVolume || v->volume.name.empty()) return Name::failure(syserr::FileNotFound);
  std::wstring name = fromUtf8(v->volume.name);
  if (name.size() + 1 > chars) return Name::failure(206u);  // ERROR_FILENAME_EXCED_RANGE
  return Name::success(std::move(name));
}

SysResult<VolumeService::PathNames> SimVolumes::volumePathNames(const std::wstring& wname, std::uint32_t chars) {
  const std::string name = toUtf8(wname);
  Volume* v = findVolume(m_.world, name);
  if (!v) return SysResult<PathNames>::failure(syserr::FileNotFound);
  std::vector<wchar_t> multi;
  for (const std::string& mp : v->mountPoints) {
    const std::wstring w = fromUtf8(mp);
    multi.insert(multi.end(), w.begin(), w.end());
    multi.push_back(0);
  }
  multi.push_back(0);
  if (multi.size() == 1) multi.push_back(0);  // an empty list still holds two terminators
  const auto needed = static_cast<std::uint32_t>(multi.size());
  if (multi.size() > chars) return SysResult<PathNames>::failure(syserr::MoreData, {{}, needed});
  return SysResult<PathNames>::success({std::move(multi), needed});
}

SysStatus SimVolumes::setVolumeMountPoint(const std::wstring& wmp, const std::wstring& wname) {
  const std::string mp = toUtf8(wmp);
  const std::string name = toUtf8(wname);
  if (mp.empty() || mp.back() != '\\' || name.empty() || name.back() != '\\')
    return SysStatus::failure(syserr::InvalidParameter);
  Volume* v = findVolume(m_.world, name);
  if (!v || !v->present) return SysStatus::failure(syserr::FileNotFound);
  if (const char letter = letterOf(mp)) {
    if (findDrive(m_.world, letter) || volumeAtLetter(m_.world, letter)) return SysStatus::failure(kDirNotEmpty);
    v->mountPoints.push_back(std::string(1, letter) + ":\\");
    if (v->disk) {
      rememberLetter(m_.world, letter, *v);
    } else {
      Drive d;  // a volume of its own shows at a letter through a drive
      d.letter = letter;
      d.volume = v->name;
      m_.world.drives.push_back(d);
    }
    return SysStatus::success();
  }
  for (const Volume& o : m_.world.volumes)
    for (const std::string& p : o.mountPoints)
      if (sameNoCase(withSlash(p), mp)) return SysStatus::failure(kDirNotEmpty);
  v->mountPoints.push_back(mp);
  return SysStatus::success();
}

SysStatus SimVolumes::deleteVolumeMountPoint(const std::wstring& wmp) {
  const std::string mp = toUtf8(wmp);
  if (mp.empty() || mp.back() != '\\') return SysStatus::failure(syserr::InvalidParameter);
  const char letter = letterOf(mp);
  if (letter) {
    if (Volume* v = volumeAtLetter(m_.world, letter)) {
      for (auto it = v->mountPoints.begin(); it != v->mountPoints.end();)
        it = mountPointLetter(*it) == letter ? v->mountPoints.erase(it) : it + 1;
      m_.world.forgetMountedDevice(letter);
      return SysStatus::success();
    }
    for (auto it = m_.world.drives.begin(); it != m_.world.drives.end(); ++it)
      if (asciiUpper(it->letter) == letter && it->volume) {
        if (Volume* v = findVolume(m_.world, *it->volume))
          for (auto mp = v->mountPoints.begin(); mp != v->mountPoints.end();)
            mp = mountPointLetter(*mp) == letter ? v->mountPoints.erase(mp) : mp + 1;
        m_.world.drives.erase(it);
        m_.world.forgetMountedDevice(letter);
        return SysStatus::success();
      }
    return SysStatus::failure(syserr::FileNotFound);
  }
  for (Volume& v : m_.world.volumes)
    for (auto it = v.mountPoints.begin(); it != v.mountPoints.end(); ++it)
      if (sameNoCase(withSlash(*it), mp)) {
        v.mountPoints.erase(it);
        return SysStatus::success();
      }
  return SysStatus::failure(syserr::FileNotFound);
}

SysStatus SimVolumes::setVolumeLabel(const std::wstring& wroot, const std::wstring* label) {
  const std::string root = toUtf8(wroot);
  std::optional<View> view = resolveRoot(m_.world, root);
  if (!view || !view->hasVolume) return SysStatus::failure(syserr::FileNotFound);
  Volume* v = findVolume(m_.world, view->volume.name);
  if (!v || !v->props.fileSystem) return SysStatus::failure(syserr::NotReady);
  if (label && label->size() > 32) return SysStatus::failure(154);  // ERROR_LABEL_TOO_LONG
  v->props.label = label ? toUtf8(*label) : std::string();
  return SysStatus::success();
}

}  // namespace vmd::sim
