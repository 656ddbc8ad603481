// What every faulted run must keep, and what each command may change and
// after which steps. A run that breaks one is a violation; an outcome that
// loses or misreports something but is the program's prescribed answer to
// that failure is accepted under the rule it follows, by name.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "fault/tier_runs.h"

namespace vmd::fault {

// The fault put on a run, and which call it fails, in words.
struct Injection {
  sim::FaultRule rule;
  std::string what;  // e.g. "the 3rd DeviceIoControl (QueryDiskInfo on \\?\root#...)", "every RegEnumValueW"
};

struct Violation {
  std::string run;   // the command line
  std::string call;  // Injection::what
  std::string rule;  // the invariant broken
  std::string detail;
  json faultRule;  // as a state file writes it, to run it again with vmdctl-sim
};

class Findings {
 public:
  void violation(const RunSpec& spec, const Injection& inj, const std::string& rule, const std::string& detail);
  void accept(const RunSpec& spec, const Injection& inj, const std::string& rule);

  std::vector<Violation> violations;
  std::map<std::string, std::size_t> accepted;  // prescribed outcomes met, by rule
  std::map<std::string, std::string> example;   // the first run that met each
};

// Runs `ls` on a state; the tier's way to tell that a state loads and lists.
using ListCheck = std::function<std::string(const json& state)>;  // "" when it loads and lists

// Checks a faulted run against the invariants and against the run without
// the fault (`baseline`).
void checkRun(const RunSpec& spec, const Injection& inj, const Outcome& baseline, const Outcome& run,
              const ListCheck& loadsAndLists, Findings& findings);

// The rules a baseline run must keep (no fault: it must do what it was asked).
void checkBaseline(const RunSpec& spec, const Outcome& baseline, const ListCheck& loadsAndLists, Findings& findings);

}  // namespace vmd::fault
