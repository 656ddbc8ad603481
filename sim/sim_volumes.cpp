#include "platform/platform.h"
#include "sim/sim_volumes.h"

#include "controller/codes.h"
#include "base/text_codec.h"

namespace vmd::sim {

namespace {

char upperLetter(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 32) : c; }

std::string withSlash(std::string s) {
  if (s.empty() || s.back() != '\\') s += '\\';
  return s;
}

json* findDrive(Machine& m, char letter) {
  for (auto& d : m.state["drives"])
    if (!d.value("letter", std::string()).empty() && upperLetter(d["letter"].get<std::string>()[0]) == upperLetter(letter))
      return &d;
  return nullptr;
}

// "X:", "X:\", "\\.\X:" give the letter; anything else 0.
char letterOf(const std::string& path) {
  std::string p = path;
  if (p.rfind("\\\\.\\", 0) == 0 || p.rfind("\\\\?\\", 0) == 0) p = p.substr(4);
  if (p.size() >= 2 && p[1] == ':' && (p.size() == 2 || (p.size() == 3 && p[2] == '\\'))) {
    const char c = upperLetter(p[0]);
    if (c >= 'A' && c <= 'Z') return c;
  }
  return 0;
}

}  // namespace

std::uint32_t driveTypeCode(const json& t) {
  if (t.is_number()) return t.get<std::uint32_t>();
  const std::string s = lowerAscii(t.get<std::string>());
  if (s == "removable") return drivetype::Removable;
  if (s == "fixed") return drivetype::Fixed;
  if (s == "remote") return drivetype::Remote;
  if (s == "cdrom") return drivetype::CdRom;
  if (s == "ramdisk") return drivetype::RamDisk;
  return drivetype::Unknown;
}

json* SimVolumes::findVolume(Machine& m, const std::string& name) {
  const std::string key = lowerAscii(withSlash(name));
  for (auto& v : m.state["volumes"])
    if (lowerAscii(withSlash(v.value("name", std::string()))) == key) return &v;
  return nullptr;
}

std::optional<json> SimVolumes::resolveRoot(Machine& m, const std::string& root) {
  if (const char letter = letterOf(root)) {
    json* d = findDrive(m, letter);
    if (!d) return std::nullopt;
    json merged = json::object();
    if (d->contains("volume"))
      if (json* v = findVolume(m, (*d)["volume"].get<std::string>())) merged = *v;
    for (auto it = d->begin(); it != d->end(); ++it) merged[it.key()] = it.value();
    return merged;
  }
  if (json* v = findVolume(m, root)) return *v;
  // A volume interface path, as the volume interface class enumerates it.
  const std::string asInterface = lowerAscii(withSlash(root));
  for (auto& v : m.state["volumes"])
    if (v.contains("interfacePath") && lowerAscii(withSlash(v["interfacePath"].get<std::string>())) == asInterface)
      return v;
  // The device that holds the volume itself, as a Direct-IO disk's
  // "\\.\VelmoRdDevPort0Target<n>\".
  const std::string asDevice = lowerAscii(withSlash(root));
  for (auto& v : m.state["volumes"])
    if (v.contains("devicePath") && lowerAscii(withSlash(v["devicePath"].get<std::string>())) == asDevice) return v;
  // A folder mount point.
  const std::string key = lowerAscii(withSlash(root));
  for (auto& v : m.state["volumes"])
    for (const auto& mp : v.value("mountPoints", json::array()))
      if (lowerAscii(withSlash(mp.get<std::string>())) == key) return v;
  return std::nullopt;
}

std::optional<std::string> SimVolumes::volumeForDevicePath(Machine& m, const std::string& path) {
  if (const char letter = letterOf(path)) {
    json* d = findDrive(m, letter);
    if (!d || !d->contains("volume")) return std::nullopt;
    return (*d)["volume"].get<std::string>();
  }
  const std::string key = lowerAscii(path);
  for (auto& v : m.state["volumes"]) {
    if (!v.value("present", true)) continue;
    const std::string name = v.value("name", std::string());
    if (lowerAscii(v.value("interfacePath", std::string())) == key || lowerAscii(name) == key ||
        lowerAscii(withSlash(name)) == lowerAscii(withSlash(path)))
      return name;
  }
  return std::nullopt;
}

DeviceIo::ControlResult SimVolumes::volumeControl(Machine& m, const std::string& volume, std::uint32_t code,
                                                  const std::uint8_t*, std::uint32_t, std::uint8_t* out,
                                                  std::uint32_t outSize) {
  json* v = findVolume(m, volume);
  if (!v) return {false, 0, syserr::FileNotFound};
  if (code == ioctl::VolumeGetVolumeDiskExtents) {
    if (v->value("offline", false)) return {false, 0, syserr::NotReady};
    const json& extents = (*v)["extents"];
    const std::size_t need = 8 + 24 * extents.size();
    if (outSize < 32) return {false, 0, syserr::InsufficientBuffer};
    putLe32(out, static_cast<std::uint32_t>(extents.size()));
    putLe32(out + 4, 0);
    if (outSize < need) return {false, 32, syserr::MoreData};
    for (std::size_t i = 0; i < extents.size(); ++i) {
      std::uint8_t* e = out + 8 + 24 * i;
      putLe32(e, parseNumber(extents[i]["disk"]));
      putLe32(e + 4, 0);
      putLe64(e + 8, extents[i].value("offset", std::uint64_t{0}));
      putLe64(e + 16, extents[i].value("length", std::uint64_t{0}));
    }
    return {true, static_cast<std::uint32_t>(need), 0};
  }
  return {false, 0, 1};
}

std::uint32_t SimVolumes::logicalDrives() {
  if (m_.fault("GetLogicalDrives")) return 0;
  std::uint32_t mask = 0;
  for (const auto& d : m_.state["drives"]) {
    const std::string l = d.value("letter", std::string());
    if (l.empty()) continue;
    const char c = upperLetter(l[0]);
    if (c >= 'A' && c <= 'Z') mask |= 1u << (c - 'A');
  }
  return mask;
}

std::uint32_t SimVolumes::driveType(const std::wstring& wroot) {
  const std::string root = toUtf8(wroot);
  if (m_.fault("GetDriveTypeW", 0, root)) return drivetype::Unknown;
  if (const char letter = letterOf(root)) {
    json* d = findDrive(m_, letter);
    return d ? driveTypeCode(d->value("type", json("fixed"))) : drivetype::NoRootDir;
  }
  std::optional<json> v = resolveRoot(m_, root);
  if (!v) return drivetype::NoRootDir;
  if (v->contains("type")) return driveTypeCode((*v)["type"]);
  // A volume has the type of the drive that shows it, else it is fixed.
  const std::string name = lowerAscii(withSlash(v->value("name", std::string())));
  for (const auto& d : m_.state["drives"])
    if (d.contains("volume") && lowerAscii(withSlash(d["volume"].get<std::string>())) == name && d.contains("type"))
      return driveTypeCode(d["type"]);
  return drivetype::Fixed;
}

VolumeService::VolumeInfo SimVolumes::volumeInformation(const std::wstring& wroot) {
  const std::string root = toUtf8(wroot);
  if (auto e = m_.fault("GetVolumeInformationW", 0, root)) return {false, *e, L"", 0, L""};
  std::optional<json> v = resolveRoot(m_, root);
  if (!v || !v->contains("fileSystem") || v->value("offline", false)) return {false, syserr::NotReady, L"", 0, L""};
  return {true, 0, fromUtf8(v->value("label", std::string())), parseNumber(v->value("serial", json(0))),
          fromUtf8((*v)["fileSystem"].get<std::string>())};
}

VolumeService::FreeSpace SimVolumes::diskFreeSpace(const std::wstring& wroot) {
  const std::string root = toUtf8(wroot);
  if (auto e = m_.fault("GetDiskFreeSpaceW", 0, root)) return {false, *e, 0, 0, 0, 0};
  std::optional<json> v = resolveRoot(m_, root);
  if (!v || !v->contains("fileSystem")) return {false, syserr::NotReady, 0, 0, 0, 0};
  const std::uint32_t spc = parseNumber(v->value("sectorsPerCluster", json(8)));
  const std::uint32_t bps = parseNumber(v->value("bytesPerSector", json(512)));
  const std::uint64_t cluster = std::uint64_t{spc} * bps;
  const std::uint64_t total = v->value("totalBytes", std::uint64_t{0});
  const std::uint64_t free = v->value("freeBytes", std::uint64_t{0});
  auto clamp = [](std::uint64_t x) { return static_cast<std::uint32_t>(x > 0xFFFFFFFFu ? 0xFFFFFFFFu : x); };
  return {true, 0, spc, bps, clamp(cluster ? free / cluster : 0), clamp(cluster ? total / cluster : 0)};
}

VolumeService::FreeSpaceEx SimVolumes::diskFreeSpaceEx(const std::wstring& wpath) {
  const std::string path = toUtf8(wpath);
  if (auto e = m_.fault("GetDiskFreeSpaceExW", 0, path)) return {false, *e, 0, 0, 0};
  std::optional<json> v = resolveRoot(m_, path);
  if (!v && path.size() >= 3 && path[1] == ':') v = resolveRoot(m_, path.substr(0, 3));
  if (!v || !v->contains("fileSystem")) return {false, syserr::NotReady, 0, 0, 0};
  const std::uint64_t total = v->value("totalBytes", std::uint64_t{0});
  const std::uint64_t free = v->value("freeBytes", std::uint64_t{0});
  return {true, 0, v->value("freeToCaller", free), total, free};
}

VolumeService::Text SimVolumes::volumeNameForMountPoint(const std::wstring& wmp, std::uint32_t chars) {
  const std::string mp = toUtf8(wmp);
  if (auto e = m_.fault("GetVolumeNameForVolumeMountPointW", 0, mp)) return {false, *e, L""};
  if (mp.empty() || mp.back() != '\\') return {false, syserr::InvalidParameter, L""};
  std::optional<json> v = resolveRoot(m_, mp);
  if (!v || !v->contains("name")) return {false, syserr::FileNotFound, L""};
  std::wstring name = fromUtf8((*v)["name"].get<std::string>());
  if (name.size() + 1 > chars) return {false, 206u, L""};
  return {true, 0, name};
}

VolumeService::PathNames SimVolumes::volumePathNames(const std::wstring& wname, std::uint32_t chars) {
  const std::string name = toUtf8(wname);
  if (auto e = m_.fault("GetVolumePathNamesForVolumeNameW", 0, name)) return {false, *e, {}, 0};
  json* v = findVolume(m_, name);
  if (!v) return {false, syserr::FileNotFound, {}, 0};
  std::vector<wchar_t> multi;
  for (const auto& mp : v->value("mountPoints", json::array())) {
    const std::wstring w = fromUtf8(mp.get<std::string>());
    multi.insert(multi.end(), w.begin(), w.end());
    multi.push_back(0);
  }
  multi.push_back(0);
  if (multi.size() == 1) multi.push_back(0);  // an empty list still holds two terminators
  if (multi.size() > chars) return {false, syserr::MoreData, {}, static_cast<std::uint32_t>(multi.size())};
  return {true, 0, multi, static_cast<std::uint32_t>(multi.size())};
}

SysStatus SimVolumes::setVolumeMountPoint(const std::wstring& wmp, const std::wstring& wname) {
  const std::string mp = toUtf8(wmp);
  if (auto e = m_.fault("SetVolumeMountPointW", 0, mp)) return {false, *e};
  return {false, syserr::NotSupported};
}

SysStatus SimVolumes::deleteVolumeMountPoint(const std::wstring& wmp) {
  const std::string mp = toUtf8(wmp);
  if (auto e = m_.fault("DeleteVolumeMountPointW", 0, mp)) return {false, *e};
  return {false, syserr::NotSupported};
}

SysStatus SimVolumes::setVolumeLabel(const std::wstring& wroot, const std::wstring*) {
  const std::string root = toUtf8(wroot);
  if (auto e = m_.fault("SetVolumeLabelW", 0, root)) return {false, *e};
  return {false, syserr::NotSupported};
}

}  // namespace vmd::sim
