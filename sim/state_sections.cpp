#include "sim/state_sections.h"

#include "sim/sim_services.h"

namespace vmd::sim {

namespace {

constexpr std::uint32_t kComFailed = 0x80004005u;  // E_FAIL, what CoInitialize answered for host.comFails

FaultRule flagRule(const char* api, std::optional<std::string> path = std::nullopt, std::uint32_t error = 31) {
  FaultRule r;
  r.api = api;
  r.path = std::move(path);
  r.error = error;
  return r;
}

// A rule as a state file writes it, for messages.
std::string ruleText(const FaultRule& r) {
  std::string t = "{\"api\": \"" + r.api + "\"";
  if (r.path) t += ", \"path\": " + json(*r.path).dump();
  if (r.error != 31) t += ", \"error\": \"" + hex32(r.error) + "\"";
  return t + "}";
}

const char* const kTypeNames[] = {"unknown", "norootdir", "removable", "fixed", "remote", "cdrom", "ramdisk"};

std::uint32_t driveTypeAt(const json& v, const std::string& place) {
  if (v.is_string()) {
    const std::string s = lowerAscii(v.get<std::string>());
    for (std::uint32_t i = 0; i < 7; ++i)
      if (s == kTypeNames[i]) return i;
    Fields::fail(place, "\"" + v.get<std::string>() + "\" is not a drive type (fixed, removable, remote, cdrom, ramdisk)");
  }
  return static_cast<std::uint32_t>(numberAt(v, place));
}

json driveTypeJson(std::uint32_t t) { return t < 7 ? json(kTypeNames[t]) : json(t); }

void readProps(Fields& f, VolumeProps& p) {
  if (f.has("fileSystem")) p.fileSystem = f.text("fileSystem", "");
  if (f.has("label")) p.label = f.text("label", "");
  if (f.has("serial")) p.serial = f.u32("serial", 0);
  if (f.has("sectorsPerCluster")) p.sectorsPerCluster = f.u32("sectorsPerCluster", 0);
  if (f.has("bytesPerSector")) p.bytesPerSector = f.u32("bytesPerSector", 0);
  if (f.has("type")) p.type = driveTypeAt(f.raw("type"), f.place("type"));
  if (f.has("totalBytes")) p.totalBytes = f.u64("totalBytes", 0);
  if (f.has("freeBytes")) p.freeBytes = f.u64("freeBytes", 0);
  if (f.has("freeToCaller")) p.freeToCaller = f.u64("freeToCaller", 0);
  if (f.has("offline")) p.offline = f.flag("offline", false);
}

void writeProps(json& j, const VolumeProps& p) {
  if (p.fileSystem) j["fileSystem"] = *p.fileSystem;
  if (p.label) j["label"] = *p.label;
  if (p.serial) j["serial"] = hex32(*p.serial);
  if (p.sectorsPerCluster) j["sectorsPerCluster"] = *p.sectorsPerCluster;
  if (p.bytesPerSector) j["bytesPerSector"] = *p.bytesPerSector;
  if (p.type) j["type"] = driveTypeJson(*p.type);
  if (p.totalBytes) j["totalBytes"] = *p.totalBytes;
  if (p.freeBytes) j["freeBytes"] = *p.freeBytes;
  if (p.freeToCaller) j["freeToCaller"] = *p.freeToCaller;
  if (p.offline) j["offline"] = *p.offline;
}

RegValue readRegValue(const std::string& name, const json& j, const std::string& place) {
  RegValue r;
  r.name = name;
  auto dword = [&](const json& d, const std::string& at) {
    const std::uint32_t n = static_cast<std::uint32_t>(numberAt(d, at));
    r.data = {static_cast<std::uint8_t>(n), static_cast<std::uint8_t>(n >> 8), static_cast<std::uint8_t>(n >> 16),
              static_cast<std::uint8_t>(n >> 24)};
  };
  if (!j.is_object()) {
    dword(j, place);
    return r;
  }
  Fields f(j, place);
  const std::string type = f.text("type", "REG_DWORD");
  if (type == "REG_DWORD") {
    r.type = kRegDword;
    if (!f.has("data")) Fields::fail(f.place("data"), "a REG_DWORD value needs its data");
    dword(f.raw("data"), f.place("data"));
  } else if (type == "REG_BINARY") {
    r.type = kRegBinary;
    r.data = f.has("data") ? hexAt(f.raw("data"), f.place("data")) : ByteString{};
  } else {
    Fields::fail(f.place("type"), "\"" + type + "\" is not a value type (REG_DWORD, REG_BINARY)");
  }
  f.done();
  return r;
}

json writeRegValue(const RegValue& r) {
  if (r.type == kRegDword && r.data.size() == 4)
    return {{"type", "REG_DWORD"}, {"data", get32(r.data.data())}};
  return {{"type", "REG_BINARY"}, {"data", toHex(r.data)}};
}

}  // namespace

void readVolume(const json& j, const std::string& where, Volume& v) {
  Fields f(j, where);
  if (f.has("name")) v.name = f.text("name", "");
  if (f.has("interfacePath")) v.interfacePath = f.text("interfacePath", "");
  if (f.has("mountPoints")) {
    const json& mps = f.raw("mountPoints");
    if (!mps.is_array()) Fields::fail(f.place("mountPoints"), "is not a list");
    v.mountPoints.clear();
    for (std::size_t i = 0; i < mps.size(); ++i)
      v.mountPoints.push_back(textAt(mps[i], f.place("mountPoints") + "[" + std::to_string(i) + "]"));
  }
  readProps(f, v.props);
  if (f.has("extents")) {
    const json& ex = f.raw("extents");
    if (!ex.is_array()) Fields::fail(f.place("extents"), "is not a list");
    v.extents.clear();
    for (std::size_t i = 0; i < ex.size(); ++i) {
      Fields e(ex[i], f.place("extents") + "[" + std::to_string(i) + "]");
      Extent x;
      x.disk = e.u32("disk", 0);
      x.offset = e.u64("offset", 0);
      x.length = e.u64("length", 0);
      e.done();
      v.extents.push_back(x);
    }
  }
  v.present = f.flag("present", v.present);
  if (f.has("devicePath")) v.devicePath = f.text("devicePath", "");
  if (f.has("disk")) {
    const std::uint64_t d = f.u64("disk", 0);
    if (d > 127) Fields::fail(f.place("disk"), std::to_string(d) + " is not a disk index (0 to 127)");
    v.disk = static_cast<std::uint8_t>(d);
  }
  v.heldByOthers = f.u32("heldByOthers", v.heldByOthers);
  v.dismounted = f.flag("dismounted", v.dismounted);
  f.done();
}

json writeVolume(const Volume& v) {
  json j = json::object();
  j["name"] = v.name;
  if (!v.interfacePath.empty()) j["interfacePath"] = v.interfacePath;
  j["mountPoints"] = v.mountPoints;
  writeProps(j, v.props);
  json ex = json::array();
  for (const Extent& e : v.extents) ex.push_back({{"disk", e.disk}, {"offset", e.offset}, {"length", e.length}});
  j["extents"] = ex;
  if (!v.present) j["present"] = false;
  if (v.devicePath) j["devicePath"] = *v.devicePath;
  if (v.disk) j["disk"] = *v.disk;
  if (v.heldByOthers) j["heldByOthers"] = v.heldByOthers;
  if (v.dismounted) j["dismounted"] = true;
  return j;
}

void FlagRules::take(Fields& f, const char* key, FaultRule rule) {
  if (!f.has(key)) return;
  if (schema >= 2) Fields::fail(f.place(key), "is not read in schema 2; write the rule " + ruleText(rule) + " in faults[] instead");
  if (f.flag(key, false)) rules.push_back(std::move(rule));
}

void readHost(const json& j, HostState& h, FlagRules& flags) {
  Fields f(j, "host");
  h.os = f.text("os", h.os);
  h.administrator = f.flag("administrator", h.administrator);
  h.instanceRunning = f.flag("instanceRunning", h.instanceRunning);
  flags.take(f, "frameworkFails", flagRule(calls::kInitFramework));
  flags.take(f, "comFails", flagRule(calls::kCoInitialize, std::nullopt, kComFailed));
  h.windowsDirectory = f.text("windowsDirectory", h.windowsDirectory);
  h.autoMount = f.flag("autoMount", h.autoMount);
  if (f.has("memory")) {
    Fields mem(f.raw("memory"), "host.memory");
    h.totalPhys = mem.u64("totalPhys", h.totalPhys);
    h.availPhys = mem.u64("availPhys", h.availPhys);
    flags.take(mem, "fails", flagRule(calls::kGlobalMemoryStatusEx));
    mem.done();
  }
  f.done();
}

void readClock(const json& j, ClockState& c) {
  Fields f(j, "clock");
  c.fileTime = f.u64("fileTime", c.fileTime);
  c.elapsedMs = f.u64("elapsedMs", c.elapsedMs);
  f.done();
}

void readDrives(const json& list, std::vector<Drive>& out) {
    if (!list.is_array()) Fields::fail("drives", "is not a list");
  out.clear();
  for (std::size_t i = 0; i < list.size(); ++i) {
    const std::string at = "drives[" + std::to_string(i) + "]";
    Fields f(list[i], at);
    Drive d;
    const char16_t l = f.letter("letter", 0);
    if (!l) Fields::fail(f.place("letter"), "a drive needs its letter");
    d.letter = static_cast<char>(l);
    if (f.has("type")) d.type = driveTypeAt(f.raw("type"), f.place("type"));
    if (f.has("volume")) d.volume = f.text("volume", "");
    readProps(f, d.overrides);
    if (f.has("rootAttributes")) d.rootAttributes = f.u32("rootAttributes", 0);
    f.done();
    out.push_back(d);
  }
}

void readRegistry(const json& reg, std::vector<RegKey>& keys) {
    if (!reg.is_object()) Fields::fail("registry", "is not an object");
  // Keys given replace the standard machine's keys of the same name.
  for (auto k = reg.begin(); k != reg.end(); ++k) {
    const std::string at = "registry." + k.key();
    if (!k.value().is_object()) Fields::fail(at, "is not an object");
    RegKey key;
    key.name = k.key();
    for (auto v = k.value().begin(); v != k.value().end(); ++v)
      key.values.push_back(readRegValue(v.key(), v.value(), at + "." + v.key()));
    bool replaced = false;
    for (RegKey& old : keys)
      if (sameNoCase(old.name, key.name)) {
        old = key;
        replaced = true;
      }
    if (!replaced) keys.push_back(key);
  }
}

void readFiles(const json& list, std::vector<FileEntry>& out, FlagRules& flags) {
    if (!list.is_array()) Fields::fail("files", "is not a list");
  out.clear();
  for (std::size_t i = 0; i < list.size(); ++i) {
    Fields f(list[i], "files[" + std::to_string(i) + "]");
    FileEntry e;
    e.path = f.text("path", "");
    if (f.has("size")) e.size = f.u64("size", 0);
    if (f.has("attributes")) e.attributes = f.u32("attributes", 0);
    e.directory = f.flag("directory", false);
    if (f.has("head")) e.head = hexAt(f.raw("head"), f.place("head"));
    if (f.has("image")) {
      Fields im(f.raw("image"), f.place("image"));
      ImageDescription d;
      d.format = lowerAscii(im.text("format", d.format));
      if (d.format != "plain" && d.format != "smart" && d.format != "compr")
        Fields::fail(im.place("format"), "\"" + d.format + "\" is not an image format (plain, smart, compr)");
      d.diskSize = im.u64("diskSize", 0);
      d.level = im.u32("level", 1);
      im.done();
      e.image = d;
    }
    flags.take(f, "readFails", flagRule(calls::kReadFile, e.path));
    f.done();
    out.push_back(e);
  }
}

void readWmi(const json& j, WmiState& wmi, FlagRules& flags) {
  Fields f(j, "wmi");
  flags.take(f, "fails", flagRule(calls::kWmiQuery));
  if (f.has("signatures")) {
    const json& s = f.raw("signatures");
    if (!s.is_array()) Fields::fail("wmi.signatures", "is not a list");
    for (std::size_t i = 0; i < s.size(); ++i)
      wmi.signatures.push_back(
          static_cast<std::uint32_t>(numberAt(s[i], "wmi.signatures[" + std::to_string(i) + "]")));
  }
  f.done();
}

void readFaults(const json& list, std::vector<FaultRule>& out) {
    if (!list.is_array()) Fields::fail("faults", "is not a list");
  out.clear();
  for (std::size_t i = 0; i < list.size(); ++i) {
    Fields f(list[i], "faults[" + std::to_string(i) + "]");
    FaultRule r;
    r.api = f.text("api", "");
    if (r.api.empty()) Fields::fail(f.place("api"), "a fault rule needs the call it fails");
    const std::optional<std::string> call = calls::failableCall(r.api);
    if (!call) Fields::fail(f.place("api"), "\"" + r.api + "\" is not a call a rule can fail (docs/simulator.md)");
    r.api = *call;
    if (f.has("code")) {
      const json& c = f.raw("code");
      const std::optional<std::uint32_t> code =
          c.is_string() ? codeFromName(c.get<std::string>()) : std::optional<std::uint32_t>(
                                                                    static_cast<std::uint32_t>(numberAt(c, f.place("code"))));
      if (!code) Fields::fail(f.place("code"), c.dump() + " is not a control code");
      r.code = code;
    }
    if (f.has("path")) r.path = f.text("path", "");
    if (f.has("nth")) r.nth = f.u32("nth", 0);
    r.error = f.u32("error", 31);
    f.done();
    out.push_back(r);
  }
}

void readBroadcasts(const json& list, std::vector<BroadcastLog>& out) {
    if (!list.is_array()) Fields::fail("broadcasts", "is not a list");
  out.clear();
  for (std::size_t i = 0; i < list.size(); ++i) {
    Fields f(list[i], "broadcasts[" + std::to_string(i) + "]");
    BroadcastLog b;
    b.flags = f.u32("flags", 0);
    b.message = f.u32("message", 0);
    b.wParam = f.u64("wParam", 0);
    if (f.has("record")) b.record = hexAt(f.raw("record"), f.place("record"));
    f.text("event", "");
    f.text("letter", "");
    f.done();
    out.push_back(BroadcastLog::of(b.flags, b.message, b.wParam, b.record));
  }
}

json writeHost(const HostState& h) {
  return {{"os", h.os},
          {"administrator", h.administrator},
          {"instanceRunning", h.instanceRunning},
          {"windowsDirectory", h.windowsDirectory},
          {"memory", {{"totalPhys", h.totalPhys}, {"availPhys", h.availPhys}}},
          {"autoMount", h.autoMount}};
}

json writeClock(const ClockState& c) { return {{"fileTime", c.fileTime}, {"elapsedMs", c.elapsedMs}}; }

json writeDrives(const std::vector<Drive>& drives) {
  json list = json::array();
  for (const Drive& d : drives) {
    json j = {{"letter", std::string(1, d.letter)}, {"type", driveTypeJson(d.type)}};
    if (d.volume) j["volume"] = *d.volume;
    writeProps(j, d.overrides);
    if (d.rootAttributes) j["rootAttributes"] = *d.rootAttributes;
    list.push_back(j);
  }
  return list;
}

json writeVolumes(const std::vector<Volume>& volumes) {
  json list = json::array();
  for (const Volume& v : volumes) list.push_back(writeVolume(v));
  return list;
}

json writeRegistry(const std::vector<RegKey>& keys) {
  json reg = json::object();
  for (const RegKey& k : keys) {
    json values = json::object();
    for (const RegValue& v : k.values) values[v.name] = writeRegValue(v);
    reg[k.name] = values;
  }
  return reg;
}

json writeFiles(const std::vector<FileEntry>& files) {
  json list = json::array();
  for (const FileEntry& f : files) {
    json j = {{"path", f.path}};
    if (f.size) j["size"] = *f.size;
    if (f.attributes) j["attributes"] = *f.attributes;
    if (f.directory) j["directory"] = true;
    if (f.head) j["head"] = toHex(*f.head);
    if (f.image) j["image"] = {{"format", f.image->format}, {"diskSize", f.image->diskSize}, {"level", f.image->level}};
    list.push_back(j);
  }
  return list;
}

json writeWmi(const WmiState& wmi) { return {{"signatures", wmi.signatures}}; }

json writeFaults(const std::vector<FaultRule>& faults) {
  json list = json::array();
  for (const FaultRule& r : faults) {
    json j = {{"api", r.api}};
    if (r.code) j["code"] = codeName(*r.code);
    if (r.path) j["path"] = *r.path;
    if (r.nth) j["nth"] = *r.nth;
    j["error"] = r.error;
    list.push_back(j);
  }
  return list;
}

json writeBroadcasts(const std::vector<BroadcastLog>& broadcasts) {
  json list = json::array();
  for (const BroadcastLog& b : broadcasts) {
    json j = {{"flags", hex32(b.flags)},
              {"message", hex32(b.message)},
              {"wParam", hex32(static_cast<std::uint32_t>(b.wParam))},
              {"record", toHex(b.record)}};
    if (!b.event.empty()) j["event"] = b.event;
    if (b.record.size() >= 16) j["letter"] = b.letter;
    list.push_back(j);
  }
  return list;
}

}  // namespace vmd::sim
