#include "sim/sim_devices.h"

#include <cstring>

#include "base/text_codec.h"
#include "controller/codes.h"
#include "platform/platform.h"
#include "sim/sim_services.h"
#include "sim/sim_volumes.h"

namespace vmd::sim {

namespace {

constexpr std::uint32_t kNotLocked = 158;

bool sameClass(const InterfaceClass& a, const InterfaceClass& b) {
  if (a.data1 != b.data1 || a.data2 != b.data2 || a.data3 != b.data3) return false;
  for (int i = 0; i < 8; ++i)
    if (a.data4[i] != b.data4[i]) return false;
  return true;
}

bool isControllerPath(const ControllerState& c, const std::string& path) {
  if (!c.present) return false;
  const std::string lp = lowerAscii(path);
  if (lp == lowerAscii(c.interfacePath)) return true;
  for (const std::string& p : c.interfaces)
    if (lp == lowerAscii(p)) return true;
  return false;
}

}  // namespace

ControllerModel::Reply ControllerFaults::handle(std::uint32_t code, const std::uint8_t* in, std::uint32_t inSize,
                                                std::uint8_t* out, std::uint32_t outSize) {
  m_.tick();
  const ControllerState& c = m_.world.controller;
  const std::string path = c.interfaces.empty() ? c.interfacePath : c.interfaces.front();
  if (auto e = m_.matchFault(calls::kDeviceIoControl, code, path)) return {0, *e, true};
  return model_.handle(code, in, inSize, out, outSize);
}

SysResult<std::vector<DeviceSetup::Interface>> SimSetup::presentInterfaces(const InterfaceClass& cls, Scope scope) {
  std::vector<Interface> found;
  if (sameClass(cls, kControllerInterface)) {
    const ControllerState& c = m_.world.controller;
    if (c.present) {
      if (!c.interfaces.empty()) {  // several controllers, in enumeration order
        std::uint32_t i = 0;
        for (const std::string& p : c.interfaces) found.push_back({i++, fromUtf8(p)});
      } else {
        found.push_back({0, fromUtf8(c.interfacePath)});
      }
    }
  } else if (sameClass(cls, kVolumeInterface)) {
    std::uint32_t i = 0;
    for (const Volume& v : m_.world.volumes) {
      if (!v.present) continue;
      found.push_back({i++, fromUtf8(v.interfacePath.empty() ? v.name : v.interfacePath)});
    }
  }
  if (scope == Scope::FirstOnly && found.size() > 1) found.resize(1);
  return SysResult<std::vector<Interface>>::success(std::move(found));
}

SysResult<DeviceIo::Handle> SimDeviceIo::open(const std::wstring& wpath, std::uint32_t access, std::uint32_t share,
                                              std::uint32_t disposition, std::uint32_t flags) {
  const std::string path = toUtf8(wpath);
  Opened o{Kind::Controller, path, access};
  const std::string lp = lowerAscii(path);
  const ControllerState& c = m_.world.controller;
  const std::string diskPrefix = "\\\\.\\velmorddevport0target";
  if (isControllerPath(c, path)) {
    o.kind = Kind::Controller;
  } else if (lp.rfind(diskPrefix, 0) == 0) {
    // A disk's own device exists once the disk has arrived.
    const std::string number = lp.substr(diskPrefix.size());
    const SimDisk* d = nullptr;
    if (!number.empty() && number.size() <= 3 && number.find_first_not_of("0123456789") == std::string::npos)
      d = c.findDisk(static_cast<std::uint32_t>(std::stoul(number)));
    if (!d || !c.present || !d->deviceVisible())
      return SysResult<Handle>::failure(syserr::FileNotFound, Invalid);
    o.kind = Kind::DiskDevice;
    o.disk = d->index;
    for (const Volume& v : m_.world.volumes)
      if (v.disk && *v.disk == d->index && d->directIo) o.volume = v.name;
  } else if (lp == "\\\\.\\mountpointmanager") {
    o.kind = Kind::MountManager;
  } else if (const FileEntry* f = SimFiles::findFile(m_.world, path); f && !f->directory) {
    o.kind = Kind::File;
  } else {
    std::optional<std::string> vol = SimVolumes::volumeForDevicePath(m_.world, path);
    if (!vol) return SysResult<Handle>::failure(syserr::FileNotFound, Invalid);
    o.kind = Kind::Volume;
    o.volume = *vol;
    // A dismounted volume mounts again when it is next opened.
    if (Volume* v = SimVolumes::findVolume(m_.world, *vol)) v->dismounted = false;
  }
  const Handle h = next_++;
  open_[h] = o;
  return SysResult<Handle>::success(h);
}

SimDeviceIo::Reply SimDeviceIo::control(Handle h, std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                                        std::uint32_t outSize) {
  auto it = open_.find(h);
  if (it == open_.end()) return Reply::failure(syserr::InvalidHandle);
  const auto* bin = static_cast<const std::uint8_t*>(in);
  auto* bout = static_cast<std::uint8_t*>(out);
  if (it->second.kind == Kind::Controller) {
    const ControllerModel::Reply r = m_.controller().handle(code, bin, inSize, bout, outSize);
    return r.ok() ? Reply::success(r.returned) : Reply::failure(r.error, r.returned);
  }
  switch (it->second.kind) {
    case Kind::Volume:
      return volumeControl(it->second, code, bin, inSize, bout, outSize);
    case Kind::DiskDevice:
      if (!it->second.volume.empty() && code != ioctl::DiskGetPartitionInfo)
        return volumeControl(it->second, code, bin, inSize, bout, outSize);
      return diskControl(it->second, code, bout, outSize);
    case Kind::MountManager:
      if (code == ioctl::MountmgrQueryAutoMount) {
        if (!bout || outSize < 4) return Reply::failure(syserr::InsufficientBuffer);
        put32(bout, m_.world.host.autoMount ? 1 : 0);
        return Reply::success(4);
      }
      if (code == ioctl::MountmgrSetAutoMount) {
        if (!bin || inSize < 4) return Reply::failure(syserr::InvalidParameter);
        m_.world.host.autoMount = get32(bin) != 0;
        return Reply::success(0);
      }
      return Reply::failure(syserr::InvalidFunction);
    case Kind::File:  // a file is no device
    case Kind::Controller:
      break;
  }
  return Reply::failure(syserr::InvalidFunction);
}

SimDeviceIo::Reply SimDeviceIo::diskControl(Opened& o, std::uint32_t code, std::uint8_t* out,
                                            std::uint32_t outSize) {
  if (code != ioctl::DiskGetPartitionInfo) return Reply::failure(syserr::InvalidFunction);
  const SimDisk* d = m_.world.controller.findDisk(static_cast<std::uint32_t>(o.disk));
  if (!d) return Reply::failure(syserr::FileNotFound);
  if (!out || outSize < 32) return Reply::failure(syserr::InsufficientBuffer);
  // PARTITION_INFORMATION: the one partition of a disk with a master boot record.
  std::memset(out, 0, 32);
  put64(out, kPartitionOffset);
  put64(out + 8, d->size > kPartitionOffset ? d->size - kPartitionOffset : 0);
  put32(out + 16, 63);  // hidden sectors
  put32(out + 20, 1);   // partition number
  out[24] = d->directIo ? 0x06 : 0x0C;  // partition type
  out[25] = 1;  // boot indicator
  out[26] = 1;  // recognized
  return Reply::success(32);
}

SimDeviceIo::Reply SimDeviceIo::volumeControl(Opened& o, std::uint32_t code, const std::uint8_t*, std::uint32_t,
                                              std::uint8_t* out, std::uint32_t outSize) {
  Volume* v = SimVolumes::findVolume(m_.world, o.volume);
  if (!v) return Reply::failure(syserr::FileNotFound);
  switch (code) {
    case ioctl::VolumeGetVolumeDiskExtents: {
      if (v->props.offline.value_or(false)) return Reply::failure(syserr::NotReady);
      const std::vector<Extent>& extents = v->extents;
      const std::size_t need = 8 + 24 * extents.size();
      if (!out || outSize < 32) return Reply::failure(syserr::InsufficientBuffer);
      put32(out, static_cast<std::uint32_t>(extents.size()));
      put32(out + 4, 0);
      if (outSize < need) return Reply::failure(syserr::MoreData, 32);
      for (std::size_t i = 0; i < extents.size(); ++i) {
        std::uint8_t* e = out + 8 + 24 * i;
        put32(e, extents[i].disk);
        put32(e + 4, 0);
        put64(e + 8, extents[i].offset);
        put64(e + 16, extents[i].length);
      }
      return Reply::success(static_cast<std::uint32_t>(need));
    }
    case ioctl::FsctlLockVolume: {
      // Handles of other processes, or a lock of another handle, keep it from being locked.
      if (v->heldByOthers > 0) return Reply::failure(syserr::AccessDenied);
      for (const auto& [h, other] : open_)
        if (&other != &o && other.locked && sameNoCase(other.volume, o.volume))
          return Reply::failure(syserr::AccessDenied);
      o.locked = true;
      return Reply::success(0);
    }
    case ioctl::FsctlUnlockVolume:
      if (!o.locked) return Reply::failure(kNotLocked);
      o.locked = false;
      return Reply::success(0);
    case ioctl::FsctlDismountVolume:
      // Every handle others hold becomes invalid.
      v->heldByOthers = 0;
      v->dismounted = true;
      return Reply::success(0);
    case ioctl::DiskGetPartitionInfo: {
      if (!out || outSize < 32) return Reply::failure(syserr::InsufficientBuffer);
      std::memset(out, 0, 32);
      put64(out, kPartitionOffset);
      put64(out + 8, v->props.totalBytes.value_or(0));
      put32(out + 20, 1);
      out[26] = 1;
      return Reply::success(32);
    }
    default:
      return Reply::failure(syserr::InvalidFunction);
  }
}

SysStatus SimDeviceIo::flush(Handle h) {
  auto it = open_.find(h);
  if (it == open_.end()) return SysStatus::failure(syserr::InvalidHandle);
  if (!(it->second.access & GenericWrite)) return SysStatus::failure(syserr::AccessDenied);
  return SysStatus::success();
}

void SimDeviceIo::close(Handle h) {
  auto it = open_.find(h);
  if (it == open_.end()) return;
  open_.erase(it);  // a lock goes with its handle
}

}  // namespace vmd::sim
