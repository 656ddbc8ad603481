// The machines and the command lines the fault tier fails calls under: every
// command of the table, on a machine with disks of each kind, drive letters,
// images, Invisible Memory and a MountedDevices key with others' values.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fault/tier_platform.h"
#include "sim/fault_layer.h"
#include "sim/machine.h"

namespace vmd::fault {

using sim::json;

struct RunSpec {
  std::string machine;             // a name of tierMachines()
  std::vector<std::wstring> args;  // after the program name
  std::string keys = "yyyyyyyy";   // yes to every question
  // What the command works on: the disk it names, and the file it writes.
  int disk = -1;
  std::string file;

  std::string line() const;     // the command line, as typed
  std::string command() const;  // the command word
};

// What one run did.
struct Outcome {
  int exit = -1;
  bool runaway = false;  // stopped after its budget of calls
  std::string lastCall;  // the call that spent the budget
  std::wstring out, err;
  json before, after;  // the state (normalised) before and after, events settled
  std::vector<Call> calls;
  std::size_t leakedHandles = 0;
  std::size_t keysRead = 0;
};

// Disks 0 (SCSI at E:), 1 (Direct-IO at F:), 2 (SCSI at G: with an image it
// saves), 3 (SCSI at H: with a load-only image); Invisible Memory enabled;
// "base", and "held" (disk 0's volume held by another process) and
// "autoMountOff". Built by running the program on the standard machine.
std::map<std::string, json> tierMachines(MessageCatalog& catalog);

std::vector<RunSpec> tierRuns();

// The state as compared between runs: without the run's stats, its fault
// rules and the clock.
json normalised(const sim::Machine& machine);

// Runs `spec` once on `machine`, with `rule` added to its faults when given.
Outcome runOnce(const json& machine, const RunSpec& spec, const std::optional<sim::FaultRule>& rule,
                MessageCatalog& catalog, std::uint64_t budget);

// The fault rule as the state file writes it.
json ruleJson(const sim::FaultRule& rule);

}  // namespace vmd::fault
