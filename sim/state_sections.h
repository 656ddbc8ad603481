// The sections of the state file, each read strictly and written back by a
// pair of functions: host, clock, drives, volumes, registry, files, wmi,
// faults and broadcasts. The controller's section is sim/controller_json.h.
#pragma once

#include <string>
#include <vector>

#include "sim/fields.h"
#include "sim/machine.h"

namespace vmd::sim {

// Schema 1's failure flags, gathered as the fault rules they stand for;
// schema 2 refuses them and has the rules alone.
struct FlagRules {
  int schema = 1;
  std::vector<FaultRule> rules;
  void take(Fields& f, const char* key, FaultRule rule);
};

void readHost(const json& j, HostState& h, FlagRules& flags);
json writeHost(const HostState& h);
void readClock(const json& j, ClockState& c);
json writeClock(const ClockState& c);
void readDrives(const json& list, std::vector<Drive>& out);
json writeDrives(const std::vector<Drive>& drives);
// One volume's keys laid over `v`.
void readVolume(const json& j, const std::string& where, Volume& v);
json writeVolume(const Volume& v);
json writeVolumes(const std::vector<Volume>& volumes);
// Keys given replace the keys of the same name.
void readRegistry(const json& reg, std::vector<RegKey>& keys);
json writeRegistry(const std::vector<RegKey>& keys);
void readFiles(const json& list, std::vector<FileEntry>& out, FlagRules& flags);
json writeFiles(const std::vector<FileEntry>& files);
void readWmi(const json& j, WmiState& wmi, FlagRules& flags);
json writeWmi(const WmiState& wmi);
void readFaults(const json& list, std::vector<FaultRule>& out);
json writeFaults(const std::vector<FaultRule>& faults);
void readBroadcasts(const json& list, std::vector<BroadcastLog>& out);
json writeBroadcasts(const std::vector<BroadcastLog>& broadcasts);

}  // namespace vmd::sim
