#include "sim/machine.h"

#include <fstream>
#include <sstream>

#include "controller/codes.h"
#include "sim/state_file.h"

namespace vmd::sim {


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

json Machine::defaultState() { return Machine().toJson(); }

Machine::Machine() : world(World::standard()) { wire(); }

Machine::Machine(const json& state) : world(World::standard()) {
  wire();
  StateFile::read(*this, state);
}

Machine::Machine(Machine&& other) noexcept
    : world(std::move(other.world)),
      stats(std::move(other.stats)),
      faultMatcher_(std::move(other.faultMatcher_)),
      diskSource_(std::move(other.diskSource_)) {
  wire();
}

Machine& Machine::operator=(Machine&& other) noexcept {
  if (this != &other) {
    world = std::move(other.world);
    stats = std::move(other.stats);
    faultMatcher_ = std::move(other.faultMatcher_);
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
  try {
    return Machine(StateFile::parse(buf.str()));
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
  RuleMatcher keptMatcher = std::move(faultMatcher_);
  world = World::standard();
  diskSource_.clear();
  StateFile::read(*this, s);
  if (s.contains("stats") && s["stats"].is_object()) keptStats = s["stats"];
  stats = std::move(keptStats);
  faultMatcher_ = std::move(keptMatcher);
}

std::optional<std::uint32_t> Machine::enter(std::string_view api, std::uint32_t code, const std::string& path) {
  tick();
  count("api", std::string(api));
  const std::optional<std::uint32_t> e = matchFault(api, code, path);
  if (e && trace_) trace_->injected(*e);
  return e;
}

std::optional<std::uint32_t> Machine::matchFault(std::string_view api, std::uint32_t code, const std::string& path) {
  return faultMatcher_.match(world.faults, api, code, path);
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

std::vector<std::uint8_t> Machine::bringDiskVolumes(bool noneUnlessDescribed) {
  std::vector<std::uint8_t> brought;
  for (const SimDisk& d : world.controller.disks) {
    if (!d.deviceVisible()) continue;
    bool described = false;
    for (const Volume& v : world.volumes) described = described || (v.disk && *v.disk == d.index);
    const auto src = diskSource_.find(d.index);
    const bool none = noneUnlessDescribed || (src != diskSource_.end() && src->second.contains("volume") &&
                                              src->second["volume"].is_boolean() && !src->second["volume"].get<bool>());
    if (!described && !none) {
      host_->diskArrived(diskFacts(d));
      brought.push_back(d.index);
    }
  }
  return brought;
}

}  // namespace vmd::sim
