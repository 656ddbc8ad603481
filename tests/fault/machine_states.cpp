#include "fault/machine_states.h"

#include <cstdint>
#include <cstdio>

#include "base/text_codec.h"
#include "sim/sim_services.h"

namespace vmd::fault {

// --- Reading states.

const json* diskOf(const json& s, int index) {
  if (!s.contains("controller") || !s["controller"].contains("disks")) return nullptr;
  for (const json& d : s["controller"]["disks"])
    if (d.value("index", -1) == index) return &d;
  return nullptr;
}

std::vector<json> volumesOf(const json& s, int index) {
  std::vector<json> found;
  if (s.contains("volumes"))
    for (const json& v : s["volumes"])
      if (v.contains("disk") && v["disk"].get<int>() == index) found.push_back(v);
  return found;
}

std::vector<std::string> pathsOf(const json& volume) {
  std::vector<std::string> p;
  for (const char* key : {"interfacePath", "devicePath"})
    if (volume.contains(key)) p.push_back(volume[key].get<std::string>());
  return p;
}

bool isPathOf(const json& volume, const std::string& path) {
  for (const std::string& p : pathsOf(volume))
    if (sim::sameNoCase(p, path)) return true;
  return false;
}

bool hasLetter(const json& volume) {
  if (!volume.contains("mountPoints")) return false;
  for (const json& mp : volume["mountPoints"]) {
    const std::string m = mp.get<std::string>();
    if (m.size() == 3 && m[1] == ':') return true;
  }
  return false;
}

// A disk's signature as the first 8 hex digits of its MountedDevices data.
std::string signatureData(const json& disk) {
  if (!disk.contains("signature")) return {};
  const std::uint32_t sig = sim::parseNumber(disk["signature"]);
  char hex[9];
  std::snprintf(hex, sizeof hex, "%02x%02x%02x%02x", sig & 0xFF, (sig >> 8) & 0xFF, (sig >> 16) & 0xFF, sig >> 24);
  return hex;
}

bool carries(const json& value, const std::string& sigData) {
  if (sigData.empty() || !value.contains("data") || !value["data"].is_string()) return false;
  return sim::lowerAscii(value["data"].get<std::string>()).rfind(sigData, 0) == 0;
}

json* mountedDevices(json& s) {
  if (!s.contains("registry") || !s["registry"].contains("SYSTEM\\MountedDevices")) return nullptr;
  return &s["registry"]["SYSTEM\\MountedDevices"];
}
const json* mountedDevices(const json& s) { return mountedDevices(const_cast<json&>(s)); }

const json* fileAt(const json& s, const std::string& path) {
  if (s.contains("files"))
    for (const json& f : s["files"])
      if (sim::sameNoCase(f.value("path", ""), path)) return &f;
  return nullptr;
}

// The first place where two states differ, or "" when they do not.
std::string firstDifference(const json& a, const json& b, const std::string& at) {
  if (a == b) return {};
  if (a.is_object() && b.is_object()) {
    for (auto it = a.begin(); it != a.end(); ++it) {
      if (!b.contains(it.key())) return at + "/" + it.key() + " is gone";
      const std::string d = firstDifference(it.value(), b[it.key()], at + "/" + it.key());
      if (!d.empty()) return d;
    }
    for (auto it = b.begin(); it != b.end(); ++it)
      if (!a.contains(it.key())) return at + "/" + it.key() + " is new";
  }
  if (a.is_array() && b.is_array()) {
    if (a.size() != b.size())
      return at + " has " + std::to_string(b.size()) + " entries, had " + std::to_string(a.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
      const std::string d = firstDifference(a[i], b[i], at + "[" + std::to_string(i) + "]");
      if (!d.empty()) return d;
    }
  }
  std::string was = a.dump(), now = b.dump();
  if (was.size() > 80) was = was.substr(0, 77) + "...";
  if (now.size() > 80) now = now.substr(0, 77) + "...";
  return at + ": " + was + " became " + now;
}

// --- What the command may change, taken out of a state so that the rest
// can be compared before and after.

void eraseDisk(json& s, int index) {
  if (s.contains("controller") && s["controller"].contains("disks")) {
    json& disks = s["controller"]["disks"];
    for (auto it = disks.begin(); it != disks.end();)
      it = it->value("index", -1) == index ? disks.erase(it) : it + 1;
  }
  if (s.contains("volumes")) {
    json& vols = s["volumes"];
    for (auto it = vols.begin(); it != vols.end();)
      it = (it->contains("disk") && (*it)["disk"].get<int>() == index) ? vols.erase(it) : it + 1;
  }
}

void eraseFile(json& s, const std::string& path) {
  if (path.empty() || !s.contains("files")) return;
  json& files = s["files"];
  for (auto it = files.begin(); it != files.end();)
    it = sim::sameNoCase(it->value("path", ""), path) ? files.erase(it) : it + 1;
}

void eraseValuesCarrying(json& s, const std::string& sigData) {
  json* key = mountedDevices(s);
  if (!key) return;
  json kept = json::object();
  for (auto it = key->begin(); it != key->end(); ++it)
    if (!carries(it.value(), sigData)) kept[it.key()] = it.value();
  *key = kept;
}

void eraseNewValues(json& s, const json& s0) {
  json* key = mountedDevices(s);
  const json* old = mountedDevices(s0);
  if (!key) return;
  json kept = json::object();
  for (auto it = key->begin(); it != key->end(); ++it)
    if (old && old->contains(it.key())) kept[it.key()] = it.value();
  *key = kept;
}

// The image file a disk saves to, from its settings as the controller keeps them.
std::string imagePathOf(const json& s0, int index) {
  const json* d = diskOf(s0, index);
  if (!d || !d->contains("settingsRecord")) return {};
  const std::vector<std::uint8_t> r = sim::fromHex((*d)["settingsRecord"].get<std::string>());
  if (r.size() < 52) return {};
  const std::size_t at = r[48] | (r[49] << 8), len = r[50] | (r[51] << 8);
  if (len == 0 || at + 62 >= r.size()) return {};
  std::wstring path;
  for (std::size_t i = at + 38 + 24; i + 1 < r.size() && i < at + len; i += 2) {
    const wchar_t c = static_cast<wchar_t>(r[i] | (r[i + 1] << 8));
    if (!c) break;
    path += c;
  }
  return toUtf8(path);
}

json outsideScope(const RunSpec& spec, const json& s0, json s) {
  const std::string cmd = spec.command();
  const int n = spec.disk;
  s.erase("broadcasts");  // checked on their own where they are announced
  if (cmd == "add") {
    if (s.contains("controller") && s["controller"].contains("disks")) {
      json& disks = s["controller"]["disks"];
      for (auto it = disks.begin(); it != disks.end();)
        it = diskOf(s0, it->value("index", -1)) ? it + 1 : disks.erase(it);
    }
    if (s.contains("volumes")) {
      json& vols = s["volumes"];
      for (auto it = vols.begin(); it != vols.end();)
        it = (it->contains("disk") && !diskOf(s0, (*it)["disk"].get<int>())) ? vols.erase(it) : it + 1;
    }
    eraseNewValues(s, s0);
    s["host"].erase("autoMount");
  } else if (cmd == "del" || cmd == "rebuild") {
    const json* d = diskOf(s0, n);
    eraseFile(s, imagePathOf(s0, n));
    if (cmd == "rebuild") {
      // The new disk may come with another signature and take the old letter.
      if (d) eraseValuesCarrying(s, signatureData(*d));
      if (const json* now = diskOf(s, n)) eraseValuesCarrying(s, signatureData(*now));
      eraseNewValues(s, s0);
    }
    eraseDisk(s, n);
  } else if (cmd == "edit") {
    const json* d = diskOf(s0, n);
    if (d) eraseValuesCarrying(s, signatureData(*d));
    eraseDisk(s, n);
  } else if (cmd == "init") {
    if (s.contains("volumes"))
      for (json& v : s["volumes"])
        if (v.contains("disk") && v["disk"].get<int>() == n)
          for (const char* k : {"fileSystem", "label", "serial", "sectorsPerCluster", "freeBytes", "freeToCaller",
                                "dismounted", "heldByOthers"})
            v.erase(k);
  } else if (cmd == "save" || cmd == "export") {
    eraseFile(s, spec.file);
  } else if (cmd == "im" && spec.args.size() > 1) {
    s["controller"].erase("im");
  }
  return s;
}

}  // namespace vmd::fault
