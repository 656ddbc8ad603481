// The tier checks itself before it runs: each invariant is shown a run that
// breaks it (a record of calls, a state or an output changed by hand) and
// must report it, and the budget must stop a run.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "fault/invariants.h"

namespace vmd::fault {

// What the checks failed to catch; empty when every planted fault was caught.
std::vector<std::string> selfCheck(const std::map<std::string, json>& machines, MessageCatalog& catalog,
                                   const ListCheck& loadsAndLists, std::uint64_t budget);

}  // namespace vmd::fault
