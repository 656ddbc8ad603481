#include "sim/machine.h"

#include <fstream>
#include <sstream>

#include "controller/codes.h"
#include "sim/state_file.h"

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

std::uint64_t parseNumber64(const json& v) {
  if (v.is_number_unsigned()) return v.get<std::uint64_t>();
  if (v.is_number_integer()) return static_cast<std::uint64_t>(v.get<std::int64_t>());
  if (v.is_boolean()) return v.get<bool>() ? 1 : 0;
  if (v.is_string()) {
    const std::string s = v.get<std::string>();
    try {
      std::size_t used = 0;
      const std::uint64_t n = std::stoull(s, &used, 0);
      if (used == s.size()) return n;
    } catch (...) {
    }
    throw std::runtime_error("not a number: " + s);
  }
  return 0;
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

json Machine::defaultState() { return Machine().toJson(); }

Machine::Machine() : world(World::standard()) { wire(); }

Machine::Machine(const json& state) : world(World::standard()) {
  wire();
  StateFile::read(*this, state);
}

Machine::Machine(Machine&& other) noexcept
    : world(std::move(other.world)),
      stats(std::move(other.stats)),
      seen_(std::move(other.seen_)),
      diskSource_(std::move(other.diskSource_)) {
  wire();
}

Machine& Machine::operator=(Machine&& other) noexcept {
  if (this != &other) {
    world = std::move(other.world);
    stats = std::move(other.stats);
    seen_ = std::move(other.seen_);
    diskSource_ = std::move(other.diskSource_);
    wire();
  }
  return *this;
}

void Machine::wire() {
  host_ = std::make_unique<SimHost>(*this);
  model_ = std::make_unique<ControllerModel>(world.controller, *host_);
}

Machine Machine::load(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return Machine();
  std::stringstream buf;
  buf << in.rdbuf();
  json s;
  try {
    s = json::parse(buf.str());
  } catch (const json::parse_error& e) {
    throw LoadError(path + ": " + e.what());
  }
  try {
    return Machine(s);
  } catch (const LoadError& e) {
    throw LoadError(path + ": " + e.what());
  }
}

void Machine::save(const std::string& path) {
  model_->settle();
  const std::string text = toJson().dump(2) + "\n";
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) throw std::runtime_error("cannot write " + path);
  out << text;
}

json Machine::toJson() const { return StateFile::write(*this); }

void Machine::edit(const std::function<void(json&)>& change) {
  json s = toJson();
  change(s);
  json keptStats = std::move(stats);
  auto keptSeen = std::move(seen_);
  world = World::standard();
  diskSource_.clear();
  StateFile::read(*this, s);
  if (s.contains("stats") && s["stats"].is_object()) keptStats = s["stats"];
  stats = std::move(keptStats);
  seen_ = std::move(keptSeen);
}

std::optional<std::uint32_t> Machine::fault(const std::string& api, std::uint32_t code, const std::string& path) {
  tick();
  count("api", api);
  return matchFault(api, code, path);
}

std::optional<std::uint32_t> Machine::matchFault(const std::string& api, std::uint32_t code, const std::string& path) {
  std::optional<std::uint32_t> hit;
  for (std::size_t i = 0; i < world.faults.size(); ++i) {
    const FaultRule& rule = world.faults[i];
    if (rule.api != api) continue;
    if (rule.code && *rule.code != code) continue;
    if (rule.path && !sameNoCase(*rule.path, path)) continue;
    const std::uint32_t seen = ++seen_[i];
    if (rule.nth && *rule.nth != seen) continue;
    if (!hit) hit = rule.error;
  }
  return hit;
}

void Machine::count(const std::string& group, const std::string& key) {
  if (!stats.is_object()) stats = json::object();
  json& g = stats[group];
  if (!g.is_object()) g = json::object();
  g[key] = g.value(key, 0) + 1;
}

void Machine::note(const std::string& group, const std::string& key, const std::string& value) {
  if (!stats.is_object()) stats = json::object();
  json& g = stats[group];
  if (!g.is_object()) g = json::object();
  g[key] = value;
}

void Machine::sleep(std::uint32_t ms) {
  world.clock.elapsedMs += ms;
  tick();
}

std::uint64_t Machine::fileTime() const { return world.clock.fileTime + world.clock.elapsedMs * 10000; }

void Machine::restart() {
  for (Volume& v : world.volumes) {
    v.heldByOthers = 0;
    v.dismounted = false;
  }
  model_->restart();
}

}  // namespace vmd::sim
