// The controller's state in the state file, and back. The records a disk
// keeps are built here from their readable description (sim/record_layout.h),
// so that the controller model itself sees only bytes.
#include <algorithm>
#include <set>

#include "base/text_codec.h"

#include "sim/record_layout.h"
#include "sim/sim_services.h"
#include "sim/state_file.h"

namespace vmd::sim {

namespace {

json delayJson(std::int64_t ms) { return ms < 0 ? json("never") : json(ms); }

// Whether a disk's record description, as it would be written back with the
// entry `probe`, still gives what the controller keeps ("no record" included).
bool describes(const json& probe, const SimDisk& d) {
  std::optional<RecordBytes> settings, status;
  bool statusBroken = false;
  try {
    settings = diskRecord(probe);
  } catch (const RecordTooLarge&) {
  }
  try {
    status = diskStatus(probe);
  } catch (const RecordTooLarge&) {
    statusBroken = true;
  }
  return settings == d.settings && status == d.status && statusBroken == d.statusBroken;
}

struct ImField {
  const char* name;
  std::uint32_t ImState::*member;
  bool letter;
};
// In the order of ImState's fields (and of its `stated` bits).
const ImField kImFields[] = {
    {"recordSize", &ImState::recordSize, false},
    {"unitSize", &ImState::unitSize, false},
    {"firstUnit", &ImState::firstUnit, false},
    {"endUnit", &ImState::endUnit, false},
    {"freeUnits", &ImState::freeUnits, false},
    {"state", &ImState::state, false},
    {"reserveInEffect", &ImState::reserveInEffect, false},
    {"quotaInEffect", &ImState::quotaInEffect, false},
    {"hiberDriveInEffect", &ImState::hiberDriveInEffect, true},
    {"reserveConfigured", &ImState::reserveConfigured, false},
    {"quotaConfigured", &ImState::quotaConfigured, false},
    {"hiberDriveConfigured", &ImState::hiberDriveConfigured, true},
    {"localState", &ImState::localState, false},
    {"hiberInEffect", &ImState::hiberInEffect, false},
    {"hiberConfigured", &ImState::hiberConfigured, false},
};

// The fields that have been stated; the others are as the manager starts.
json writeIm(const ImState& im) {
  json j = json::object();
  if (!im.supported) j["supported"] = false;
  for (std::size_t i = 0; i < std::size(kImFields); ++i)
    if (im.stated & (1u << i)) {
      const std::uint32_t v = im.*kImFields[i].member;
      j[kImFields[i].name] = kImFields[i].letter ? letterJson(v) : json(v);
    }
  return j;
}

void readIm(const json& j, const std::string& where, ImState& im) {
  Fields f(j, where);
  im.supported = f.flag("supported", im.supported);
  for (std::size_t i = 0; i < std::size(kImFields); ++i) {
    const ImField& x = kImFields[i];
    if (!f.has(x.name)) continue;
    const json& v = f.raw(x.name);
    im.stated |= 1u << i;
    if (v.is_string() && v.get<std::string>().empty()) {
      im.*x.member = 0;
    } else if (v.is_string() && !(v.get<std::string>()[0] >= '0' && v.get<std::string>()[0] <= '9')) {
      // A drive letter as text.
      const std::wstring w = fromUtf8(v.get<std::string>());
      im.*x.member = static_cast<std::uint32_t>(w[0]);
    } else {
      im.*x.member = static_cast<std::uint32_t>(numberAt(v, f.place(x.name)));
    }
  }
  f.done();
}

const char* const kRecordKeys[] = {"settings", "settingsRecord", "status", "statusRecord"};

}  // namespace

void readController(const json& j, const std::string& where, ControllerState& c,
                    std::map<std::uint8_t, json>& diskSource, int schema) {
  Fields f(j, where);
  c.present = f.flag("present", c.present);
  c.interfacePath = f.text("interfacePath", c.interfacePath);
  if (f.has("interfaces")) {
    const json& list = f.raw("interfaces");
    if (!list.is_array()) Fields::fail(f.place("interfaces"), "is not a list");
    c.interfaces.clear();
    for (std::size_t i = 0; i < list.size(); ++i)
      c.interfaces.push_back(textAt(list[i], f.place("interfaces") + "[" + std::to_string(i) + "]"));
  }
  if (f.has("version")) {
    Fields v(f.raw("version"), f.place("version"));
    // A raw version word, when given, wins over major/minor: tests describe
    // controllers the major/minor form cannot.
    const std::uint32_t major = v.u32("major", 5), minor = v.u32("minor", 7), build = v.u32("build", 0);
    c.versionWord = v.has("word") ? v.u32("word", 0) : (major << 16) | (minor & 0xFFFF);
    c.secondWord = v.has("secondWord") ? v.u32("secondWord", 0) : build << 16;
    v.done();
  }
  c.variantCode = f.u32("variantCode", c.variantCode);
  c.shortBufferError = f.u32("shortBufferError", c.shortBufferError);
  if (f.has("memoryLimitMb")) c.memoryLimitMb = f.u64("memoryLimitMb", 0);
  if (f.has("timing")) {
    Fields t(f.raw("timing"), f.place("timing"));
    c.timing.volumeAfterMs = t.delay("volumeAfterMs", c.timing.volumeAfterMs);
    c.timing.goneAfterMs = t.delay("goneAfterMs", c.timing.goneAfterMs);
    t.done();
  }
  if (f.has("im")) readIm(f.raw("im"), f.place("im"), c.im);
  if (f.has("dosNameOwners")) {
    const json& o = f.raw("dosNameOwners");
    if (!o.is_object()) Fields::fail(f.place("dosNameOwners"), "is not an object");
    std::map<char16_t, std::optional<std::uint8_t>> owners;
    for (auto it = o.begin(); it != o.end(); ++it) {
      const std::string at = f.place("dosNameOwners") + "." + it.key();
      if (it.key().size() != 1) Fields::fail(at, "is not a drive letter");
      const char16_t l = static_cast<char16_t>(it.key()[0] >= 'a' ? it.key()[0] - 32 : it.key()[0]);
      if (it.value().is_null()) {
        owners[l] = std::nullopt;
      } else {
        const std::uint64_t t = numberAt(it.value(), at);
        if (t > 127) Fields::fail(at, std::to_string(t) + " is not a disk index (0 to 127)");
        owners[l] = static_cast<std::uint8_t>(t);
      }
    }
    c.dosNameOwners = owners;
  }
  if (f.has("disks")) {
    const json& list = f.raw("disks");
    if (!list.is_array()) Fields::fail(f.place("disks"), "is not a list");
    c.disks.clear();
    diskSource.clear();
    std::set<std::uint32_t> seen;
    for (std::size_t i = 0; i < list.size(); ++i) {
      const std::string at = f.place("disks") + "[" + std::to_string(i) + "]";
      Fields d(list[i], at);
      SimDisk disk;
      if (!d.has("index")) Fields::fail(at + ".index", "a disk needs its index");
      const std::uint64_t index = d.u64("index", 0);
      if (index > 127) Fields::fail(at + ".index", std::to_string(index) + " is not a disk index (0 to 127)");
      if (!seen.insert(static_cast<std::uint32_t>(index)).second)
        Fields::fail(at + ".index", std::to_string(index) + " is given to two disks");
      disk.index = static_cast<std::uint8_t>(index);
      disk.size = d.u64("size", 0);
      disk.image = d.flag("image", false);
      disk.good = d.flag("good", true);
      disk.directIo = d.flag("directIo", false);
      disk.letter = d.letter("letter", 0);
      if (d.has("systemDiskNumber")) disk.systemDiskNumber = d.u32("systemDiskNumber", 0);
      if (d.has("signature")) disk.signature = d.u32("signature", 0);
      disk.pagingFile = d.flag("pagingFile", false);
      if (d.has("volumeAfterMs")) disk.volumeAfterMs = d.delay("volumeAfterMs", 0);
      if (d.has("goneAfterMs")) disk.goneAfterMs = d.delay("goneAfterMs", 0);
      if (d.has("phase")) {
        const std::string p = d.text("phase", "present");
        if (p == "arriving") disk.phase = DiskPhase::Arriving;
        else if (p == "leaving") disk.phase = DiskPhase::Leaving;
        else if (p != "present") Fields::fail(at + ".phase", "\"" + p + "\" is not arriving, present or leaving");
      }
      if (d.has("dueMs")) {
        const json& v = d.raw("dueMs");
        disk.dueMs = (v.is_string() && v.get<std::string>() == "never") ? kNeverDue : numberAt(v, at + ".dueMs");
      }
      if (d.has("pendingSettingsRecord"))
        disk.pendingSettings = hexAt(d.raw("pendingSettingsRecord"), at + ".pendingSettingsRecord");
      if (d.has("volume")) {
        const json& v = d.raw("volume");
        if (!v.is_boolean() || v.get<bool>())
          Fields::fail(at + ".volume", v.dump() + ": only false (no volume) is allowed; describe a volume in volumes[] with its \"disk\"");
      }
      json source = json::object();
      for (const char* k : kRecordKeys)
        if (d.has(k)) source[k] = d.raw(k);
      if (source.contains("settings") && source.contains("settingsRecord"))
        Fields::fail(at + ".settingsRecord", "a disk gives its settings or its settingsRecord, not both");
      if (source.contains("status") && source.contains("statusRecord"))
        Fields::fail(at + ".statusRecord", "a disk gives its status or its statusRecord, not both");
      if (d.has("volume")) source["volume"] = false;
      d.done();
      // The records, from the disk as written (its inventory keys stand in for
      // missing settings), read as strictly as the rest. Only settings that no
      // record can hold load, as a record the controller cannot answer.
      const json& whole = list[i];
      try {
        disk.settings = diskRecord(whole, at);
      } catch (const RecordTooLarge&) {
        disk.settings.reset();
      }
      try {
        disk.status = diskStatus(whole, at);
      } catch (const RecordTooLarge&) {
        disk.statusBroken = true;
      }
      diskSource[disk.index] = source;
      c.disks.push_back(std::move(disk));
    }
    std::sort(c.disks.begin(), c.disks.end(), [](const SimDisk& a, const SimDisk& b) { return a.index < b.index; });
  }
  (void)schema;
  f.done();
}

json writeController(const ControllerState& c, const std::map<std::uint8_t, json>& diskSource) {
  json j = json::object();
  j["present"] = c.present;
  j["interfacePath"] = c.interfacePath;
  if (!c.interfaces.empty()) j["interfaces"] = c.interfaces;
  j["version"] = {{"word", hex32(c.versionWord)}, {"secondWord", hex32(c.secondWord)}};
  j["variantCode"] = c.variantCode;
  if (c.shortBufferError != 122) j["shortBufferError"] = c.shortBufferError;
  if (c.memoryLimitMb) j["memoryLimitMb"] = *c.memoryLimitMb;
  j["timing"] = {{"volumeAfterMs", delayJson(c.timing.volumeAfterMs)}, {"goneAfterMs", delayJson(c.timing.goneAfterMs)}};
  j["im"] = writeIm(c.im);
  if (c.dosNameOwners) {
    json o = json::object();
    for (const auto& [l, t] : *c.dosNameOwners) o[std::string(1, static_cast<char>(l))] = t ? json(*t) : json(nullptr);
    j["dosNameOwners"] = o;
  }
  json disks = json::array();
  for (const SimDisk& d : c.disks) {
    json e = {{"index", d.index}, {"size", d.size}};
    if (d.image) e["image"] = true;
    if (!d.good) e["good"] = false;
    if (d.directIo) e["directIo"] = true;
    if (d.letter) e["letter"] = letterJson(d.letter);
    if (d.systemDiskNumber) e["systemDiskNumber"] = *d.systemDiskNumber;
    if (d.signature) e["signature"] = hex32(*d.signature);
    if (d.pagingFile) e["pagingFile"] = true;
    if (d.volumeAfterMs) e["volumeAfterMs"] = delayJson(*d.volumeAfterMs);
    if (d.goneAfterMs) e["goneAfterMs"] = delayJson(*d.goneAfterMs);
    if (d.phase != DiskPhase::Present) {
      e["phase"] = d.phase == DiskPhase::Arriving ? "arriving" : "leaving";
      e["dueMs"] = d.dueMs == kNeverDue ? json("never") : json(d.dueMs);
    }
    // The records as they were described, while they are still what the
    // controller keeps; otherwise their bytes.
    const auto src = diskSource.find(d.index);
    bool sourceHolds = false;
    if (src != diskSource.end()) {
      json probe = e;
      for (auto it = src->second.begin(); it != src->second.end(); ++it)
        if (it.key() != "volume") probe[it.key()] = it.value();
      sourceHolds = describes(probe, d);
      if (sourceHolds)
        for (auto it = src->second.begin(); it != src->second.end(); ++it)
          if (it.key() != "volume") e[it.key()] = it.value();
    }
    if (!sourceHolds) {
      if (d.settings) e["settingsRecord"] = toHex(*d.settings);
      if (d.status) e["statusRecord"] = toHex(*d.status);
      // What no record holds has no bytes to write: its description says it.
      if (src != diskSource.end()) {
        if (!d.settings && src->second.contains("settings")) e["settings"] = src->second["settings"];
        if (d.statusBroken && src->second.contains("status")) e["status"] = src->second["status"];
      }
    }
    if (d.pendingSettings) e["pendingSettingsRecord"] = toHex(*d.pendingSettings);
    disks.push_back(e);
  }
  j["disks"] = disks;
  return j;
}

}  // namespace vmd::sim
