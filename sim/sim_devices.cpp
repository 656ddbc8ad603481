#include "platform/platform.h"
#include "sim/sim_devices.h"

#include "controller/codes.h"
#include "base/text_codec.h"
#include "sim/sim_volumes.h"

namespace vmd::sim {

namespace {

bool sameClass(const InterfaceClass& a, const InterfaceClass& b) {
  if (a.data1 != b.data1 || a.data2 != b.data2 || a.data3 != b.data3) return false;
  for (int i = 0; i < 8; ++i)
    if (a.data4[i] != b.data4[i]) return false;
  return true;
}


}  // namespace

std::optional<std::vector<DeviceSetup::Interface>> SimSetup::presentInterfaces(const InterfaceClass& cls, Scope scope) {
  if (m_.fault("SetupDiGetClassDevsW")) return std::nullopt;
  std::vector<Interface> found;
  if (sameClass(cls, kControllerInterface)) {
    const json& c = m_.state["controller"];
    if (c.value("present", true)) {
      if (c.contains("interfaces")) {  // several controllers, in enumeration order
        std::uint32_t i = 0;
        for (const auto& p : c["interfaces"]) found.push_back({i++, fromUtf8(p.get<std::string>())});
      } else {
        found.push_back({0, fromUtf8(c.value("interfacePath", std::string()))});
      }
    }
  } else if (sameClass(cls, kVolumeInterface)) {
    std::uint32_t i = 0;
    for (const auto& v : m_.state["volumes"]) {
      if (!v.value("present", true)) continue;
      found.push_back({i++, fromUtf8(v.value("interfacePath", v.value("name", std::string())))});
    }
  }
  m_.count("api", "SetupDiEnumDeviceInterfaces");
  if (scope == Scope::FirstOnly && found.size() > 1) found.resize(1);
  return found;
}

DeviceIo::OpenResult SimDeviceIo::open(const std::wstring& wpath, std::uint32_t access, std::uint32_t share,
                                       std::uint32_t disposition, std::uint32_t flags) {
  const std::string path = toUtf8(wpath);
  m_.count("opens", path);
  m_.note("openModes", path,
          "access=" + hex32(access) + " share=" + std::to_string(share) +
              " disposition=" + std::to_string(disposition) + " flags=" + hex32(flags));
  if (auto e = m_.fault("CreateFileW", 0, path)) return {Invalid, *e};
  Opened o{Kind::Controller, path, access};
  const std::string lp = lowerAscii(path);
  const json& c = m_.state["controller"];
  bool isController = c.value("present", true) && lp == lowerAscii(c.value("interfacePath", std::string()));
  if (!isController && c.contains("interfaces"))
    for (const auto& p : c["interfaces"]) isController = isController || lp == lowerAscii(p.get<std::string>());
  const std::string diskPrefix = "\\\\.\\velmorddevport0target";
  if (isController) {
    o.kind = Kind::Controller;
  } else if (lp.rfind(diskPrefix, 0) == 0) {
    const int target = std::atoi(lp.c_str() + diskPrefix.size());
    bool exists = false;
    for (const auto& d : c["disks"]) exists = exists || static_cast<int>(parseNumber(d["index"])) == target;
    if (!exists || !c.value("present", true)) return {Invalid, syserr::FileNotFound};
    o.kind = Kind::DiskDevice;
    o.disk = target;
  } else if (lp == "\\\\.\\mountpointmanager") {
    o.kind = Kind::MountManager;
  } else {
    std::optional<std::string> vol = SimVolumes::volumeForDevicePath(m_, path);
    if (!vol) return {Invalid, syserr::FileNotFound};
    o.kind = Kind::Volume;
    o.volume = *vol;
  }
  const Handle h = next_++;
  open_[h] = o;
  return {h, 0};
}

DeviceIo::ControlResult SimDeviceIo::control(Handle h, std::uint32_t code, const void* in, std::uint32_t inSize,
                                             void* out, std::uint32_t outSize) {
  auto it = open_.find(h);
  if (it == open_.end()) return {false, 0, syserr::InvalidHandle};
  m_.count("requests", hex32(code));
  m_.note("requestSizes", hex32(code), "in=" + std::to_string(inSize) + " out=" + std::to_string(outSize));
  if (auto e = m_.fault("DeviceIoControl", code, it->second.path)) return {false, 0, *e};
  switch (it->second.kind) {
    case Kind::Controller: {
      const ControllerModel::Reply r = controller_.handle(code, static_cast<const std::uint8_t*>(in), inSize,
                                                          static_cast<std::uint8_t*>(out), outSize);
      return {r.error == 0, r.returned, r.error};
    }
    case Kind::Volume:
      return volumeControl(it->second, code, in, inSize, out, outSize);
    case Kind::DiskDevice:
    case Kind::MountManager:
      return {false, 0, 1};  // ERROR_INVALID_FUNCTION until the device learns the code
  }
  return {false, 0, 1};
}

DeviceIo::ControlResult SimDeviceIo::volumeControl(const Opened& o, std::uint32_t code, const void* in,
                                                   std::uint32_t inSize, void* out, std::uint32_t outSize) {
  return SimVolumes::volumeControl(m_, o.volume, code, static_cast<const std::uint8_t*>(in), inSize,
                                   static_cast<std::uint8_t*>(out), outSize);
}

DeviceIo::Status SimDeviceIo::flush(Handle h) {
  auto it = open_.find(h);
  if (it == open_.end()) return {false, syserr::InvalidHandle};
  m_.count("flushes", it->second.path);
  if (auto e = m_.fault("FlushFileBuffers", 0, it->second.path)) return {false, *e};
  return {true, 0};
}

void SimDeviceIo::close(Handle h) {
  auto it = open_.find(h);
  if (it == open_.end()) return;
  m_.count("closes", it->second.path);
  open_.erase(it);
}

}  // namespace vmd::sim
