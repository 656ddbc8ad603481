#include "fault/tier_runs.h"

#include "base/text_codec.h"

namespace vmd::fault {

namespace {

constexpr std::uint64_t kSetupBudget = 100000;

void setupCommand(sim::Machine& machine, MessageCatalog& catalog, const std::vector<std::wstring>& args) {
  TierPlatform p(machine, catalog, "", kSetupBudget);
  const int rc = p.run(args);
  if (rc != 0 || !p.streams.err.empty())
    throw std::runtime_error("setting up the machine: " + toUtf8(args[0]) + " " + (args.size() > 1 ? toUtf8(args[1]) : "") +
                             " ended with " + std::to_string(rc) + ": " + toUtf8(p.streams.err));
}

json machineAfter(sim::Machine& machine) {
  machine.controller().settle();
  json s = machine.toJson();
  s.erase("stats");
  s["broadcasts"] = json::array();
  return s;
}

// A MountedDevices value: REG_BINARY, 12 bytes of signature and offset 32256.
json mountedValue(const std::string& signatureHex) {
  return json{{"type", "REG_BINARY"}, {"data", signatureHex + "007e000000000000"}};
}

std::string signatureHex(const json& state, int index) {
  for (const json& d : state["controller"]["disks"])
    if (d.value("index", -1) == index) {
      const std::uint32_t sig = sim::parseNumber(d["signature"]);
      std::string hex;
      for (int i = 0; i < 4; ++i) {
        static const char* digits = "0123456789abcdef";
        const std::uint8_t b = static_cast<std::uint8_t>(sig >> (8 * i));
        hex += digits[b >> 4];
        hex += digits[b & 15];
      }
      return hex;
    }
  throw std::runtime_error("setting up the machine: no disk " + std::to_string(index));
}

}  // namespace

std::string RunSpec::line() const {
  std::string s;
  for (const std::wstring& a : args) {
    if (!s.empty()) s += ' ';
    s += toUtf8(a);
  }
  return s;
}

std::string RunSpec::command() const { return args.empty() ? std::string() : toUtf8(args[0]); }

std::map<std::string, json> tierMachines(MessageCatalog& catalog) {
  sim::Machine machine;
  machine.edit([](json& s) {
    s["controller"]["im"] = {{"state", 0},           {"unitSize", 4096},          {"firstUnit", 0},
                             {"endUnit", 262144},    {"freeUnits", 200000},       {"reserveInEffect", 8192},
                             {"reserveConfigured", 8192}, {"hiberDriveInEffect", "C"}, {"hiberDriveConfigured", "C"},
                             {"localState", 1},      {"hiberInEffect", 1},        {"hiberConfigured", 1}};
    s["files"] = json::array({
        {{"path", "C:\\img"}, {"directory", true}},
        {{"path", "C:\\img\\disk3.img"}, {"image", {{"format", "compr"}, {"diskSize", 16777216}, {"level", 5}}}},
        {{"path", "C:\\out"}, {"directory", true}},
        {{"path", "C:\\out\\old.vdd"}, {"size", 64}},
    });
  });
  setupCommand(machine, catalog, {L"add", L"-s", L"-n", L"64", L"-d", L"E", L"-f", L"fat"});
  setupCommand(machine, catalog, {L"add", L"-s", L"-n", L"32", L"-t", L"dio", L"-d", L"F", L"-f", L"fat", L"-l", L"FAST"});
  setupCommand(machine, catalog, {L"add", L"-s", L"-n", L"16", L"-d", L"G", L"-f", L"fat", L"-I", L"C:\\img\\disk2.img"});
  setupCommand(machine, catalog,
               {L"add", L"-s", L"-n", L"16", L"-d", L"H", L"-f", L"fat", L"-I", L"C:\\img\\disk3.img", L"-L"});

  json base = machineAfter(machine);
  // Others' values around the disks' own: a volume's (too long to be a
  // letter's), another disk's letter, and an old letter of disk 1 from when it
  // was a SCSI disk.
  json& key = base["registry"]["SYSTEM\\MountedDevices"];
  json values = json::object();
  values["\\??\\Volume{a0a0a0a0-1111-2222-3333-444444444444}"] = {
      {"type", "REG_BINARY"}, {"data", "5f003f003f005f00530054004f0052004100470045002300"}};
  values["\\DosDevices\\Q:"] = mountedValue("44332211");
  for (auto it = key.begin(); it != key.end(); ++it) values[it.key()] = it.value();
  values["\\DosDevices\\T:"] = mountedValue(signatureHex(base, 1));
  key = values;
  base["wmi"]["signatures"] = json::array({0x55667788});

  std::map<std::string, json> machines;
  machines["base"] = base;
  json held = base;
  for (json& v : held["volumes"])
    if (v.value("disk", -1) == 0) v["heldByOthers"] = 1;
  machines["held"] = held;
  json manual = base;
  manual["host"]["autoMount"] = false;
  machines["autoMountOff"] = manual;
  // Each machine must load as it is written.
  for (auto& [name, state] : machines) sim::Machine check(state);
  return machines;
}

std::vector<RunSpec> tierRuns() {
  auto run = [](std::string machine, std::vector<std::wstring> args, int disk = -1, std::string file = {}) {
    RunSpec r;
    r.machine = std::move(machine);
    r.args = std::move(args);
    r.disk = disk;
    r.file = std::move(file);
    return r;
  };
  return {
      run("base", {L"ls"}),
      run("base", {L"ver"}),
      run("base", {L"mem"}),
      run("base", {L"?"}),
      run("base", {L"help", L"edit"}),
      run("base", {L"im"}),
      run("base", {L"im", L"enable", L"-r", L"32", L"-q", L"64", L"-l", L"E"}),
      run("base", {L"im", L"disable"}),
      run("base", {L"view", L"0"}, 0),
      run("base", {L"view", L"1"}, 1),
      run("base", {L"view", L"2"}, 2),
      run("base", {L"add", L"-n", L"16", L"-d", L"K", L"-f", L"fat"}),
      run("base", {L"add", L"-s", L"-n", L"16", L"-t", L"dio", L"-d", L"L", L"-f", L"fat"}),
      run("base", {L"add", L"-s", L"-n", L"8", L"-f", L"fat"}),
      run("base", {L"add", L"-s", L"-n", L"16", L"-d", L"M", L"-f", L"fat", L"-I", L"C:\\img\\new.img", L"-F",
                   L"compr?3"}),
      run("autoMountOff", {L"add", L"-s", L"-n", L"16", L"-d", L"N", L"-f", L"fat"}),
      run("base", {L"del", L"0"}, 0),
      run("base", {L"del", L"1", L"-s"}, 1),
      run("base", {L"del", L"2"}, 2),
      run("held", {L"del", L"0", L"-s"}, 0),
      run("base", {L"edit", L"0", L"-d", L"K", L"-l", L"NEWLABEL"}, 0),
      run("base", {L"edit", L"1", L"-t", L"scsi", L"-d", L"S", L"-s"}, 1),
      run("base", {L"edit", L"1", L"-d", L"V"}, 1),
      run("base", {L"edit", L"2", L"-F", L"compr?4"}, 2),
      run("base", {L"rebuild", L"0", L"-n", L"32", L"-f", L"fat"}, 0),
      run("base", {L"rebuild", L"1", L"-s", L"-t", L"dio", L"-n", L"32", L"-f", L"fat"}, 1),
      run("base", {L"rebuild", L"2", L"-g", L"-s", L"-n", L"16", L"-f", L"fat"}, 2),
      run("held", {L"rebuild", L"0", L"-n", L"32", L"-f", L"fat"}, 0),
      run("base", {L"init", L"0"}, 0),
      run("base", {L"init", L"1", L"-s"}, 1),
      run("held", {L"init", L"0", L"-s"}, 0),
      run("base", {L"save", L"2"}, 2, "C:\\img\\disk2.img"),
      run("base", {L"save", L"3"}, 3, "C:\\img\\disk3.img"),
      run("base", {L"save", L"0", L"-a", L"C:\\out\\d0.img", L"-F", L"compr?5", L"-s"}, 0, "C:\\out\\d0.img"),
      run("base", {L"export", L"0", L"-f", L"C:\\out\\d0"}, 0, "C:\\out\\d0.vdd"),
      run("base", {L"export", L"1", L"-f", L"C:\\out\\old.vdd"}, 1, "C:\\out\\old.vdd"),
      run("base", {L"export", L"3", L"-s", L"-f", L"C:\\out\\d3.vdd"}, 3, "C:\\out\\d3.vdd"),
  };
}

json normalised(const sim::Machine& machine) {
  json s = machine.toJson();
  s.erase("stats");
  s.erase("faults");
  s.erase("clock");
  return s;
}

json ruleJson(const sim::FaultRule& rule) {
  json r = {{"api", rule.api}};
  if (rule.code) r["code"] = sim::codeName(*rule.code);
  if (rule.path) r["path"] = *rule.path;
  if (rule.nth) r["nth"] = *rule.nth;
  r["error"] = rule.error >= 0x10000 ? json(sim::hex32(rule.error)) : json(rule.error);
  return r;
}

Outcome runOnce(const json& state, const RunSpec& spec, const std::optional<sim::FaultRule>& rule,
                MessageCatalog& catalog, std::uint64_t budget) {
  Outcome o;
  sim::Machine machine(state);
  machine.controller().settle();
  o.before = normalised(machine);
  if (rule) machine.world.faults.push_back(*rule);
  {
    TierPlatform p(machine, catalog, spec.keys, budget);
    try {
      o.exit = p.run(spec.args);
    } catch (const RunawayRun& stop) {
      o.runaway = true;
      o.lastCall = stop.what();
    }
    o.out = p.streams.out;
    o.err = p.streams.err;
    o.calls = std::move(p.log.calls);
    o.leakedHandles = p.openHandles();
    o.keysRead = p.keys.read();
  }
  machine.controller().settle();
  o.after = normalised(machine);
  return o;
}

}  // namespace vmd::fault
