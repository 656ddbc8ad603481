#include "snapshot/state_document.h"

#include <algorithm>

#include "base/bytes.h"
#include "base/text_codec.h"
#include "controller/controller.h"
#include "settings/settings_record.h"
#include "sim/fault_layer.h"
#include "sim/fields.h"
#include "sim/machine.h"
#include "sim/record_layout.h"
#include "sim/sim_services.h"

namespace vmd::snapshot {

namespace {

using json = nlohmann::ordered_json;
using sim::hex32;
using sim::letterJson;
using sim::toHex;

constexpr std::uint32_t kRegDword = 4;
constexpr std::uint32_t kAttrDirectory = 0x10;
const char* const kDriveTypes[] = {"unknown", "norootdir", "removable", "fixed", "remote", "cdrom", "ramdisk"};

std::string utf8(const std::wstring& w) { return toUtf8(w); }

json driveType(std::uint32_t t) { return t < std::size(kDriveTypes) ? json(kDriveTypes[t]) : json(t); }

void writeFacts(json& j, const VolumeFacts& f) {
  if (!f.readable) return;
  j["fileSystem"] = utf8(f.fileSystem);
  j["label"] = utf8(f.label);
  j["serial"] = hex32(f.serial);
  if (f.sectorsPerCluster) j["sectorsPerCluster"] = *f.sectorsPerCluster;
  if (f.bytesPerSector) j["bytesPerSector"] = *f.bytesPerSector;
  if (f.totalBytes) j["totalBytes"] = *f.totalBytes;
  if (f.freeBytes) j["freeBytes"] = *f.freeBytes;
  if (f.freeToCaller) j["freeToCaller"] = *f.freeToCaller;
}

json extentsJson(const std::vector<VolumeExtent>& extents) {
  json list = json::array();
  for (const VolumeExtent& e : extents) list.push_back({{"disk", e.disk}, {"offset", e.offset}, {"length", e.length}});
  return list;
}

// The Invisible Memory manager's record by the names the state file gives its
// fields; only the fields the manager's answer holds.
json imJson(const CapturedController& c) {
  if (!c.imSupported) return {{"supported", false}};
  json j = json::object();
  if (!c.imStatus) return j;
  struct Field {
    const char* name;
    std::size_t at;
    bool letter;
  };
  static const Field kFields[] = {
      {"recordSize", 0, false},         {"unitSize", 4, false},          {"firstUnit", 8, false},
      {"endUnit", 12, false},           {"freeUnits", 16, false},        {"state", 20, false},
      {"reserveInEffect", 24, false},   {"quotaInEffect", 28, false},    {"hiberDriveInEffect", 32, true},
      {"reserveConfigured", 36, false}, {"quotaConfigured", 40, false},  {"hiberDriveConfigured", 44, true},
      {"localState", 48, false},        {"hiberInEffect", 52, false},    {"hiberConfigured", 60, false}};
  const Bytes& r = *c.imStatus;
  for (const Field& f : kFields) {
    if (f.at + 4 > r.size()) break;
    const std::uint32_t v = get32(r, f.at);
    j[f.name] = f.letter ? letterJson(v) : json(v);
  }
  // An answer shorter than its record says is that older manager's record.
  if (r.size() < kImRecordSize) j["recordSize"] = static_cast<std::uint32_t>(r.size());
  return j;
}

// The records the simulator keeps for `disk` when it reads it alone.
struct Kept {
  std::optional<Bytes> settings, status;
};
std::optional<Kept> keptBySimulator(const json& disk) {
  try {
    const sim::Machine m(json{{"schema", sim::kSchemaVersion}, {"controller", {{"disks", json::array({disk})}}}});
    const sim::SimDisk& d = m.world.controller.disks.at(0);
    if (d.statusBroken) return std::nullopt;
    return Kept{d.settings, d.status ? d.status : d.settings};
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

json readableOr(const Bytes& record) {
  try {
    return sim::decodeRecord(record);
  } catch (const std::exception&) {
    return nullptr;
  }
}

// The keys of `status` that differ from `settings`, when no key of settings
// is missing from it; nothing otherwise.
std::optional<json> differences(const json& settings, const json& status) {
  json diff = json::object();
  for (auto it = settings.begin(); it != settings.end(); ++it)
    if (!status.contains(it.key())) return std::nullopt;
  for (auto it = status.begin(); it != status.end(); ++it)
    if (!settings.contains(it.key()) || settings[it.key()] != it.value()) diff[it.key()] = it.value();
  return diff;
}

// The disk's records, readably where the simulator gives back exactly the captured bytes.
void writeRecords(json& e, const CapturedDisk& d) {
  const Bytes& settings = *d.settings;
  const Bytes& status = d.status ? *d.status : settings;
  const json readable = readableOr(settings);
  const json readableStatus = status == settings ? json(nullptr) : readableOr(status);
  std::vector<json> tries;
  if (readable.is_object()) {
    json t = e;
    t["settings"] = readable;
    if (status != settings) {
      const std::optional<json> diff =
          readableStatus.is_object() ? differences(readable, readableStatus) : std::nullopt;
      if (diff) t["status"] = *diff;
      else t["statusRecord"] = toHex(status);
    }
    tries.push_back(t);
  }
  json raw = e;
  raw["settingsRecord"] = toHex(settings);
  if (status != settings) raw["statusRecord"] = toHex(status);
  tries.push_back(raw);
  for (const json& t : tries) {
    const std::optional<Kept> kept = keptBySimulator(t);
    if (kept && kept->settings == settings && kept->status == status) {
      e = t;
      return;
    }
  }
  e = raw;
}

json diskJson(const CapturedDisk& d, bool hasVolume) {
  json e = json::object();
  e["index"] = d.info.number;
  e["size"] = static_cast<std::uint64_t>(d.info.sizeBytes);
  if (d.info.hasImage) e["image"] = true;
  if (!d.info.good) e["good"] = false;
  if (d.info.directIo) {
    e["directIo"] = true;
    e["letter"] = letterJson(d.info.letter);
  }
  if (d.systemDiskNumber) e["systemDiskNumber"] = *d.systemDiskNumber;
  if (d.settings && d.settings->size() >= DiskSettingsRecord::Header::Size)
    e["signature"] = hex32(get32(*d.settings, DiskSettingsRecord::Header::Signature));
  if (d.settings) writeRecords(e, d);
  else if (d.status) e["statusRecord"] = toHex(*d.status);
  if (!d.arrived) {
    // The copy keeps the moment of the capture: a disk on its way stays so.
    e["phase"] = "arriving";
    e["dueMs"] = "never";
  } else if (!hasVolume) {
    e["volume"] = false;
  }
  return e;
}

json controllerJson(const Capture& c) {
  const CapturedController& cc = c.controller;
  json j = json::object();
  j["present"] = cc.present;
  if (!cc.present) return j;
  j["interfacePath"] = utf8(cc.interfaces.front());
  if (cc.interfaces.size() > 1) {
    json all = json::array();
    for (const std::wstring& p : cc.interfaces) all.push_back(utf8(p));
    j["interfaces"] = all;
  }
  if (cc.version) {
    j["version"] = {{"word", hex32((*cc.version)[0])}, {"secondWord", hex32((*cc.version)[1])}};
    j["variantCode"] = (*cc.version)[2];
  }
  j["im"] = imJson(cc);
  // Whose letter a Direct-IO disk's is, when another device has taken one.
  bool taken = false;
  for (const CapturedDisk& d : cc.disks)
    taken = taken || (d.info.directIo && d.info.letter && d.letterOwner != std::optional<std::uint8_t>(d.info.number));
  if (taken) {
    json owners = json::object();
    for (const CapturedDisk& d : cc.disks)
      if (d.info.directIo && d.info.letter)
        owners[std::string(1, static_cast<char>(asciiUpper(d.info.letter)))] =
            d.letterOwner ? json(*d.letterOwner) : json(nullptr);
    j["dosNameOwners"] = owners;
  }
  json disks = json::array();
  for (const CapturedDisk& d : cc.disks) {
    const bool hasVolume = std::any_of(c.volumes.begin(), c.volumes.end(), [&](const CapturedVolume& v) {
      return v.disk && *v.disk == d.info.number;
    });
    disks.push_back(diskJson(d, hasVolume));
  }
  j["disks"] = disks;
  return j;
}

// Whether the simulator makes a readable volume of this disk's records: its
// format section names a file system the system reads.
bool recordsReadableVolume(const Capture& c, std::uint8_t index) {
  for (const CapturedDisk& d : c.controller.disks) {
    if (d.info.number != index || !d.settings) continue;
    const DiskSettingsRecord::Section format = DiskSettingsRecord::format(*d.settings);
    if (!format.present()) return false;
    const std::uint8_t code = get8(*d.settings, format.offset + DiskSettingsRecord::Format::FileSystem);
    return code == 2 || code == 18 || code == 19;
  }
  return false;
}

json volumeJson(const Capture& c, const CapturedVolume& v) {
  json j = json::object();
  if (v.disk) j["disk"] = *v.disk;
  if (!v.name.empty()) j["name"] = utf8(v.name);
  if (!v.interfacePath.empty()) j["interfacePath"] = utf8(v.interfacePath);
  json mps = json::array();
  for (const std::wstring& mp : v.mountPoints) mps.push_back(utf8(mp));
  j["mountPoints"] = mps;
  writeFacts(j, v.facts);
  j["extents"] = extentsJson(v.extents);
  // A disk's volume the system cannot read, though its records name a file
  // system the copy would read, answers nothing in the copy either.
  if (v.offline || (v.disk && !v.facts.readable && recordsReadableVolume(c, *v.disk))) j["offline"] = true;
  if (v.devicePath) j["devicePath"] = utf8(*v.devicePath);
  return j;
}

json registryValue(const Registry::Value& v) {
  if (v.type == kRegDword && v.data.size() == 4) return {{"type", "REG_DWORD"}, {"data", get32(v.data, 0)}};
  return {{"type", "REG_BINARY"}, {"data", toHex(v.data)}};
}

}  // namespace

json stateDocument(const Capture& c) {
  json doc = json::object();
  doc["schema"] = sim::kSchemaVersion;
  json host = json::object();
  host["administrator"] = c.administrator;
  if (c.windowsDirectory) host["windowsDirectory"] = utf8(*c.windowsDirectory);
  if (c.memory) host["memory"] = {{"totalPhys", c.memory->totalPhys}, {"availPhys", c.memory->availPhys}};
  if (c.autoMount) host["autoMount"] = *c.autoMount;
  doc["host"] = host;
  doc["clock"] = {{"fileTime", c.fileTime}, {"elapsedMs", 0}};
  doc["controller"] = controllerJson(c);

  json drives = json::array();
  for (const CapturedDrive& d : c.drives) {
    json j = {{"letter", std::string(1, static_cast<char>(d.letter))}, {"type", driveType(d.type)}};
    if (d.volume) j["volume"] = utf8(*d.volume);
    else writeFacts(j, d.facts);
    if (d.rootAttributes != kAttrDirectory) j["rootAttributes"] = d.rootAttributes;
    drives.push_back(j);
  }
  doc["drives"] = drives;
  json volumes = json::array();
  for (const CapturedVolume& v : c.volumes) volumes.push_back(volumeJson(c, v));
  doc["volumes"] = volumes;

  json registry = json::object();
  if (c.mountedDevices) {
    json values = json::object();
    for (const Registry::Value& v : *c.mountedDevices) values[utf8(v.name)] = registryValue(v);
    registry["SYSTEM\\MountedDevices"] = values;
  }
  for (const RegistryDword& r : c.otherManagers)
    registry[utf8(r.key)][utf8(r.value)] = {{"type", "REG_DWORD"}, {"data", r.data}};
  doc["registry"] = registry;

  json files = json::array();
  for (const CapturedFile& f : c.files) {
    json j = {{"path", utf8(f.path)}, {"attributes", f.attributes}};
    if (f.attributes & kAttrDirectory) j["directory"] = true;
    if (f.size) j["size"] = *f.size;
    if (f.head) j["head"] = toHex(*f.head);
    files.push_back(j);
  }
  doc["files"] = files;
  if (c.wmiSignatures) doc["wmi"] = {{"signatures", *c.wmiSignatures}};
  return doc;
}

}  // namespace vmd::snapshot
