#include "sim/state_file.h"

#include <algorithm>
#include <set>

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

char upperLetter(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 32) : c; }

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

// The letter of a drive-letter mount point "X:\" (or "X:"), else 0.
char mountLetter(const std::string& mp) {
  if ((mp.size() == 3 && mp[2] == '\\') || mp.size() == 2) {
    const char c = upperLetter(mp[0]);
    if (mp[1] == ':' && c >= 'A' && c <= 'Z') return c;
  }
  return 0;
}

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
    return {{"type", "REG_DWORD"}, {"data", le32(r.data.data())}};
  return {{"type", "REG_BINARY"}, {"data", toHex(r.data)}};
}

void checkLetters(const World& w, const std::vector<std::string>& volumePlaces) {
  std::map<char, std::string> owner;  // letter -> who holds it
  for (std::size_t i = 0; i < w.drives.size(); ++i) {
    const char l = w.drives[i].letter;
    const std::string who = w.drives[i].volume ? lowerAscii(*w.drives[i].volume) : "drives[" + std::to_string(i) + "]";
    if (owner.count(l) && owner[l] != who)
      Fields::fail("drives[" + std::to_string(i) + "].letter", std::string(1, l) + ": is given twice");
    owner[l] = who;
  }
  // Volumes of the controller's disks hold their letters themselves; other
  // volumes' mount points only name paths.
  for (std::size_t i = 0; i < w.volumes.size(); ++i) {
    if (!w.volumes[i].disk) continue;
    for (const std::string& mp : w.volumes[i].mountPoints) {
      const char l = mountLetter(mp);
      if (!l) continue;
      const std::string who = lowerAscii(w.volumes[i].name);
      if (owner.count(l) && owner[l] != who)
        Fields::fail(volumePlaces.at(i) + ".mountPoints",
                     std::string(1, l) + ": is the letter of another volume or drive");
      owner[l] = who;
    }
  }
}

// The text with control characters and bytes that are no UTF-8 written as
// \xNN, so that a message naming what the file holds stays one readable line.
std::string printable(const std::string& s) {
  std::string out;
  for (std::size_t i = 0; i < s.size();) {
    const auto b = static_cast<unsigned char>(s[i]);
    const std::size_t n = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 0;
    bool ok = n > 0 && i + n <= s.size();
    for (std::size_t k = 1; ok && k < n; ++k) ok = (static_cast<unsigned char>(s[i + k]) & 0xC0) == 0x80;
    if (ok && n == 1) ok = b >= 0x20 && b != 0x7F;
    if (ok && n == 2) ok = !(b == 0xC2 && static_cast<unsigned char>(s[i + 1]) < 0xA0);  // C1 controls
    if (ok) {
      out.append(s, i, n);
      i += n;
      continue;
    }
    static const char* const kDigits = "0123456789abcdef";
    out += "\\x";
    out += kDigits[b >> 4];
    out += kDigits[b & 0xF];
    ++i;
  }
  return out;
}

// "line L, column C" of the byte at `at` (0-based) of `text`.
std::string lineAndColumn(const std::string& text, std::size_t at) {
  std::size_t line = 1, column = 1;
  for (std::size_t i = 0; i < at && i < text.size(); ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

// Where `token` first stands outside a string, as the parser met it; else the end.
std::size_t tokenAt(const std::string& text, const std::string& token) {
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (inString) {
      if (text[i] == '\\') ++i;
      else if (text[i] == '"') inString = false;
    } else if (text[i] == '"') {
      inString = true;
    } else if (!token.empty() && text.compare(i, token.size(), token) == 0) {
      return i;
    }
  }
  return text.size();
}

// What the JSON library says is wrong, without its own prefix and position.
std::string reasonOf(const std::string& what) {
  const std::size_t bracket = what.find("] ");
  std::string reason = bracket == std::string::npos ? what : what.substr(bracket + 2);
  if (reason.rfind("parse error", 0) == 0) {
    const std::size_t colon = reason.find(": ");
    if (colon != std::string::npos) reason.erase(0, colon + 2);
  }
  return reason;
}

}  // namespace

json StateFile::parse(const std::string& text) {
  try {
    return json::parse(text);
  } catch (const json::parse_error& e) {
    throw LoadError(lineAndColumn(text, e.byte == 0 ? 0 : e.byte - 1) + ": " + printable(reasonOf(e.what())));
  } catch (const json::exception& e) {
    // A number beyond what a double holds: the message quotes it.
    const std::string what = e.what();
    const std::size_t open = what.find('\''), close = what.rfind('\'');
    const std::string token = open < close ? what.substr(open + 1, close - open - 1) : std::string();
    throw LoadError(lineAndColumn(text, tokenAt(text, token)) + ": " + printable(reasonOf(what)));
  }
}

Fields::Fields(const json& object, std::string where) : o_(object), where_(std::move(where)) {
  if (!o_.is_object()) fail(where_.empty() ? "state" : where_, "is not an object");
}

const json& Fields::raw(const char* key) {
  if (!has(key)) fail(place(key), "missing");
  read_.emplace_back(key);
  return o_.at(key);
}

void Fields::fail(const std::string& place, const std::string& why) {
  throw LoadError(printable(place) + ": " + printable(why));
}

std::uint64_t numberAt(const json& v, const std::string& place) {
  if (v.is_number_unsigned()) return v.get<std::uint64_t>();
  if (v.is_number_integer()) {
    if (v.get<std::int64_t>() < 0) Fields::fail(place, v.dump() + " is negative");
    return static_cast<std::uint64_t>(v.get<std::int64_t>());
  }
  if (v.is_string()) {
    try {
      return parseNumber64(v);
    } catch (...) {
    }
  }
  Fields::fail(place, v.dump() + " is not a number");
}

std::string textAt(const json& v, const std::string& place) {
  if (!v.is_string()) Fields::fail(place, v.dump() + " is not a text");
  return v.get<std::string>();
}

ByteString hexAt(const json& v, const std::string& place) {
  try {
    return fromHex(textAt(v, place));
  } catch (const LoadError&) {
    throw;
  } catch (...) {
    Fields::fail(place, "is not hexadecimal bytes");
  }
}

std::uint64_t Fields::u64(const char* key, std::uint64_t otherwise) {
  if (!has(key)) return otherwise;
  return numberAt(raw(key), place(key));
}

std::uint32_t Fields::u32(const char* key, std::uint32_t otherwise) {
  if (!has(key)) return otherwise;
  const std::uint64_t v = numberAt(raw(key), place(key));
  if (v > 0xFFFFFFFFull) fail(place(key), std::to_string(v) + " does not fit 32 bits");
  return static_cast<std::uint32_t>(v);
}

std::int64_t Fields::delay(const char* key, std::int64_t otherwise) {
  if (!has(key)) return otherwise;
  const json& v = raw(key);
  if (v.is_string() && v.get<std::string>() == "never") return kNever;
  return static_cast<std::int64_t>(numberAt(v, place(key)));
}

bool Fields::flag(const char* key, bool otherwise) {
  if (!has(key)) return otherwise;
  const json& v = raw(key);
  if (v.is_boolean()) return v.get<bool>();
  if (v.is_number()) return numberAt(v, place(key)) != 0;
  fail(place(key), v.dump() + " is not true or false");
}

std::string Fields::text(const char* key, const std::string& otherwise) {
  if (!has(key)) return otherwise;
  return textAt(raw(key), place(key));
}

char16_t Fields::letter(const char* key, char16_t otherwise) {
  if (!has(key)) return otherwise;
  const json& v = raw(key);
  if (v.is_string()) {
    const std::string s = v.get<std::string>();
    if (s.empty()) return 0;
    const char c = upperLetter(s[0]);
    if (s.size() != 1 || c < 'A' || c > 'Z') fail(place(key), v.dump() + " is not a drive letter");
    return static_cast<char16_t>(c);
  }
  return static_cast<char16_t>(numberAt(v, place(key)));
}

void Fields::done() const {
  for (auto it = o_.begin(); it != o_.end(); ++it)
    if (std::find(read_.begin(), read_.end(), it.key()) == read_.end())
      fail(place(it.key()), "unknown key");
}

BroadcastLog BroadcastLog::of(std::uint32_t flags, std::uint32_t message, std::uint64_t wParam, ByteString record) {
  BroadcastLog b{flags, message, wParam, std::move(record), {}, {}};
  if (wParam == 0x8000) b.event = "DBT_DEVICEARRIVAL";
  if (wParam == 0x8004) b.event = "DBT_DEVICEREMOVECOMPLETE";
  if (b.record.size() >= 16) {
    const std::uint32_t mask = le32(b.record.data() + 12);
    for (int i = 0; i < 26; ++i)
      if (mask & (1u << i)) b.letter += static_cast<char>('A' + i);
  }
  return b;
}

World World::standard() {
  World w;
  Volume c;
  c.name = "\\\\?\\Volume{3f1d6c52-0000-0000-0000-100000000000}\\";
  c.interfacePath =
      "\\\\?\\STORAGE#Volume#{3f1d6c52-0000-0000-0000-100000000000}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}";
  c.mountPoints = {"C:\\"};
  c.props.fileSystem = "NTFS";
  c.props.label = "System";
  c.props.serial = 0x5A3C19E2;
  c.props.sectorsPerCluster = 8;
  c.props.bytesPerSector = 512;
  c.props.totalBytes = 255999344640ull;
  c.props.freeBytes = 118111600640ull;
  c.extents = {{0, 1048576, 255999344640ull}};
  w.volumes.push_back(c);
  Drive d;
  d.letter = 'C';
  d.volume = c.name;
  w.drives.push_back(d);
  w.registry.push_back({"SYSTEM\\MountedDevices", {}});
  return w;
}

void StateFile::read(Machine& m, const json& state) {
  World& w = m.world;
  Fields top(state, "");
  int schema = 1;
  if (top.has("schema")) {
    const std::uint64_t s = numberAt(top.raw("schema"), "schema");
    if (s != 1 && s != 2) Fields::fail("schema", std::to_string(s) + " is not a schema this simulator reads (1 or 2)");
    schema = static_cast<int>(s);
  }
  // Version 1's failure flags become the fault rules they stand for, after
  // the file's own rules; version 2 has the rules alone.
  std::vector<FaultRule> flagRules;
  auto failureFlag = [&](Fields& f, const char* key, FaultRule rule) {
    if (!f.has(key)) return;
    if (schema >= 2) Fields::fail(f.place(key), "is not read in schema 2; write the rule " + ruleText(rule) + " in faults[] instead");
    if (f.flag(key, false)) flagRules.push_back(std::move(rule));
  };
  if (top.has("host")) {
    Fields f(top.raw("host"), "host");
    HostState& h = w.host;
    h.os = f.text("os", h.os);
    h.administrator = f.flag("administrator", h.administrator);
    h.instanceRunning = f.flag("instanceRunning", h.instanceRunning);
    failureFlag(f, "frameworkFails", flagRule(calls::kInitFramework));
    failureFlag(f, "comFails", flagRule(calls::kCoInitialize, std::nullopt, kComFailed));
    h.windowsDirectory = f.text("windowsDirectory", h.windowsDirectory);
    h.autoMount = f.flag("autoMount", h.autoMount);
    if (f.has("memory")) {
      Fields mem(f.raw("memory"), "host.memory");
      h.totalPhys = mem.u64("totalPhys", h.totalPhys);
      h.availPhys = mem.u64("availPhys", h.availPhys);
      failureFlag(mem, "fails", flagRule(calls::kGlobalMemoryStatusEx));
      mem.done();
    }
    f.done();
  }
  if (top.has("clock")) {
    Fields f(top.raw("clock"), "clock");
    w.clock.fileTime = f.u64("fileTime", w.clock.fileTime);
    w.clock.elapsedMs = f.u64("elapsedMs", w.clock.elapsedMs);
    f.done();
  }
  if (top.has("controller"))
    readController(top.raw("controller"), "controller", w.controller, m.diskSource_, schema);
  if (top.has("drives")) {
    const json& list = top.raw("drives");
    if (!list.is_array()) Fields::fail("drives", "is not a list");
    w.drives.clear();
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
      w.drives.push_back(d);
    }
  }
  // Volumes: those of the controller's disks are derived from the disks, and
  // an entry naming its `disk` is laid over what the disk brings.
  std::vector<std::pair<const json*, std::string>> diskVolumes;
  std::vector<std::string> volumePlaces(w.volumes.size(), "volumes");
  if (top.has("volumes")) {
    const json& list = top.raw("volumes");
    if (!list.is_array()) Fields::fail("volumes", "is not a list");
    // Entries of disks' volumes alone leave the standard volumes in place.
    bool own = false;
    for (const json& v : list) own = own || !v.is_object() || !v.contains("disk");
    if (own) w.volumes.clear();
    volumePlaces.assign(w.volumes.size(), "volumes");
    for (std::size_t i = 0; i < list.size(); ++i) {
      const std::string at = "volumes[" + std::to_string(i) + "]";
      if (list[i].is_object() && list[i].contains("disk")) {
        diskVolumes.emplace_back(&list[i], at);
        continue;
      }
      Volume v;
      readVolume(list[i], at, v);
      if (v.name.empty()) Fields::fail(at + ".name", "a volume needs its name");
      w.volumes.push_back(v);
      volumePlaces.push_back(at);
    }
  }
  for (const auto& [j, at] : diskVolumes) {
    const std::uint64_t index = numberAt((*j)["disk"], at + ".disk");
    const SimDisk* d = w.controller.findDisk(static_cast<std::uint32_t>(index));
    if (!d) Fields::fail(at + ".disk", std::to_string(index) + " is not a disk of the controller");
    Volume v = derivedVolume(diskFacts(*d));
    readVolume(*j, at, v);
    if (!j->contains("mountPoints")) m.host().assignLetter(v, diskFacts(*d));
    w.volumes.push_back(v);
    volumePlaces.push_back(at);
  }
  if (top.has("registry")) {
    const json& reg = top.raw("registry");
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
      for (RegKey& old : w.registry)
        if (sameNoCase(old.name, key.name)) {
          old = key;
          replaced = true;
        }
      if (!replaced) w.registry.push_back(key);
    }
  }
  if (top.has("files")) {
    const json& list = top.raw("files");
    if (!list.is_array()) Fields::fail("files", "is not a list");
    w.files.clear();
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
      failureFlag(f, "readFails", flagRule(calls::kReadFile, e.path));
      f.done();
      w.files.push_back(e);
    }
  }
  if (top.has("wmi")) {
    Fields f(top.raw("wmi"), "wmi");
    failureFlag(f, "fails", flagRule(calls::kWmiQuery));
    if (f.has("signatures")) {
      const json& s = f.raw("signatures");
      if (!s.is_array()) Fields::fail("wmi.signatures", "is not a list");
      for (std::size_t i = 0; i < s.size(); ++i)
        w.wmi.signatures.push_back(
            static_cast<std::uint32_t>(numberAt(s[i], "wmi.signatures[" + std::to_string(i) + "]")));
    }
    f.done();
  }
  if (top.has("faults")) {
    const json& list = top.raw("faults");
    if (!list.is_array()) Fields::fail("faults", "is not a list");
    w.faults.clear();
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
      w.faults.push_back(r);
    }
  }
  w.faults.insert(w.faults.end(), flagRules.begin(), flagRules.end());
  if (top.has("broadcasts")) {
    const json& list = top.raw("broadcasts");
    if (!list.is_array()) Fields::fail("broadcasts", "is not a list");
    w.broadcasts.clear();
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
      w.broadcasts.push_back(BroadcastLog::of(b.flags, b.message, b.wParam, b.record));
    }
  }
  if (top.has("stats")) top.raw("stats");  // a run's own counters; the next run starts afresh
  top.done();

  // Disks that are present bring their volumes, unless described already or
  // (schema 1, or `volume: false`) they have none.
  for (const SimDisk& d : w.controller.disks) {
    if (d.phase == DiskPhase::Arriving) continue;
    bool described = false;
    for (const Volume& v : w.volumes) described = described || (v.disk && *v.disk == d.index);
    const auto src = m.diskSource_.find(d.index);
    const bool none = schema == 1 || (src != m.diskSource_.end() && src->second.contains("volume") &&
                                      src->second["volume"].is_boolean() && !src->second["volume"].get<bool>());
    if (!described && !none) {
      m.host().diskArrived(diskFacts(d));
      volumePlaces.push_back("controller.disks (disk " + std::to_string(d.index) + ")");
    }
  }
  checkLetters(w, volumePlaces);
}

json StateFile::write(const Machine& m) {
  const World& w = m.world;
  json s = json::object();
  s["schema"] = kSchemaVersion;
  const HostState& h = w.host;
  s["host"] = {{"os", h.os},
               {"administrator", h.administrator},
               {"instanceRunning", h.instanceRunning},
               {"windowsDirectory", h.windowsDirectory},
               {"memory", {{"totalPhys", h.totalPhys}, {"availPhys", h.availPhys}}},
               {"autoMount", h.autoMount}};
  s["clock"] = {{"fileTime", w.clock.fileTime}, {"elapsedMs", w.clock.elapsedMs}};
  s["controller"] = writeController(w.controller, m.diskSource_);
  // A present disk without a volume says so, so that reading it again does not derive one.
  for (json& d : s["controller"]["disks"]) {
    const std::uint64_t index = d["index"].get<std::uint64_t>();
    bool has = false;
    for (const Volume& v : w.volumes) has = has || (v.disk && *v.disk == index);
    const SimDisk* sd = w.controller.findDisk(static_cast<std::uint32_t>(index));
    if (!has && sd && sd->phase != DiskPhase::Arriving) d["volume"] = false;
  }
  json drives = json::array();
  for (const Drive& d : w.drives) {
    json j = {{"letter", std::string(1, d.letter)}, {"type", driveTypeJson(d.type)}};
    if (d.volume) j["volume"] = *d.volume;
    writeProps(j, d.overrides);
    if (d.rootAttributes) j["rootAttributes"] = *d.rootAttributes;
    drives.push_back(j);
  }
  s["drives"] = drives;
  json volumes = json::array();
  for (const Volume& v : w.volumes) volumes.push_back(writeVolume(v));
  s["volumes"] = volumes;
  json reg = json::object();
  for (const RegKey& k : w.registry) {
    json values = json::object();
    for (const RegValue& v : k.values) values[v.name] = writeRegValue(v);
    reg[k.name] = values;
  }
  s["registry"] = reg;
  json files = json::array();
  for (const FileEntry& f : w.files) {
    json j = {{"path", f.path}};
    if (f.size) j["size"] = *f.size;
    if (f.attributes) j["attributes"] = *f.attributes;
    if (f.directory) j["directory"] = true;
    if (f.head) j["head"] = toHex(*f.head);
    if (f.image) j["image"] = {{"format", f.image->format}, {"diskSize", f.image->diskSize}, {"level", f.image->level}};
    files.push_back(j);
  }
  s["files"] = files;
  s["wmi"] = {{"signatures", w.wmi.signatures}};
  json faults = json::array();
  for (const FaultRule& r : w.faults) {
    json j = {{"api", r.api}};
    if (r.code) j["code"] = codeName(*r.code);
    if (r.path) j["path"] = *r.path;
    if (r.nth) j["nth"] = *r.nth;
    j["error"] = r.error;
    faults.push_back(j);
  }
  s["faults"] = faults;
  json broadcasts = json::array();
  for (const BroadcastLog& b : w.broadcasts) {
    json j = {{"flags", hex32(b.flags)},
              {"message", hex32(b.message)},
              {"wParam", hex32(static_cast<std::uint32_t>(b.wParam))},
              {"record", toHex(b.record)}};
    if (!b.event.empty()) j["event"] = b.event;
    if (b.record.size() >= 16) j["letter"] = b.letter;
    broadcasts.push_back(j);
  }
  s["broadcasts"] = broadcasts;
  s["stats"] = m.stats;
  return s;
}

}  // namespace vmd::sim
