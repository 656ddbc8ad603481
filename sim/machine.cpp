#include "sim/machine.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace vmd::sim {

namespace {

// Fills in what a state file leaves out, so that short test states describe
// only what matters to them.
void mergeDefaults(json& target, const json& defaults) {
  for (auto it = defaults.begin(); it != defaults.end(); ++it) {
    if (!target.contains(it.key())) {
      target[it.key()] = it.value();
    } else if (it.value().is_object() && target[it.key()].is_object()) {
      mergeDefaults(target[it.key()], it.value());
    }
  }
}

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
      return std::stoull(s, nullptr, 0);
    } catch (...) {
      throw std::runtime_error("not a number: " + s);
    }
  }
  return 0;
}

std::string lowerAscii(std::string s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  return s;
}

bool sameNoCase(const std::string& a, const std::string& b) { return lowerAscii(a) == lowerAscii(b); }

json Machine::defaultState() {
  return json::parse(R"({
    "schema": 1,
    "host": {
      "os": "Windows 10 x64",
      "administrator": true,
      "instanceRunning": false,
      "frameworkFails": false,
      "comFails": false,
      "windowsDirectory": "C:\\Windows",
      "memory": {"totalPhys": 17179869184, "availPhys": 12884901888}
    },
    "clock": {"fileTime": 134072208000000000, "elapsedMs": 0},
    "controller": {
      "present": true,
      "interfacePath": "\\\\?\\root#scsiadapter#0000#{48fa1fe0-7189-432a-9fd4-9db766b64b31}",
      "version": {"major": 5, "minor": 7, "build": 0},
      "variantCode": 1,
      "disks": []
    },
    "drives": [
      {"letter": "C", "type": "fixed", "volume": "\\\\?\\Volume{3f1d6c52-0000-0000-0000-100000000000}\\"}
    ],
    "volumes": [
      {"name": "\\\\?\\Volume{3f1d6c52-0000-0000-0000-100000000000}\\",
       "interfacePath": "\\\\?\\STORAGE#Volume#{3f1d6c52-0000-0000-0000-100000000000}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}",
       "mountPoints": ["C:\\"],
       "fileSystem": "NTFS", "label": "System", "serial": "0x5A3C19E2",
       "sectorsPerCluster": 8, "bytesPerSector": 512,
       "totalBytes": 255999344640, "freeBytes": 118111600640,
       "extents": [{"disk": 0, "offset": 1048576, "length": 255999344640}]}
    ],
    "registry": {},
    "files": [],
    "faults": [],
    "stats": {}
  })");
}

Machine::Machine(json s) : state(std::move(s)) {
  if (!state.is_object()) throw std::runtime_error("the machine state must be a JSON object");
  if (state.contains("schema") && parseNumber(state["schema"]) != kSchemaVersion)
    throw std::runtime_error("unsupported machine state schema " + state["schema"].dump());
  mergeDefaults(state, defaultState());
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
    throw std::runtime_error(path + ": " + e.what());
  }
  return Machine(std::move(s));
}

void Machine::save(const std::string& path) const {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) throw std::runtime_error("cannot write " + path);
  out << state.dump(2) << "\n";
}

std::optional<std::uint32_t> Machine::fault(const std::string& api, std::uint32_t code, const std::string& path) {
  count("api", api);
  json& rules = state["faults"];
  if (!rules.is_array()) return std::nullopt;
  std::optional<std::uint32_t> hit;
  for (std::size_t i = 0; i < rules.size(); ++i) {
    const json& rule = rules[i];
    if (rule.value("api", std::string()) != api) continue;
    if (rule.contains("code") && parseNumber(rule["code"]) != code) continue;
    if (rule.contains("path") && !sameNoCase(rule["path"].get<std::string>(), path)) continue;
    const std::uint32_t seen = ++seen_[i];
    if (rule.contains("nth") && parseNumber(rule["nth"]) != seen) continue;
    if (!hit) hit = parseNumber(rule.value("error", json(31)));
  }
  return hit;
}

void Machine::count(const std::string& group, const std::string& key) {
  json& stats = state["stats"];
  if (!stats.is_object()) stats = json::object();
  json& g = stats[group];
  if (!g.is_object()) g = json::object();
  g[key] = g.value(key, 0) + 1;
}

void Machine::note(const std::string& group, const std::string& key, const std::string& value) {
  json& stats = state["stats"];
  if (!stats.is_object()) stats = json::object();
  json& g = stats[group];
  if (!g.is_object()) g = json::object();
  g[key] = value;
}

void Machine::sleep(std::uint32_t ms) {
  json& c = state["clock"];
  c["elapsedMs"] = c.value("elapsedMs", std::uint64_t{0}) + ms;
}

std::uint64_t Machine::fileTime() const {
  const json& c = state["clock"];
  return c.value("fileTime", std::uint64_t{0}) + c.value("elapsedMs", std::uint64_t{0}) * 10000;
}

}  // namespace vmd::sim
