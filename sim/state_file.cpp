#include "sim/state_file.h"

#include <map>

#include "base/drive_letter.h"
#include "base/text_codec.h"
#include "sim/state_sections.h"

namespace vmd::sim {

namespace {

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
      const char l = mountPointLetter(mp);
      if (!l) continue;
      const std::string who = lowerAscii(w.volumes[i].name);
      if (owner.count(l) && owner[l] != who)
        Fields::fail(volumePlaces.at(i) + ".mountPoints",
                     std::string(1, l) + ": is the letter of another volume or drive");
      owner[l] = who;
    }
  }
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

void StateFile::read(Machine& m, const json& state) {
  World& w = m.world;
  Fields top(state, "");
  FlagRules flags;
  if (top.has("schema")) {
    const std::uint64_t s = numberAt(top.raw("schema"), "schema");
    if (s != 1 && s != 2) Fields::fail("schema", std::to_string(s) + " is not a schema this simulator reads (1 or 2)");
    flags.schema = static_cast<int>(s);
  }
  if (top.has("host")) readHost(top.raw("host"), w.host, flags);
  if (top.has("clock")) readClock(top.raw("clock"), w.clock);
  if (top.has("controller"))
    readController(top.raw("controller"), "controller", w.controller, m.diskSource_, flags.schema);
  if (top.has("drives")) readDrives(top.raw("drives"), w.drives);
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
  if (top.has("registry")) readRegistry(top.raw("registry"), w.registry);
  if (top.has("files")) readFiles(top.raw("files"), w.files, flags);
  if (top.has("wmi")) readWmi(top.raw("wmi"), w.wmi, flags);
  if (top.has("faults")) readFaults(top.raw("faults"), w.faults);
  // Schema 1's flags fail calls after the file's own rules.
  w.faults.insert(w.faults.end(), flags.rules.begin(), flags.rules.end());
  if (top.has("broadcasts")) readBroadcasts(top.raw("broadcasts"), w.broadcasts);
  if (top.has("stats")) top.raw("stats");  // a run's own counters; the next run starts afresh
  top.done();

  for (const std::uint8_t index : m.bringDiskVolumes(flags.schema == 1))
    volumePlaces.push_back("controller.disks (disk " + std::to_string(index) + ")");
  checkLetters(w, volumePlaces);
}

json StateFile::write(const Machine& m) {
  const World& w = m.world;
  json s = json::object();
  s["schema"] = kSchemaVersion;
  s["host"] = writeHost(w.host);
  s["clock"] = writeClock(w.clock);
  s["controller"] = writeController(w.controller, m.diskSource_);
  // A present disk without a volume says so, so that reading it again does not derive one.
  for (json& d : s["controller"]["disks"]) {
    const std::uint64_t index = d["index"].get<std::uint64_t>();
    bool has = false;
    for (const Volume& v : w.volumes) has = has || (v.disk && *v.disk == index);
    const SimDisk* sd = w.controller.findDisk(static_cast<std::uint32_t>(index));
    if (!has && sd && sd->deviceVisible()) d["volume"] = false;
  }
  s["drives"] = writeDrives(w.drives);
  s["volumes"] = writeVolumes(w.volumes);
  s["registry"] = writeRegistry(w.registry);
  s["files"] = writeFiles(w.files);
  s["wmi"] = writeWmi(w.wmi);
  s["faults"] = writeFaults(w.faults);
  s["broadcasts"] = writeBroadcasts(w.broadcasts);
  s["stats"] = m.stats;
  return s;
}

}  // namespace vmd::sim
